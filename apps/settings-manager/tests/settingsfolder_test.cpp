// The settings folder: every path the service builds in it, checked to stay
// inside, and the reading of settings files.
#include "settingsfolder.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cerrno>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

namespace {

constexpr const char* SETUPS = "/var//SETUPS/";

void writeFile(const std::string& path, const std::string& text) {
    std::ofstream file(path, std::ios::binary | std::ios::trunc);
    file << text;
}

class SettingsFolderTest : public testing::Test {
protected:
    void SetUp() override {
        std::filesystem::remove_all(SETUPS);
        std::filesystem::create_directory(SETUPS);
    }
    void TearDown() override { std::filesystem::remove_all(SETUPS); }
    SettingsFolder folder;
};

TEST(SettingsFolderNames, TheServicesOwnFilesAreHiddenNamesInTheFolder) {
    const SettingsFolder folder;
    EXPECT_EQ(folder.path(), "/var//SETUPS/");
    EXPECT_EQ(SettingsFolder::currentFileName(), ".current.stp");
    EXPECT_EQ(SettingsFolder::backupFileName(), ".current.stp.backup");
    EXPECT_EQ(SettingsFolder::damagedFileName(), ".current.stp.damaged");
    EXPECT_EQ(folder.currentPath(), "/var//SETUPS/.current.stp");
    EXPECT_EQ(folder.backupPath(), "/var//SETUPS/.current.stp.backup");
    EXPECT_EQ(folder.damagedPath(), "/var//SETUPS/.current.stp.damaged");
}

TEST(SettingsFolderNames, APathIsHandedOutOnlyWhenItStaysDirectlyInTheFolder) {
    const SettingsFolder folder;
    EXPECT_EQ(folder.pathOf(".current.stp"), "/var//SETUPS/.current.stp");
    EXPECT_EQ(folder.pathOf("Studio.stp"), "/var//SETUPS/Studio.stp");
    for (const char* name : {"", ".", "..", "../escaped.stp", "x/a.stp", "x/../../a"}) {
        EXPECT_FALSE(folder.pathOf(name)) << name;
    }
    EXPECT_EQ(folder.pathOf("../escaped.stp").error().text,
              "the name does not stay inside the settings folder");
}

TEST(SettingsFolderNames, NamesFromTheUserInterfaceMustBePlainNames) {
    const SettingsFolder folder;
    EXPECT_EQ(folder.pathOfVisible("Studio.stp"), "/var//SETUPS/Studio.stp");
    EXPECT_EQ(folder.setupPath("Studio"), "/var//SETUPS/Studio.stp");
    EXPECT_EQ(folder.setupPath("261115_1412"), "/var//SETUPS/261115_1412.stp");
    for (const char* name : {"", ".", "..", "../escaped", "a/b", ".current", ".hidden"}) {
        EXPECT_FALSE(folder.setupPath(name)) << name;
        EXPECT_FALSE(folder.pathOfVisible(name)) << name;
    }
    EXPECT_EQ(folder.setupPath("a/b").error().text, "\"a/b.stp\" is not a plain file name");
}

TEST_F(SettingsFolderTest, MissingMeansNothingIsThere) {
    EXPECT_TRUE(SettingsFolder::isMissing(folder.currentPath()));
    std::filesystem::create_directory(folder.currentPath());
    EXPECT_FALSE(SettingsFolder::isMissing(folder.currentPath()));
    EXPECT_FALSE(SettingsFolder::isMissing(SETUPS));
}

TEST_F(SettingsFolderTest, ASettingsFileIsReadWithoutItsByteOrderMark) {
    writeFile(folder.currentPath(), "\xef\xbb\xbf{\"FocusTorque\": 4}");
    EXPECT_EQ(folder.readText(".current.stp"), "{\"FocusTorque\": 4}");
    writeFile(folder.backupPath(), "{}");
    EXPECT_EQ(folder.readText(".current.stp.backup"), "{}");
}

TEST_F(SettingsFolderTest, OnlyRegularFilesInTheFolderAreRead) {
    EXPECT_FALSE(folder.readText("Missing.stp"));
    EXPECT_EQ(folder.readText("Missing.stp").error().code, ENOENT);
    std::filesystem::create_directory(std::string(SETUPS) + "Folder");
    EXPECT_FALSE(folder.readText("Folder"));
    writeFile("/var/Outside.stp", "{}");
    EXPECT_FALSE(folder.readText("../Outside.stp"));
    std::filesystem::remove("/var/Outside.stp");
}

TEST_F(SettingsFolderTest, TemporaryFilesOfCutWritesAreRemovedAndNothingElse) {
    writeFile(std::string(SETUPS) + "..current.stp.tmp", "cut");
    writeFile(std::string(SETUPS) + ".Studio.stp.tmp", "cut");
    writeFile(std::string(SETUPS) + "Studio.stp", "{}");
    writeFile(folder.currentPath(), "{}");
    folder.removeTemporaries();
    std::vector<std::string> left;
    for (const auto& entry : std::filesystem::directory_iterator(SETUPS)) {
        left.push_back(entry.path().filename().string());
    }
    std::sort(left.begin(), left.end());
    EXPECT_EQ(left, (std::vector<std::string>{".current.stp", "Studio.stp"}));
}

} // namespace
