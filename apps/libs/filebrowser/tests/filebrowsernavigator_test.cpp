// Listing and moving around below the root.
#include "browserfixture.h"

#include <gmock/gmock.h>

#include <algorithm>
#include <functional>
#include <strings.h>
#include <utility>

namespace fs = std::filesystem;
using filetest::BrowserTest;
using filetest::KernelLogMark;
using filetest::writeFile;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

namespace {

using filetest::Listed;
constexpr auto Folder = fs::file_type::directory;
constexpr auto File = fs::file_type::regular;

TEST_F(BrowserTest, ListsFoldersFirstThenFilteredFilesWithoutRegardToCase) {
    fs::create_directories(root / "b");
    fs::create_directories(root / "A");
    writeFile(root / "c.stp");
    writeFile(root / "B.stp");
    writeFile(root / "x.txt");
    writeFile(root / ".hidden.stp");
    browser.setExtensionFilter(".stp");
    EXPECT_THAT(entries(),
                ElementsAre(Listed{"A", 0, Folder, false}, Listed{"b", 1, Folder, false},
                            Listed{"B.stp", 2, File, false}, Listed{"c.stp", 3, File, true}));
}

TEST_F(BrowserTest, WithoutFilterEveryVisibleFileIsListed) {
    writeFile(root / "notes");
    writeFile(root / "x.txt");
    writeFile(root / "Y.stp");
    writeFile(root / ".hidden");
    fs::create_directories(root / ".hidden-folder");
    EXPECT_THAT(listed(), ElementsAre("notes", "x.txt", "Y.stp"));
}

TEST_F(BrowserTest, TheLastFolderIsLastWhenThereAreNoFiles) {
    fs::create_directories(root / "one");
    fs::create_directories(root / "two");
    writeFile(root / "skipped.txt");
    browser.setExtensionFilter(".stp");
    EXPECT_THAT(entries(),
                ElementsAre(Listed{"one", 0, Folder, false}, Listed{"two", 1, Folder, true}));
}

TEST_F(BrowserTest, AnEmptyFolderGivesNoCallback) {
    writeFile(root / ".only-hidden");
    int calls = 0;
    browser.ls([&calls](FileBrowserBase::EntryInfo const&) { ++calls; });
    EXPECT_EQ(calls, 0);
}

TEST_F(BrowserTest, OfTwoNamesDifferingInCaseOnlyTheFirstMetIsListed) {
    writeFile(root / "Setup.stp");
    writeFile(root / "setup.stp");
    fs::create_directories(root / "Folder");
    fs::create_directories(root / "FOLDER");
    std::vector<std::string> firstMet;
    for (fs::directory_entry const& entry : fs::directory_iterator(root)) {
        std::string name = entry.path().filename().string();
        bool const seen = std::any_of(firstMet.begin(), firstMet.end(), [&name](auto const& other) {
            return strcasecmp(other.c_str(), name.c_str()) == 0;
        });
        if (!seen) {
            firstMet.push_back(name);
        }
    }
    std::string const folder = fs::is_directory(root / firstMet[0]) ? firstMet[0] : firstMet[1];
    std::string const file = fs::is_directory(root / firstMet[0]) ? firstMet[1] : firstMet[0];
    EXPECT_THAT(listed(), ElementsAre(folder, file));
}

TEST_F(BrowserTest, TheExtensionFilterRegardsCase) {
    writeFile(root / "x.STP");
    writeFile(root / "y.stp");
    writeFile(root / "z.stp.bak");
    writeFile(root / "stp");
    browser.setExtensionFilter(".stp");
    EXPECT_THAT(listed(), ElementsAre("y.stp"));
}

TEST_F(BrowserTest, LinksAreFollowed) {
    fs::create_directories(root / "real");
    writeFile(root / "real.stp");
    fs::create_directory_symlink(root / "real", root / "to-folder");
    fs::create_symlink(root / "real.stp", root / "to-file.stp");
    fs::create_symlink(root / "nowhere", root / "dangling.stp");
    fs::create_directory_symlink(outside, root / "to-outside");
    EXPECT_THAT(
        entries(),
        ElementsAre(Listed{"real", 0, Folder, false}, Listed{"to-folder", 1, Folder, false},
                    Listed{"to-outside", 2, Folder, false}, Listed{"dangling.stp", 3, File, false},
                    Listed{"real.stp", 4, File, false}, Listed{"to-file.stp", 5, File, true}));
}

TEST_F(BrowserTest, AnEntryWhoseStatusFailsIsLoggedAndListsNothing) {
    fs::create_directories(root / "real");
    writeFile(root / "real.stp");
    fs::create_symlink(root / "loop.stp", root / "loop.stp");
    KernelLogMark mark;
    int calls = 0;
    EXPECT_NO_THROW(browser.ls([&calls](FileBrowserBase::EntryInfo const&) { ++calls; }));
    EXPECT_EQ(calls, 0);
    EXPECT_TRUE(mark.loggedWith("LogLight", "Could not ls directory " + (root / "").string() +
                                                ": filesystem error: "));
}

TEST_F(BrowserTest, AtTheRootTheCurrentPathIsTheRootJoinedWithAnEmptyPath) {
    EXPECT_EQ(browser.currentPath().string(), root.string() + "/");
    fs::remove_all(root);
    KernelLogMark mark;
    EXPECT_THAT(listed(), IsEmpty());
    EXPECT_TRUE(mark.loggedWith("LogLight", "Could not ls directory " + root.string() + "/: "));
}

TEST_F(BrowserTest, AMissingFolderIsLoggedAndListsNothing) {
    fs::path const missing = scratch.path() / "missing";
    browser.setRootPath(missing.string());
    KernelLogMark mark;
    int calls = 0;
    EXPECT_NO_THROW(browser.ls([&calls](FileBrowserBase::EntryInfo const&) { ++calls; }));
    EXPECT_EQ(calls, 0);
    EXPECT_TRUE(mark.loggedWith("LogLight", "Could not ls directory " + (missing / "").string() +
                                                ": filesystem error: "));
}

TEST_F(BrowserTest, AFileAsFolderIsLoggedAndListsNothing) {
    writeFile(root / "file");
    browser.setRootPath((root / "file").string());
    KernelLogMark mark;
    EXPECT_THAT(listed(), IsEmpty());
    EXPECT_TRUE(mark.loggedWith("LogLight", "Could not ls directory " + (root / "file").string()));
}

TEST_F(BrowserTest, AnEmptyCallbackThrowsOnlyWhenAnEntryIsDelivered) {
    EXPECT_NO_THROW(browser.ls({}));
    writeFile(root / "a.stp");
    EXPECT_THROW(browser.ls({}), std::bad_function_call);
}

TEST_F(BrowserTest, CallbackErrorsPropagate) {
    writeFile(root / "a.stp");
    writeFile(root / "b.stp");
    int calls = 0;
    EXPECT_THROW(browser.ls([&calls](FileBrowserBase::EntryInfo const&) {
        ++calls;
        throw fs::filesystem_error("from the owner", std::make_error_code(std::errc::io_error));
    }),
                 fs::filesystem_error);
    EXPECT_EQ(calls, 1);
}

TEST_F(BrowserTest, CdUpAndCdRootAtTheRootChangeNothingAndLogNothing) {
    KernelLogMark mark;
    browser.cdUp();
    browser.cdRoot();
    EXPECT_EQ(browser.currentPath(), root / "");
    EXPECT_EQ(std::as_const(browser).relativePath(), fs::path());
    EXPECT_FALSE(mark.mentions("Changing to"));
}

TEST_F(BrowserTest, CdResolvesAgainstTheWorkingFolderAndIsLogged) {
    fs::create_directories(root / "sub" / "deeper");
    writeFile(root / "sub" / "inner.stp");
    fs::current_path(root);
    KernelLogMark mark;

    browser.cd("sub");

    EXPECT_EQ(browser.currentPath(), root / "sub");
    EXPECT_EQ(std::as_const(browser).relativePath(), root / "sub");
    EXPECT_EQ(browser.relativePath(), (root / "sub").string());
    EXPECT_TRUE(mark.logged("LogLight", "Changing to directory " + (root / "sub").string()));
    EXPECT_THAT(listed(), ElementsAre("deeper", "inner.stp"));

    browser.cd((root / "sub" / "deeper").string());
    EXPECT_EQ(browser.currentPath(), root / "sub" / "deeper");
    browser.cdUp();
    EXPECT_EQ(browser.currentPath(), root / "sub");
    EXPECT_TRUE(mark.logged("LogLight", "Changing to parent directory " + (root / "sub").string()));
    browser.cdRoot();
    EXPECT_EQ(browser.currentPath(), root / "");
    EXPECT_EQ(std::as_const(browser).relativePath(), fs::path());
    EXPECT_TRUE(mark.logged("LogLight", "Changing to root directory " + root.string()));
}

TEST_F(BrowserTest, CdOutsideTheWorkingFolderNeedsTheFullPath) {
    fs::create_directories(root / "sub");
    fs::current_path(outside);
    EXPECT_THROW(browser.cd("sub"), fs::filesystem_error);
    EXPECT_EQ(browser.currentPath(), root / "");
    browser.cd(browser.path(0).string());
    EXPECT_EQ(browser.currentPath(), root / "sub");
}

TEST_F(BrowserTest, CdToAMissingNameKeepsThePlace) {
    fs::create_directories(root / "sub");
    browser.cd((root / "sub").string());
    EXPECT_THROW(browser.cd("missing"), fs::filesystem_error);
    EXPECT_EQ(browser.currentPath(), root / "sub");
}

TEST_F(BrowserTest, CdFollowsLinks) {
    fs::create_directories(root / "real");
    writeFile(root / "real" / "inside.stp");
    fs::create_directory_symlink(root / "real", root / "link");
    browser.cd((root / "link").string());
    EXPECT_EQ(browser.currentPath(), root / "real");
    EXPECT_THAT(listed(), ElementsAre("inside.stp"));
}

TEST_F(BrowserTest, SetRootPathKeepsTheRelativePath) {
    fs::create_directories(root / "sub");
    browser.cd((root / "sub").string());
    browser.setRootPath(outside.string());
    EXPECT_EQ(std::as_const(browser).relativePath(), root / "sub");
}

} // namespace
