// The index-based operations: an index is the position of the entry in the
// listing of the current folder.
#include "browserfixture.h"

#include <gmock/gmock.h>

#include <unistd.h>

namespace fs = std::filesystem;
using filetest::BrowserTest;
using filetest::KernelLogMark;
using filetest::writeFile;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::UnorderedElementsAre;

namespace {

class EntriesTest : public BrowserTest {
protected:
    EntriesTest() {
        // Listed as: A, b, B.stp, c.stp
        fs::create_directories(root / "b");
        fs::create_directories(root / "A");
        writeFile(root / "c.stp");
        writeFile(root / "B.stp");
        writeFile(root / "x.txt");
        writeFile(root / ".hidden.stp");
        browser.setExtensionFilter(".stp");
    }
};

TEST_F(EntriesTest, IndicesFollowTheListingOrder) {
    ASSERT_THAT(listed(), ElementsAre("A", "b", "B.stp", "c.stp"));
    EXPECT_EQ(browser.path(0), root / "A");
    EXPECT_EQ(browser.path(1), root / "b");
    EXPECT_EQ(browser.path(2), root / "B.stp");
    EXPECT_EQ(browser.path(3), root / "c.stp");
    EXPECT_EQ(browser.path(4), fs::path());
    EXPECT_FALSE(browser.isFile(0));
    EXPECT_FALSE(browser.isFile(1));
    EXPECT_TRUE(browser.isFile(2));
    EXPECT_TRUE(browser.isFile(3));
    EXPECT_FALSE(browser.isFile(4));
}

TEST_F(EntriesTest, TheBaseAddressesTheListingOfItsRoot) {
    FileBrowserBase base({}, {});
    base.setRootPath(root.string());
    base.setExtensionFilter(".stp");
    EXPECT_EQ(base.currentPath(), root);
    EXPECT_EQ(base.path(0), root / "A");
    EXPECT_EQ(base.path(3), root / "c.stp");
    EXPECT_TRUE(base.isFile(3));
    EXPECT_TRUE(base.selectToggle(3));
    EXPECT_TRUE(base.selected(3));
    EXPECT_TRUE(base.remove());
    EXPECT_FALSE(fs::exists(root / "c.stp"));
}

TEST_F(EntriesTest, IndicesFollowTheNavigatorIntoSubFolders) {
    writeFile(root / "b" / "inner.stp");
    browser.cd(browser.path(1).string());
    EXPECT_EQ(browser.path(0), root / "b" / "inner.stp");
    EXPECT_TRUE(browser.isFile(0));
    EXPECT_EQ(browser.path(1), fs::path());
}

TEST_F(EntriesTest, SelectToggleAddsAndTakesOut) {
    EXPECT_FALSE(browser.selected(2));
    EXPECT_TRUE(browser.selectToggle(2));
    EXPECT_TRUE(browser.selected(2));
    EXPECT_TRUE(browser.selectToggle(0));
    EXPECT_THAT(browser.getSelection(), ElementsAre(root / "B.stp", root / "A"));
    EXPECT_FALSE(browser.selectToggle(2));
    EXPECT_FALSE(browser.selected(2));
    EXPECT_THAT(browser.getSelection(), ElementsAre(root / "A"));
    EXPECT_FALSE(browser.selectToggle(9));
    EXPECT_FALSE(browser.selected(9));
    EXPECT_THAT(browser.getSelection(), ElementsAre(root / "A"));
}

TEST_F(EntriesTest, SelectAllOfRootTakesEveryEntryOnce) {
    ASSERT_TRUE(browser.selectToggle(2));
    EXPECT_TRUE(browser.selectAllOfRoot());
    EXPECT_TRUE(browser.selectAllOfRoot());
    EXPECT_THAT(browser.getSelection(),
                UnorderedElementsAre(root / "A", root / "b", root / "B.stp", root / "c.stp",
                                     root / "x.txt", root / ".hidden.stp"));
    for (unsigned index = 0; index < 4; ++index) {
        EXPECT_TRUE(browser.selected(index)) << index;
    }
}

TEST_F(EntriesTest, SelectAllOfAMissingRootIsLoggedAndTheOperationsActOnNothingMore) {
    fs::path const missing = scratch.path() / "missing";
    browser.setRootPath(missing.string());
    browser.setSelectAll(true);
    KernelLogMark mark;
    EXPECT_FALSE(browser.selectAllOfRoot());
    EXPECT_TRUE(mark.loggedWith("Warn", "Could not select all of root " + missing.string() + ": "));
    EXPECT_TRUE(browser.remove());
    EXPECT_TRUE(browser.execute(FileBrowserBase::Copy, scratch.path() / "copy"));
    EXPECT_TRUE(fs::is_empty(scratch.path() / "copy"));
    EXPECT_TRUE(browser.getSelection().empty());
    EXPECT_TRUE(progress.empty());
}

TEST_F(EntriesTest, ExecuteGoesOnWithTheSelectionWhenSelectAllOfTheRootFails) {
    ASSERT_TRUE(browser.selectToggle(2));
    ASSERT_TRUE(browser.selectToggle(3));
    fs::path const missing = scratch.path() / "missing";
    browser.setRootPath(missing.string());
    browser.setSelectAll(true);
    fs::path const destination = scratch.path() / "copy";
    KernelLogMark mark;

    EXPECT_TRUE(browser.execute(FileBrowserBase::Copy, destination));

    EXPECT_TRUE(mark.loggedWith("Warn", "Could not select all of root " + missing.string() + ": "));
    EXPECT_TRUE(fs::exists(destination / "B.stp"));
    EXPECT_TRUE(fs::exists(destination / "c.stp"));
    EXPECT_THAT(progress, ElementsAre(50.0f, 100.0f));
    EXPECT_TRUE(browser.getSelection().empty());
}

TEST_F(EntriesTest, RemoveGoesOnWithTheSelectionWhenSelectAllOfTheRootFails) {
    fs::create_directories(root / "b" / "deep");
    ASSERT_TRUE(browser.selectToggle(1));
    // The root goes away after the selection was made; its entries go with it.
    fs::path const moved = scratch.path() / "moved";
    fs::rename(root, moved);
    browser.setSelectAll(true);
    KernelLogMark mark;

    EXPECT_TRUE(browser.remove());

    EXPECT_TRUE(mark.loggedWith("Warn", "Could not select all of root " + root.string() + ": "));
    EXPECT_TRUE(mark.logged("LogLight", "Deleting " + (root / "b").string()));
    EXPECT_THAT(progress, ElementsAre(100.0f));
    EXPECT_TRUE(browser.getSelection().empty());
    EXPECT_TRUE(fs::exists(moved / "b" / "deep"));
    fs::rename(moved, root);
}

TEST_F(EntriesTest, ExpandAndCollapseActOnFolderEntriesOnly) {
    EXPECT_FALSE(browser.isExpanded());
    EXPECT_FALSE(browser.expand(2));
    EXPECT_FALSE(browser.expand(7));
    EXPECT_FALSE(browser.isExpanded());
    EXPECT_TRUE(browser.expand(0));
    EXPECT_TRUE(browser.isExpanded());
    EXPECT_FALSE(browser.collapse(3));
    EXPECT_TRUE(browser.isExpanded());
    EXPECT_TRUE(browser.collapse(1));
    EXPECT_FALSE(browser.isExpanded());
    // Expanding does not move the browser.
    EXPECT_EQ(browser.currentPath(), root / "");
}

TEST_F(EntriesTest, ExpandToggleFlipsTheFlagOnAFolder) {
    EXPECT_TRUE(browser.expandToggle(0));
    EXPECT_TRUE(browser.isExpanded());
    EXPECT_FALSE(browser.expandToggle(2));
    EXPECT_TRUE(browser.isExpanded());
    EXPECT_TRUE(browser.expandToggle(0));
    EXPECT_FALSE(browser.isExpanded());
}

TEST_F(EntriesTest, DirectoryEmpty) {
    writeFile(root / "b" / "inside");
    EXPECT_TRUE(browser.directoryEmpty(0));
    EXPECT_FALSE(browser.directoryEmpty(1));
    EXPECT_FALSE(browser.directoryEmpty(2));
    EXPECT_FALSE(browser.directoryEmpty(4));
}

TEST_F(EntriesTest, MkdirCreatesInsideAFolderEntryOrTheCurrentFolder) {
    KernelLogMark mark;
    EXPECT_TRUE(browser.mkdir(0, "new"));
    EXPECT_TRUE(fs::is_directory(root / "A" / "new"));
    EXPECT_TRUE(mark.logged("LogLight", "Creating directory " + (root / "A" / "new").string()));
    EXPECT_TRUE(browser.mkdir(2, "beside"));
    EXPECT_TRUE(fs::is_directory(root / "beside"));
    EXPECT_TRUE(browser.mkdir(99, fs::path("two") / "levels"));
    EXPECT_TRUE(fs::is_directory(root / "two" / "levels"));
    EXPECT_TRUE(browser.mkdir(0, "new"));
    EXPECT_TRUE(failures.empty());
}

TEST_F(EntriesTest, MkdirInAnEmptyFolder) {
    browser.cd((root / "A").string());
    ASSERT_TRUE(listed().empty());
    EXPECT_TRUE(browser.mkdir(0, "first"));
    EXPECT_TRUE(fs::is_directory(root / "A" / "first"));
}

TEST_F(EntriesTest, MkdirRefusesNamesThatLeaveTheRootOrAreNoNames) {
    KernelLogMark mark;
    EXPECT_FALSE(browser.mkdir(2, fs::path("..") / "escaped"));
    EXPECT_FALSE(browser.mkdir(0, fs::path("..") / ".." / "escaped"));
    EXPECT_FALSE(browser.mkdir(2, outside / "absolute"));
    EXPECT_FALSE(browser.mkdir(2, ""));
    EXPECT_FALSE(fs::exists(scratch.path() / "escaped"));
    EXPECT_FALSE(fs::exists(outside / "absolute"));
    ASSERT_EQ(failures.size(), 4u);
    EXPECT_THAT(failures[0], HasSubstr("Outside root"));
    EXPECT_THAT(failures[1], HasSubstr("Outside root"));
    EXPECT_THAT(failures[2], HasSubstr("Not a folder name"));
    EXPECT_THAT(failures[3], HasSubstr("Not a folder name"));
    EXPECT_TRUE(mark.logged("Warn", failures[0]));
    EXPECT_FALSE(mark.mentions("Creating directory"));
}

TEST_F(EntriesTest, MkdirReportsAFolderThatCannotBeCreated) {
    EXPECT_FALSE(browser.mkdir(3, fs::path("c.stp") / "below"));
    EXPECT_THAT(failedPaths, ElementsAre(root / "c.stp" / "below"));
}

TEST_F(EntriesTest, RenameWithinTheFolder) {
    KernelLogMark mark;
    EXPECT_TRUE(browser.rename(3, "renamed.stp"));
    EXPECT_TRUE(mark.logged("LogLight", "Renaming " + (root / "c.stp").string() + " to " +
                                            (root / "renamed.stp").string()));
    EXPECT_TRUE(browser.rename(0, "Folder"));
    EXPECT_THAT(listed(), ElementsAre("b", "Folder", "B.stp", "renamed.stp"));
    EXPECT_TRUE(failures.empty());
}

TEST_F(EntriesTest, RenameNeverOverwrites) {
    EXPECT_FALSE(browser.rename(3, "B.stp"));
    EXPECT_FALSE(browser.rename(3, "x.txt"));
    EXPECT_TRUE(fs::exists(root / "c.stp"));
    EXPECT_THAT(failedPaths, ElementsAre(fs::path("c.stp"), fs::path("c.stp")));
    EXPECT_THAT(failures[0], HasSubstr("Target exists"));
}

TEST_F(EntriesTest, RenameRefusesAnythingButAPlainName) {
    for (std::string const name : {"", ".", "..", "../escaped.stp", "sub/x.stp", "/abs.stp"}) {
        EXPECT_FALSE(browser.rename(3, name)) << name;
    }
    EXPECT_EQ(failures.size(), 6u);
    EXPECT_TRUE(fs::exists(root / "c.stp"));
    EXPECT_FALSE(fs::exists(scratch.path() / "escaped.stp"));
    EXPECT_FALSE(browser.rename(8, "nothing.stp"));
    EXPECT_EQ(failures.size(), 6u);
}

TEST_F(EntriesTest, ListingFailuresAddressNoEntry) {
    fs::remove_all(root);
    KernelLogMark mark;
    EXPECT_EQ(browser.path(0), fs::path());
    EXPECT_FALSE(browser.isFile(0));
    EXPECT_FALSE(browser.selectToggle(0));
    EXPECT_FALSE(browser.directoryEmpty(0));
    EXPECT_FALSE(browser.rename(0, "x"));
    EXPECT_TRUE(
        mark.loggedWith("LogLight", "Could not ls directory " + (root / "").string() + ": "));
}

// A folder whose full path is longer than the system accepts, below a folder
// that can still be listed, cannot be looked into.
TEST_F(BrowserTest, DirectoryEmptyReportsAFolderThatCannotBeRead) {
    fs::path deep = root;
    while (deep.string().size() < 3800) {
        deep /= std::string(200, 'd');
        fs::create_directory(deep);
    }
    ASSERT_EQ(::chdir(deep.c_str()), 0);
    std::string const tooFar(255, 'z');
    fs::create_directory(tooFar);
    browser.setRootPath(deep.string());
    KernelLogMark mark;

    EXPECT_FALSE(browser.directoryEmpty(0));
    EXPECT_TRUE(mark.loggedWith("Warn", "Couldn't determine if directory is empty: "));

    fs::remove(tooFar);
}

} // namespace
