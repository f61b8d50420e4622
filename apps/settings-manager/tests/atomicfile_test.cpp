// Durable, all-or-nothing file replacement.
#include "atomicfile.h"
#include "servicefixture.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <sys/stat.h>

namespace {

const std::string FOLDER = "/tmp/atomic/";

using servicetest::errorText;
using servicetest::readFile;
using servicetest::writeFile;

std::vector<std::string> names() {
    std::vector<std::string> result;
    for (const auto& entry : std::filesystem::directory_iterator(FOLDER)) {
        result.push_back(entry.path().filename().string());
    }
    std::sort(result.begin(), result.end());
    return result;
}

class AtomicFileTest : public testing::Test {
protected:
    void SetUp() override {
        std::filesystem::remove_all(FOLDER);
        std::filesystem::create_directory(FOLDER);
    }
    void TearDown() override {
        ::chmod(FOLDER.c_str(), 0755);
        std::filesystem::remove_all(FOLDER);
    }
};

TEST(AtomicFileNames, TheTemporaryFileIsAHiddenSiblingOfTheTarget) {
    EXPECT_EQ(AtomicFile::temporaryPath("/var//SETUPS/.current.stp"),
              "/var//SETUPS/..current.stp.tmp");
    EXPECT_EQ(AtomicFile::temporaryPath("/var//SETUPS/Studio.stp"), "/var//SETUPS/.Studio.stp.tmp");
    EXPECT_EQ(AtomicFile::temporaryPath("plain"), ".plain.tmp");
    EXPECT_TRUE(AtomicFile::isTemporaryName(".Studio.stp.tmp"));
    EXPECT_TRUE(AtomicFile::isTemporaryName("..current.stp.tmp"));
    for (const char* other : {"Studio.stp.tmp", ".current.stp", ".tmp", "..tmp", "x.tmp", ""}) {
        EXPECT_FALSE(AtomicFile::isTemporaryName(other)) << other;
    }
}

TEST_F(AtomicFileTest, WriteCreatesTheFileAndLeavesNoTemporaryFile) {
    EXPECT_EQ(errorText(AtomicFile::write(FOLDER + "a.stp", "content")), "");
    EXPECT_EQ(readFile(FOLDER + "a.stp"), "content");
    EXPECT_EQ(names(), std::vector<std::string>{"a.stp"});
}

TEST_F(AtomicFileTest, WriteReplacesTheFileWithANewOne) {
    writeFile(FOLDER + "a.stp", std::string(5000, 'x'));
    std::ifstream old(FOLDER + "a.stp", std::ios::binary);
    EXPECT_EQ(errorText(AtomicFile::write(FOLDER + "a.stp", "short")), "");
    EXPECT_EQ(readFile(FOLDER + "a.stp"), "short");
    std::ostringstream before;
    before << old.rdbuf();
    EXPECT_EQ(before.str(), std::string(5000, 'x'));
    EXPECT_EQ(names(), std::vector<std::string>{"a.stp"});
}

TEST_F(AtomicFileTest, AFolderThatCannotBeWrittenFailsAndKeepsTheOldFile) {
    writeFile(FOLDER + "a.stp", "old");
    ASSERT_EQ(::chmod(FOLDER.c_str(), 0555), 0);
    EXPECT_EQ(errorText(AtomicFile::write(FOLDER + "a.stp", "new")),
              "create /tmp/atomic/.a.stp.tmp: Permission denied");
    EXPECT_EQ(readFile(FOLDER + "a.stp"), "old");
}

TEST_F(AtomicFileTest, AFolderInThePlaceOfTheTargetFailsAndIsLeftAlone) {
    std::filesystem::create_directory(FOLDER + "a.stp");
    writeFile(FOLDER + "a.stp/inside", "kept");
    EXPECT_EQ(errorText(AtomicFile::write(FOLDER + "a.stp", "new")),
              "rename to /tmp/atomic/a.stp: Is a directory");
    EXPECT_EQ(readFile(FOLDER + "a.stp/inside"), "kept");
    EXPECT_EQ(names(), std::vector<std::string>{"a.stp"});
}

TEST_F(AtomicFileTest, AWriteThatRunsOutOfSpaceFailsAndKeepsTheOldFile) {
    writeFile(FOLDER + "a.stp", "old");
    std::string error;
    {
        const servicetest::FileSizeLimit full(100);
        error = errorText(AtomicFile::write(FOLDER + "a.stp", std::string(1000, 'n')));
    }
    EXPECT_EQ(error, "write /tmp/atomic/.a.stp.tmp: File too large");
    EXPECT_EQ(readFile(FOLDER + "a.stp"), "old");
    EXPECT_EQ(names(), std::vector<std::string>{"a.stp"});
}

TEST_F(AtomicFileTest, AFailureCarriesTheSystemsCodeAndWhereItWasFound) {
    ASSERT_EQ(::chmod(FOLDER.c_str(), 0555), 0);
    const Result<void> result = AtomicFile::write(FOLDER + "a.stp", "new");
    ASSERT_FALSE(result.ok());
    EXPECT_EQ(result.error().code, EACCES);
    EXPECT_EQ(std::filesystem::path(result.error().file).filename(), "atomicfile.cpp");
    EXPECT_GT(result.error().line, 0);
}

TEST_F(AtomicFileTest, LinkOverReplacesTheLinkWithTheExistingFile) {
    writeFile(FOLDER + "a.stp", "first");
    writeFile(FOLDER + "b.stp", "older");
    EXPECT_EQ(errorText(AtomicFile::linkOver(FOLDER + "a.stp", FOLDER + "b.stp")), "");
    EXPECT_EQ(readFile(FOLDER + "b.stp"), "first");
    EXPECT_EQ(errorText(AtomicFile::write(FOLDER + "a.stp", "second")), "");
    EXPECT_EQ(readFile(FOLDER + "b.stp"), "first");
    EXPECT_EQ(names(), (std::vector<std::string>{"a.stp", "b.stp"}));
}

TEST_F(AtomicFileTest, LinkOverOfAMissingFileFailsAndKeepsTheLink) {
    writeFile(FOLDER + "b.stp", "older");
    EXPECT_EQ(errorText(AtomicFile::linkOver(FOLDER + "none.stp", FOLDER + "b.stp")),
              "link /tmp/atomic/.b.stp.tmp: No such file or directory");
    EXPECT_EQ(readFile(FOLDER + "b.stp"), "older");
    EXPECT_EQ(names(), std::vector<std::string>{"b.stp"});
}

} // namespace
