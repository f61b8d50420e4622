// Names and paths that must stay inside the settings folder.
#include "folderpath.h"

#include <gtest/gtest.h>

#include <string>

namespace {

TEST(FolderPath, PlainNamesAreNamesOfVisibleEntriesOfOneFolder) {
    for (const char* name : {"Studio", "261115_1412", "a b", "x.stp", "a..b", "x..", "ü"}) {
        EXPECT_TRUE(FolderPath::isPlainName(name)) << name;
    }
    for (const char* name : {"", ".", "..", "..x", "../escaped", "a/b", "/", "/etc/passwd",
                             ".hidden", ".current", "dir/"}) {
        EXPECT_FALSE(FolderPath::isPlainName(name)) << name;
    }
    EXPECT_FALSE(FolderPath::isPlainName(std::string("a\0b", 3)));
}

TEST(FolderPath, APathLiesInTheFolderWhenItNamesAnEntryDirectlyInside) {
    const std::string folder = "/var//SETUPS/";
    for (const char* path : {"/var//SETUPS/Studio.stp", "/var/SETUPS/.current.stp",
                             "/var//SETUPS/./a.stp", "/var//SETUPS/x/../a.stp"}) {
        EXPECT_TRUE(FolderPath::liesIn(folder, path)) << path;
    }
    for (const char* path : {"/var//SETUPS/", "/var//SETUPS", "/var//SETUPS/.", "/var//SETUPS/..",
                             "/var//SETUPS/../escaped.stp", "/var//SETUPS/x/a.stp", "/var/a.stp",
                             "/var/SETUPSX/a.stp", "SETUPS/a.stp", ""}) {
        EXPECT_FALSE(FolderPath::liesIn(folder, path)) << path;
    }
    EXPECT_TRUE(FolderPath::liesIn("/var//SETUPS", "/var/SETUPS/a"));
}

} // namespace
