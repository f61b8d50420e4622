// The folder monitor on real folders, driven through a real EventPoll.
#include "filefoldermonitor.h"

#include "filetestsupport.h"
#include "settings-service/log.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <ostream>
#include <stdexcept>
#include <string>
#include <sys/resource.h>
#include <system_error>
#include <unistd.h>

namespace fs = std::filesystem;
using filetest::KernelLogMark;
using filetest::writeFile;
using ::testing::Contains;
using ::testing::ElementsAre;
using ::testing::Field;
using ::testing::HasSubstr;
using ::testing::Not;

namespace {

// The mask the settings service watches its setup folder with.
constexpr unsigned SETUP_MASK = IN_CREATE | IN_DELETE | IN_MOVED_FROM | IN_MOVED_TO;
static_assert(SETUP_MASK == 0x3C0);

struct Seen {
    uint32_t mask;
    std::string name;
    bool operator==(Seen const&) const = default;
};

void PrintTo(Seen const& seen, std::ostream* out) {
    *out << std::hex << "{0x" << seen.mask << ", \"" << seen.name << "\"}";
}

// The one inotify descriptor open in this process, or -1 when there is not
// exactly one.
int onlyInotifyDescriptor() {
    int found = -1;
    int count = 0;
    for (fs::directory_entry const& entry : fs::directory_iterator("/proc/self/fd")) {
        std::error_code unreadable;
        if (fs::read_symlink(entry.path(), unreadable) == "anon_inode:inotify") {
            found = std::stoi(entry.path().filename().string());
            ++count;
        }
    }
    return count == 1 ? found : -1;
}

class FolderMonitorTest : public ::testing::Test {
protected:
    FolderMonitorTest() : folder(scratch.path() / "watched") { fs::create_directory(folder); }
    ~FolderMonitorTest() override { monitor.close(); }

    // One pass of the loop.
    int serve(int timeoutMs = 1000) { return poll.wait(timeoutMs); }

    // Serves the loop until it stays quiet for a fifth of a second.
    void drain() {
        while (serve(200) != EventPoll::Timeout) {
        }
    }

    void open(unsigned mask = SETUP_MASK) { monitor.open(folder.c_str(), mask); }

    filetest::ScratchFolder scratch;
    fs::path folder;
    EventPoll poll;
    std::vector<Seen> seen;
    FileFolderMonitor monitor{poll, [this](inotify_event const& event) {
                                  seen.push_back({event.mask, event.len > 0 ? event.name : ""});
                              }};
};

TEST_F(FolderMonitorTest, ReportsCreateDeleteAndMovesInAndOut) {
    open();
    writeFile(folder / "a.stp");
    ASSERT_EQ(serve(), EventPoll::EventsHandled);
    fs::remove(folder / "a.stp");
    ASSERT_EQ(serve(), EventPoll::EventsHandled);
    writeFile(scratch.path() / "b.stp");
    fs::rename(scratch.path() / "b.stp", folder / "b.stp");
    ASSERT_EQ(serve(), EventPoll::EventsHandled);
    fs::rename(folder / "b.stp", scratch.path() / "c.stp");
    ASSERT_EQ(serve(), EventPoll::EventsHandled);

    EXPECT_THAT(seen, ElementsAre(Seen{IN_CREATE, "a.stp"}, Seen{IN_DELETE, "a.stp"},
                                  Seen{IN_MOVED_TO, "b.stp"}, Seen{IN_MOVED_FROM, "b.stp"}));
}

TEST_F(FolderMonitorTest, OnlyTheChosenEventsArePassedOn) {
    open(IN_CREATE);
    writeFile(folder / "a.stp");
    fs::remove(folder / "a.stp");
    drain();
    EXPECT_THAT(seen, ElementsAre(Seen{IN_CREATE, "a.stp"}));
}

TEST_F(FolderMonitorTest, TenEventsOfOneReadReachTheCallbackInOrder) {
    open();
    std::vector<Seen> expected;
    for (int i = 0; i < 10; ++i) {
        std::string name = "file " + std::to_string(i) + ".stp";
        writeFile(folder / name);
        expected.push_back({IN_CREATE, name});
    }
    ASSERT_EQ(serve(), EventPoll::EventsHandled);
    EXPECT_EQ(seen, expected);
    EXPECT_EQ(serve(0), EventPoll::Timeout);
}

TEST_F(FolderMonitorTest, OneReadTakesTenEventsWithNamesOfTheLongestLength) {
    open(IN_CREATE);
    std::vector<Seen> expected;
    for (char letter = 'a'; letter < 'a' + 11; ++letter) {
        std::string name(255, letter);
        writeFile(folder / name);
        expected.push_back({IN_CREATE, name});
    }
    ASSERT_EQ(serve(), EventPoll::EventsHandled);
    EXPECT_EQ(seen, std::vector<Seen>(expected.begin(), expected.begin() + 10));
    ASSERT_EQ(serve(), EventPoll::EventsHandled);
    EXPECT_EQ(seen, expected);
}

TEST_F(FolderMonitorTest, FolderDeletedAndRecreatedIsWatchedAgain) {
    open();
    KernelLogMark mark;
    fs::remove(folder);
    fs::create_directory(folder);
    drain();
    EXPECT_TRUE(mark.logged("LogLight", "Watch folder " + folder.string() +
                                            " has been deleted, rewatching..."));
    for (Seen const& event : seen) {
        EXPECT_EQ(event.mask & IN_DELETE_SELF, 0u);
    }

    writeFile(folder / "new.stp");
    drain();
    EXPECT_THAT(seen, Contains(Seen{IN_CREATE, "new.stp"}));
}

TEST_F(FolderMonitorTest, SelfDeletionIsWatchedWhateverTheMask) {
    open(IN_CREATE);
    KernelLogMark mark;
    fs::remove(folder);
    fs::create_directory(folder);
    drain();
    EXPECT_TRUE(mark.logged("LogLight", "Watch folder " + folder.string() +
                                            " has been deleted, rewatching..."));
}

TEST_F(FolderMonitorTest, FolderDeletedForGoodEndsTheWatchWithoutThrowing) {
    open();
    KernelLogMark mark;
    fs::remove(folder);
    EXPECT_NO_THROW(drain());
    EXPECT_TRUE(mark.logged("LogLight", "Watch folder " + folder.string() +
                                            " has been deleted, rewatching..."));
    EXPECT_TRUE(mark.logged("Error", "Could not add watch to inotify: No such file or directory"));

    seen.clear();
    fs::create_directory(folder);
    writeFile(folder / "late.stp");
    EXPECT_EQ(serve(200), EventPoll::Timeout);
    EXPECT_TRUE(seen.empty());

    // Silent until the owner watches again.
    monitor.watch();
    writeFile(folder / "later.stp");
    ASSERT_EQ(serve(), EventPoll::EventsHandled);
    EXPECT_THAT(seen, ElementsAre(Seen{IN_CREATE, "later.stp"}));
}

TEST_F(FolderMonitorTest, EmptyCallbackReadsAndDropsEvents) {
    FileFolderMonitor silent(poll, {});
    silent.open(folder.c_str(), SETUP_MASK);
    for (int i = 0; i < 3; ++i) {
        writeFile(folder / std::to_string(i));
    }
    EXPECT_EQ(serve(), EventPoll::EventsHandled);
    EXPECT_EQ(serve(0), EventPoll::Timeout);
    silent.close();
}

TEST_F(FolderMonitorTest, UnwatchStopsEventsAndWatchResumesThem) {
    open();
    monitor.unwatch();
    drain();
    // The kernel confirms the removed watch; that record goes to the callback.
    EXPECT_THAT(seen, ElementsAre(Field(&Seen::mask, IN_IGNORED)));

    seen.clear();
    writeFile(folder / "unseen.stp");
    EXPECT_EQ(serve(200), EventPoll::Timeout);
    monitor.watch();
    writeFile(folder / "seen.stp");
    ASSERT_EQ(serve(), EventPoll::EventsHandled);
    EXPECT_THAT(seen, ElementsAre(Seen{IN_CREATE, "seen.stp"}));
}

TEST_F(FolderMonitorTest, CloseReleasesEverythingAndMayBeRepeated) {
    open();
    monitor.close();
    writeFile(folder / "a.stp");
    EXPECT_EQ(serve(200), EventPoll::Timeout);
    EXPECT_TRUE(seen.empty());
    EXPECT_NO_THROW(monitor.close());
}

TEST_F(FolderMonitorTest, OpenAgainMovesToTheNewFolder) {
    open();
    fs::path other = scratch.path() / "other";
    fs::create_directory(other);
    monitor.open(other.c_str(), SETUP_MASK);
    writeFile(folder / "old.stp");
    writeFile(other / "new.stp");
    drain();
    EXPECT_THAT(seen, ElementsAre(Seen{IN_CREATE, "new.stp"}));
}

TEST_F(FolderMonitorTest, OpenOfAMissingFolderThrowsAndRegistersNothing) {
    KernelLogMark mark;
    std::string missing = (scratch.path() / "missing").string();
    EXPECT_THAT([&] { monitor.open(missing.c_str(), SETUP_MASK); },
                ::testing::ThrowsMessage<std::runtime_error>(
                    HasSubstr("Could not add watch to inotify: No such file or directory")));
    EXPECT_TRUE(mark.logged("Error", "Could not add watch to inotify: No such file or directory"));
    EXPECT_NO_THROW(monitor.close());
    EXPECT_EQ(serve(0), EventPoll::Timeout);
}

TEST_F(FolderMonitorTest, OpenReportsWhenNoInotifyInstanceCanBeCreated) {
    // A first opening writes the first log lines, which opens the kernel log
    // before the descriptors run out, so the failure's line is written too.
    open();
    monitor.close();
    KernelLogMark mark;
    rlimit saved{};
    ASSERT_EQ(getrlimit(RLIMIT_NOFILE, &saved), 0);
    int lowestFree = dup(0);
    ASSERT_GE(lowestFree, 0);
    ::close(lowestFree);
    rlimit tight = saved;
    tight.rlim_cur = static_cast<rlim_t>(lowestFree);
    ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &tight), 0);
    std::string message;
    try {
        open();
    } catch (std::runtime_error const& error) {
        message = error.what();
    }
    ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &saved), 0);
    EXPECT_THAT(message, HasSubstr("Could not initialize inotify: Too many open files"));
    EXPECT_TRUE(mark.logged("Error", "Could not initialize inotify: Too many open files"));
}

TEST_F(FolderMonitorTest, FailedReadIsLoggedAndIgnored) {
    KernelLogMark mark;
    // Closed, the monitor has no descriptor to read from.
    EXPECT_NO_THROW(monitor.event(EventPoll::Callback::Readable));
    EXPECT_TRUE(mark.logged("Error", "Erro in read from inotify fd"));
    EXPECT_TRUE(seen.empty());
}

TEST_F(FolderMonitorTest, ReadOfNothingIsLoggedAsAWarningAndIgnored) {
    open();
    int const inotifyFd = onlyInotifyDescriptor();
    ASSERT_GE(inotifyFd, 0);
    // For one event() the descriptor number stands for a pipe at its end, so
    // the read returns 0; the inotify instance is kept and put back after.
    int const saved = dup(inotifyFd);
    int ends[2];
    ASSERT_EQ(pipe(ends), 0);
    ::close(ends[1]);
    ASSERT_EQ(dup2(ends[0], inotifyFd), inotifyFd);
    ::close(ends[0]);
    writeFile(folder / "a.stp");
    KernelLogMark mark;
    monitor.event(EventPoll::Callback::Readable);
    ASSERT_EQ(dup2(saved, inotifyFd), inotifyFd);
    ::close(saved);
    EXPECT_TRUE(mark.logged("Warn", "read() from inotify fd returned 0!"));
    EXPECT_FALSE(mark.mentions("Erro in read from inotify fd"));
    EXPECT_TRUE(seen.empty());
}

TEST_F(FolderMonitorTest, HangupIsIgnoredAndPriorityReads) {
    open();
    writeFile(folder / "a.stp");
    monitor.event(EventPoll::Callback::Hangup);
    EXPECT_TRUE(seen.empty());
    monitor.event(EventPoll::Callback::Priority);
    EXPECT_THAT(seen, ElementsAre(Seen{IN_CREATE, "a.stp"}));
    EXPECT_EQ(serve(0), EventPoll::Timeout);
}

TEST(FolderMonitorOnTheProcessPoll, DeliversThroughTheSharedLoop) {
    filetest::ScratchFolder scratch;
    std::vector<std::string> names;
    FileFolderMonitor monitor(gen::getEventPoll(), [&names](inotify_event const& event) {
        names.emplace_back(event.name);
    });
    monitor.open(scratch.path().c_str(), SETUP_MASK);
    writeFile(scratch.path() / "x.stp");
    EXPECT_EQ(gen::getEventPoll().wait(1000), EventPoll::EventsHandled);
    EXPECT_THAT(names, ElementsAre("x.stp"));
    monitor.close();
}

} // namespace
