// Awkward names, broken links and missing folders are listed or reported,
// never crash, and nothing outside the root is deleted.  The fixture checks
// after every test that the sentinel file outside the root is intact.
#include "browserfixture.h"

#include <gmock/gmock.h>

#include <unistd.h>

namespace fs = std::filesystem;
using filetest::BrowserTest;
using filetest::KernelLogMark;
using filetest::readFile;
using filetest::writeFile;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::UnorderedElementsAre;

namespace {

std::vector<std::string> awkwardNames() {
    return {"with spaces.stp",
            "it's \"quoted\".stp",
            "\xc3\xa9t\xc3\xa9 \xe2\x80\x94 caf\xc3\xa9.stp",
            "raw \xff\xfe bytes.stp",
            "100%s %n %%.stp",
            std::string(251, 'L') + ".stp"};
}

TEST_F(BrowserTest, AwkwardNamesAreListedCopiedMovedAndDeleted) {
    std::vector<std::string> const names = awkwardNames();
    ASSERT_EQ(names.back().size(), 255u);
    for (std::string const& name : names) {
        writeFile(root / name, name);
    }
    EXPECT_THAT(listed(),
                UnorderedElementsAre(names[0], names[1], names[2], names[3], names[4], names[5]));

    fs::path const copy = scratch.path() / "copy";
    EXPECT_TRUE(browser.selectAllOfRoot());
    EXPECT_TRUE(browser.execute(FileBrowserBase::Copy, copy));
    for (std::string const& name : names) {
        EXPECT_EQ(readFile(copy / name), name);
    }

    fs::path const sub = root / "sub";
    fs::create_directories(sub);
    for (std::string const& name : names) {
        select(name);
    }
    EXPECT_TRUE(browser.execute(FileBrowserBase::Move, sub));
    EXPECT_THAT(listed(), ElementsAre("sub"));

    browser.cd(sub.string());
    for (std::string const& name : names) {
        select(name);
    }
    EXPECT_TRUE(browser.remove());
    EXPECT_TRUE(fs::is_empty(sub));
    EXPECT_TRUE(failures.empty());
}

TEST_F(BrowserTest, AwkwardNamesCanBeRenamedAndCreated) {
    writeFile(root / "plain.stp");
    for (std::string const& name : awkwardNames()) {
        ASSERT_TRUE(browser.rename(0, name)) << name;
        EXPECT_THAT(listed(), ElementsAre(name));
    }
    for (std::string const& name : awkwardNames()) {
        EXPECT_TRUE(browser.mkdir(99, name.substr(0, 200))) << name;
    }
    EXPECT_EQ(listed().size(), awkwardNames().size() + 1);
}

TEST_F(BrowserTest, ADanglingLinkIsListedReportedOnCopyAndDeletable) {
    fs::create_symlink(outside / "gone", root / "dangling.stp");
    EXPECT_THAT(listed(), ElementsAre("dangling.stp"));
    EXPECT_TRUE(browser.isFile(0));
    select("dangling.stp");
    EXPECT_FALSE(browser.execute(FileBrowserBase::Copy, scratch.path() / "copy"));
    EXPECT_THAT(failedPaths, ElementsAre(fs::path("dangling.stp")));
    EXPECT_TRUE(browser.remove());
    EXPECT_FALSE(fs::exists(fs::symlink_status(root / "dangling.stp")));
}

TEST_F(BrowserTest, MissingSourcesAndFoldersAreReported) {
    writeFile(root / "a.stp");
    select("a.stp");
    fs::remove_all(root);
    EXPECT_THAT(listed(), IsEmpty());
    EXPECT_FALSE(browser.execute(FileBrowserBase::Move, scratch.path() / "copy"));
    EXPECT_THAT(failedPaths, ElementsAre(fs::path("a.stp")));
    EXPECT_FALSE(browser.selectAllOfRoot());
    EXPECT_THROW(browser.removeAll(), fs::filesystem_error);
}

TEST_F(BrowserTest, PathsTooLongForTheSystemAreReported) {
    fs::path deep = root;
    while (deep.string().size() < 3800) {
        deep /= std::string(200, 'd');
        fs::create_directory(deep);
    }
    ASSERT_EQ(::chdir(deep.c_str()), 0);
    std::string const tooFar(255, 'z');
    writeFile(tooFar, "far");
    browser.setRootPath(deep.string());
    EXPECT_THAT(listed(), ElementsAre(tooFar));
    select(tooFar);
    EXPECT_FALSE(browser.execute(FileBrowserBase::Copy, scratch.path() / "copy"));
    EXPECT_FALSE(browser.remove());
    EXPECT_EQ(failedPaths.size(), 2u);
    EXPECT_EQ(readFile(tooFar), "far");
    fs::remove(tooFar);
}

TEST_F(BrowserTest, DeletingALinkToOutsideLeavesItsTargetAlone) {
    fs::create_directory_symlink(outside, root / "to-outside");
    fs::create_symlink(sentinel, root / "to-sentinel");
    select("to-outside");
    select("to-sentinel");
    EXPECT_TRUE(browser.remove());
    EXPECT_TRUE(fs::is_empty(root));
    EXPECT_TRUE(fs::exists(sentinel));
}

TEST_F(BrowserTest, EmptyingTheRootLeavesLinkTargetsAlone) {
    fs::create_directory_symlink(outside, root / "to-outside");
    fs::create_directories(root / "folder");
    fs::create_directory_symlink(outside, root / "folder" / "nested-link");
    browser.removeAll();
    EXPECT_TRUE(fs::is_empty(root));
    browser.setSelectAll(true);
    fs::create_directory_symlink(outside, root / "to-outside");
    EXPECT_TRUE(browser.remove());
    EXPECT_TRUE(fs::is_empty(root));
}

TEST_F(BrowserTest, MovingALinkToOutsideCopiesItsContentAndDeletesTheLinkOnly) {
    fs::create_directory_symlink(outside, root / "to-outside");
    select("to-outside");
    fs::path const destination = scratch.path() / "moved";
    EXPECT_TRUE(browser.execute(FileBrowserBase::Move, destination));
    EXPECT_EQ(readFile(destination / "to-outside" / "sentinel"), "keep");
    EXPECT_FALSE(fs::exists(fs::symlink_status(root / "to-outside")));
}

TEST_F(BrowserTest, NothingOutsideTheRootIsDeletedMovedOrRenamed) {
    fs::current_path(root);
    browser.cd("..");
    ASSERT_EQ(browser.currentPath(), scratch.path());
    ASSERT_THAT(listed(), ElementsAre("outside", "root"));
    select("outside");
    KernelLogMark mark;

    EXPECT_FALSE(browser.remove());
    EXPECT_FALSE(browser.execute(FileBrowserBase::Move, root / "stolen"));
    EXPECT_FALSE(browser.rename(0, "renamed"));
    EXPECT_FALSE(browser.mkdir(0, "created"));

    ASSERT_EQ(failures.size(), 4u);
    for (std::string const& failure : failures) {
        EXPECT_THAT(failure, HasSubstr("Outside root"));
    }
    EXPECT_THAT(failedPaths[0], fs::path("..") / "outside");
    EXPECT_FALSE(mark.mentions("Deleting"));
    EXPECT_TRUE(fs::is_directory(outside));
    EXPECT_FALSE(fs::exists(outside / "created"));
    EXPECT_FALSE(fs::exists(root / "stolen" / "outside"));
    EXPECT_THAT(browser.getSelection(), ElementsAre(outside));

    // The root itself is not below the root either.
    browser.cdRoot();
    browser.cd(scratch.path().string());
    select("root");
    browser.cdRoot();
    EXPECT_FALSE(browser.remove());
    EXPECT_TRUE(fs::is_directory(root));
}

} // namespace
