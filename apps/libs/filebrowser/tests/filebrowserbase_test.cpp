// Copy, move and delete of the selection, emptying the root, creating paths.
#include "browserfixture.h"

#include <gmock/gmock.h>

#include <functional>
#include <stdexcept>

namespace fs = std::filesystem;
using filetest::BrowserTest;
using filetest::KernelLogMark;
using filetest::readFile;
using filetest::writeFile;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::UnorderedElementsAre;

namespace {

// The exact progress value after k of n items.
float share(int k, int n) {
    return static_cast<float>(k * 100) / static_cast<float>(n);
}

std::vector<std::string> namesIn(fs::path const& folder) {
    std::vector<std::string> names;
    for (fs::directory_entry const& entry : fs::directory_iterator(folder)) {
        names.push_back(entry.path().filename().string());
    }
    return names;
}

TEST_F(BrowserTest, SetRootPathStoresTheWeaklyCanonicalForm) {
    fs::create_directory(root / "sub");
    browser.setRootPath((root / "sub" / ".." / ".").string());
    EXPECT_EQ(browser.getRootPath(), root);
    fs::create_directory_symlink(root, scratch.path() / "link");
    browser.setRootPath((scratch.path() / "link" / "not-yet").string());
    EXPECT_EQ(browser.getRootPath(), root / "not-yet");
}

TEST_F(BrowserTest, SetRootPathKeepsTheSelection) {
    writeFile(root / "a.stp");
    select("a.stp");
    browser.setRootPath(outside.string());
    EXPECT_THAT(browser.getSelection(), ElementsAre(root / "a.stp"));
}

TEST_F(BrowserTest, ExecuteWithAnEmptySelectionCreatesTheDestinationOnly) {
    fs::path const destination = scratch.path() / "usb" / "export";
    EXPECT_TRUE(browser.execute(FileBrowserBase::Copy, destination));
    EXPECT_TRUE(fs::is_directory(destination));
    EXPECT_TRUE(fs::is_empty(destination));
    EXPECT_TRUE(progress.empty());
    EXPECT_TRUE(failures.empty());
}

TEST_F(BrowserTest, CopyReportsAVanishedSourceAndKeepsItSelected) {
    for (char const* name : {"a.stp", "b.stp", "c.stp"}) {
        writeFile(root / name, name);
        select(name);
    }
    // Gone between selection and copy: fails for every user, root included.
    fs::remove(root / "b.stp");
    fs::path const destination = scratch.path() / "copy";
    KernelLogMark mark;

    EXPECT_FALSE(browser.execute(FileBrowserBase::Copy, destination));

    EXPECT_THAT(progress, ElementsAre(share(1, 3), share(2, 3), share(3, 3)));
    EXPECT_FLOAT_EQ(progress[0], 33.333333f);
    EXPECT_FLOAT_EQ(progress[1], 66.666667f);
    EXPECT_EQ(progress[2], 100.0f);
    EXPECT_THAT(browser.getSelection(), ElementsAre(root / "b.stp"));
    EXPECT_THAT(failedPaths, ElementsAre(fs::path("b.stp")));
    ASSERT_EQ(failures.size(), 1u);
    EXPECT_THAT(failures[0], HasSubstr("No such file or directory"));
    EXPECT_TRUE(mark.logged("Warn", failures[0]));
    EXPECT_TRUE(mark.logged("LogLight", "copy " + (root / "a.stp").string() + " to " +
                                            (destination / "a.stp").string()));
    EXPECT_THAT(namesIn(destination), UnorderedElementsAre("a.stp", "c.stp"));
    EXPECT_EQ(readFile(destination / "c.stp"), "c.stp");
    EXPECT_TRUE(fs::exists(root / "a.stp"));
}

TEST_F(BrowserTest, AFailedItemCanBeRetried) {
    writeFile(root / "a.stp");
    select("a.stp");
    fs::rename(root / "a.stp", scratch.path() / "away.stp");
    fs::path const destination = scratch.path() / "copy";
    EXPECT_FALSE(browser.execute(FileBrowserBase::Copy, destination));
    fs::rename(scratch.path() / "away.stp", root / "a.stp");
    EXPECT_TRUE(browser.execute(FileBrowserBase::Copy, destination));
    EXPECT_TRUE(browser.getSelection().empty());
    EXPECT_TRUE(fs::exists(destination / "a.stp"));
    EXPECT_THAT(progress, ElementsAre(100.0f, 100.0f));
}

TEST_F(BrowserTest, ProgressIsTheShareOfItemsHandled) {
    std::vector<float> expected;
    for (int i = 0; i < 7; ++i) {
        std::string name = "f" + std::to_string(i);
        writeFile(root / name);
        select(name);
        expected.push_back(share(i + 1, 7));
    }
    EXPECT_TRUE(browser.execute(FileBrowserBase::Copy, scratch.path() / "copy"));
    EXPECT_EQ(progress, expected);
}

TEST_F(BrowserTest, MovingAFolderIntoItsOwnSubFolderIsRefused) {
    fs::create_directories(root / "a" / "sub");
    writeFile(root / "a" / "file.stp", "content");
    select("a");
    KernelLogMark mark;

    EXPECT_FALSE(browser.execute(FileBrowserBase::Move, root / "a" / "sub"));

    EXPECT_TRUE(mark.logged("Warn", "Can not copy/move folder " + (root / "a").string() +
                                        " into itself " + (root / "a" / "sub" / "a").string()));
    ASSERT_EQ(failures.size(), 1u);
    EXPECT_THAT(failures[0], HasSubstr("Recursive copy/move"));
    EXPECT_THAT(failedPaths, ElementsAre(fs::path("a")));
    EXPECT_THAT(namesIn(root / "a"), UnorderedElementsAre("sub", "file.stp"));
    EXPECT_TRUE(fs::is_empty(root / "a" / "sub"));
    EXPECT_EQ(readFile(root / "a" / "file.stp"), "content");
    EXPECT_THAT(browser.getSelection(), ElementsAre(root / "a"));
}

TEST_F(BrowserTest, RecursiveRefusalCarriesBothPathsAndGenericErrorOne) {
    fs::create_directories(root / "a");
    select("a");
    std::vector<fs::filesystem_error> seen;
    FileBrowserNavigator recording(
        {}, [&seen](fs::path const&, fs::filesystem_error const& e) { seen.push_back(e); });
    recording.setRootPath(root.string());
    ASSERT_TRUE(recording.selectToggle(0));
    EXPECT_FALSE(recording.execute(FileBrowserBase::Copy, root / "a" / "deeper"));
    ASSERT_EQ(seen.size(), 1u);
    EXPECT_EQ(seen[0].code(), std::error_code(1, std::generic_category()));
    EXPECT_EQ(seen[0].path1(), root / "a");
    EXPECT_EQ(seen[0].path2(), root / "a" / "deeper" / "a");
}

TEST_F(BrowserTest, CopyingAFolderIntoASiblingWithItsNameAsPrefixIsRefused) {
    fs::create_directories(root / "a");
    writeFile(root / "a" / "file.stp");
    fs::create_directories(root / "ab");
    select("a");
    EXPECT_FALSE(browser.execute(FileBrowserBase::Copy, root / "ab"));
    ASSERT_EQ(failures.size(), 1u);
    EXPECT_THAT(failures[0], HasSubstr("Recursive copy/move"));
    EXPECT_TRUE(fs::is_empty(root / "ab"));
}

TEST_F(BrowserTest, CopyingAFolderIntoItsOwnParentIsRefused) {
    fs::create_directories(root / "a");
    select("a");
    EXPECT_FALSE(browser.execute(FileBrowserBase::Copy, root));
    ASSERT_EQ(failures.size(), 1u);
    EXPECT_THAT(failures[0], HasSubstr("Recursive copy/move"));
}

TEST_F(BrowserTest, CopyTakesFoldersWholeAndReplacesOnlyOlderFiles) {
    fs::create_directories(root / "a" / "deep");
    writeFile(root / "a" / "deep" / "nested.stp", "nested");
    writeFile(root / "old.stp", "new content");
    writeFile(root / "kept.stp", "older content");
    fs::path const destination = scratch.path() / "copy";
    fs::create_directories(destination);
    writeFile(destination / "old.stp", "stale");
    writeFile(destination / "kept.stp", "newer at the target");
    auto const now = fs::file_time_type::clock::now();
    fs::last_write_time(destination / "old.stp", now - std::chrono::hours(1));
    fs::last_write_time(root / "kept.stp", now - std::chrono::hours(1));
    for (char const* name : {"a", "old.stp", "kept.stp"}) {
        select(name);
    }

    EXPECT_TRUE(browser.execute(FileBrowserBase::Copy, destination));

    EXPECT_EQ(readFile(destination / "a" / "deep" / "nested.stp"), "nested");
    EXPECT_EQ(readFile(destination / "old.stp"), "new content");
    EXPECT_EQ(readFile(destination / "kept.stp"), "newer at the target");
    EXPECT_TRUE(fs::exists(root / "a" / "deep" / "nested.stp"));
}

TEST_F(BrowserTest, MoveIsACopyFollowedByADelete) {
    fs::create_directories(root / "a" / "deep");
    writeFile(root / "a" / "deep" / "nested.stp", "nested");
    writeFile(root / "b.stp", "b");
    select("a");
    select("b.stp");
    fs::path const destination = scratch.path() / "moved";
    KernelLogMark mark;

    EXPECT_TRUE(browser.execute(FileBrowserBase::Move, destination));

    EXPECT_TRUE(fs::is_empty(root));
    EXPECT_EQ(readFile(destination / "a" / "deep" / "nested.stp"), "nested");
    EXPECT_EQ(readFile(destination / "b.stp"), "b");
    EXPECT_TRUE(mark.logged("LogLight", "move " + (root / "b.stp").string() + " to " +
                                            (destination / "b.stp").string()));
    EXPECT_TRUE(browser.getSelection().empty());
}

TEST_F(BrowserTest, ExecuteStopsWhenTheDestinationCannotBeCreated) {
    writeFile(root / "a.stp");
    writeFile(scratch.path() / "plain-file");
    select("a.stp");
    fs::path const destination = scratch.path() / "plain-file" / "sub";
    KernelLogMark mark;

    EXPECT_FALSE(browser.execute(FileBrowserBase::Copy, destination));

    EXPECT_THAT(failedPaths, ElementsAre(destination));
    ASSERT_EQ(failures.size(), 1u);
    EXPECT_TRUE(mark.logged("Warn", failures[0]));
    EXPECT_TRUE(progress.empty());
    EXPECT_THAT(browser.getSelection(), ElementsAre(root / "a.stp"));
}

TEST_F(BrowserTest, ExecuteWithSelectAllTakesEveryEntryOfTheRoot) {
    writeFile(root / "a.stp");
    writeFile(root / ".current.stp");
    fs::create_directories(root / "folder");
    browser.setSelectAll(true);
    fs::path const destination = scratch.path() / "all";
    EXPECT_TRUE(browser.execute(FileBrowserBase::Copy, destination));
    EXPECT_THAT(namesIn(destination), UnorderedElementsAre("a.stp", ".current.stp", "folder"));
    EXPECT_EQ(progress.size(), 3u);
}

TEST_F(BrowserTest, RemoveDeletesTheSelection) {
    fs::create_directories(root / "a" / "deep");
    writeFile(root / "a" / "deep" / "x");
    writeFile(root / "b.stp");
    writeFile(root / "c.stp");
    select("a");
    select("b.stp");
    KernelLogMark mark;

    EXPECT_TRUE(browser.remove());

    EXPECT_THAT(namesIn(root), ElementsAre("c.stp"));
    EXPECT_TRUE(mark.logged("LogLight", "Deleting " + (root / "a").string()));
    EXPECT_TRUE(mark.logged("LogLight", "Deleting " + (root / "b.stp").string()));
    EXPECT_THAT(progress, ElementsAre(50.0f, 100.0f));
    EXPECT_TRUE(browser.getSelection().empty());
}

TEST_F(BrowserTest, RemoveWithSelectAllDeletesEveryEntryOfTheRoot) {
    writeFile(root / "a.stp");
    writeFile(root / ".current.stp");
    fs::create_directories(root / "folder" / "deep");
    browser.setSelectAll(true);
    EXPECT_TRUE(browser.remove());
    EXPECT_TRUE(fs::is_empty(root));
}

TEST_F(BrowserTest, RemoveAllEmptiesTheRootAndKeepsIt) {
    writeFile(root / "a.stp");
    writeFile(root / ".current.stp");
    fs::create_directories(root / "folder" / "deep");
    writeFile(root / "folder" / "deep" / "x");
    select("a.stp");
    KernelLogMark mark;

    browser.removeAll();

    EXPECT_TRUE(fs::is_directory(root));
    EXPECT_TRUE(fs::is_empty(root));
    EXPECT_TRUE(mark.logged("LogLight", "Emptying directory " + root.string()));
    EXPECT_TRUE(mark.logged("LogLight", "Deleting " + (root / ".current.stp").string()));
    EXPECT_TRUE(mark.logged("LogLight", "Deleting " + (root / "folder").string()));
    // The selection is not used.
    EXPECT_THAT(browser.getSelection(), ElementsAre(root / "a.stp"));
    EXPECT_TRUE(progress.empty());
}

TEST_F(BrowserTest, RemoveAllOnAnEmptyRootDoesNothing) {
    KernelLogMark mark;
    browser.removeAll();
    EXPECT_TRUE(fs::is_directory(root));
    EXPECT_FALSE(mark.mentions("Emptying directory"));
    EXPECT_FALSE(mark.mentions("Deleting"));
}

TEST_F(BrowserTest, RemoveAllLetsErrorsThrough) {
    browser.setRootPath((scratch.path() / "missing").string());
    EXPECT_THROW(browser.removeAll(), fs::filesystem_error);
}

TEST_F(BrowserTest, CreatePathMakesMissingParents) {
    EXPECT_TRUE(browser.createPath(root));
    EXPECT_TRUE(browser.createPath(root / "x" / "y" / "z"));
    EXPECT_TRUE(fs::is_directory(root / "x" / "y" / "z"));
    EXPECT_TRUE(failures.empty());
}

TEST_F(BrowserTest, CreatePathReportsAFailureWithThePathAsGiven) {
    writeFile(root / "file");
    KernelLogMark mark;
    EXPECT_FALSE(browser.createPath(root / "file"));
    EXPECT_FALSE(browser.createPath(root / "file" / "below"));
    EXPECT_THAT(failedPaths, ElementsAre(root / "file", root / "file" / "below"));
    ASSERT_EQ(failures.size(), 2u);
    EXPECT_TRUE(mark.logged("Warn", failures[0]));
    EXPECT_TRUE(mark.logged("Warn", failures[1]));
}

TEST_F(BrowserTest, ForSelectedWithNothingSelectedSucceedsSilently) {
    bool called = false;
    EXPECT_TRUE(browser.forSelected([&called](fs::path const&) { called = true; }));
    EXPECT_FALSE(called);
    EXPECT_TRUE(progress.empty());
}

TEST_F(BrowserTest, ForSelectedPassesEveryPathAndReportsRelativeToTheRoot) {
    fs::create_directories(root / "sub");
    writeFile(root / "sub" / "x.stp");
    writeFile(root / "y.stp");
    browser.cd((root / "sub").string());
    select("x.stp");
    browser.cdRoot();
    select("y.stp");
    std::vector<fs::path> visited;
    EXPECT_FALSE(browser.forSelected([&visited](fs::path const& path) {
        visited.push_back(path);
        throw fs::filesystem_error("refused", path, std::make_error_code(std::errc::io_error));
    }));
    EXPECT_THAT(visited, ElementsAre(root / "sub" / "x.stp", root / "y.stp"));
    EXPECT_THAT(failedPaths, ElementsAre(fs::path("sub") / "x.stp", fs::path("y.stp")));
    EXPECT_EQ(browser.getSelection().size(), 2u);
}

TEST_F(BrowserTest, ForSelectedLetsOtherErrorsThrough) {
    writeFile(root / "a.stp");
    select("a.stp");
    EXPECT_THROW(browser.forSelected({}), std::bad_function_call);
    EXPECT_THROW(browser.forSelected([](fs::path const&) { throw std::logic_error("bug"); }),
                 std::logic_error);
    EXPECT_THAT(browser.getSelection(), ElementsAre(root / "a.stp"));
}

TEST(FileBrowserWithoutFunctions, FailuresAreStillLogged) {
    filetest::ScratchFolder scratch;
    writeFile(scratch.path() / "a.stp");
    FileBrowserBase browser({}, {});
    browser.setRootPath(scratch.path().string());
    ASSERT_TRUE(browser.selectToggle(0));
    fs::remove(scratch.path() / "a.stp");
    KernelLogMark mark;
    EXPECT_FALSE(browser.execute(FileBrowserBase::Copy, scratch.path() / "copy"));
    EXPECT_TRUE(mark.loggedWith("Warn", "No such file or directory"));
}

} // namespace
