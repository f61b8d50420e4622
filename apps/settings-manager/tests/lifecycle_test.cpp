// The service's lifecycle: construction, start-up with its folder and
// readiness signal, the once-a-second save of the loop and its retries, the
// folder monitor's callback, and shutdown.
#include "kmsgcapture.h"
#include "logline.h"
#include "servicefixture.h"
#include "settings-service/eventpoll.h"
#include "settings-service/memories.h"
#include "settings-service/records.h"

#include <algorithm>
#include <chrono>
#include <csignal>
#include <filesystem>
#include <poll.h>
#include <sys/inotify.h>
#include <sys/prctl.h>
#include <sys/signalfd.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

using namespace servicetest;
using namespace std::chrono_literals;
using testing::Contains;
using testing::Not;

namespace {

using Clock = std::chrono::steady_clock;

constexpr int INIT_FAILED = 10;
constexpr int LOOP_DID_NOT_TERMINATE = 11;
constexpr int SERVICE_THREW = 12;

mode_t modeOf(const char* path) {
    struct stat status {};
    ::stat(path, &status);
    return status.st_mode & 07777;
}

// The status of a child as waitpid reports it, or -1 after `limit`.
int waitFor(pid_t pid, std::chrono::milliseconds limit) {
    const auto end = Clock::now() + limit;
    for (;;) {
        int status = 0;
        if (::waitpid(pid, &status, WNOHANG) == pid) {
            return status;
        }
        if (Clock::now() > end) {
            return -1;
        }
        std::this_thread::sleep_for(5ms);
    }
}

bool exitedWith(int status, int code) {
    return status >= 0 && WIFEXITED(status) && WEXITSTATUS(status) == code;
}

bool killedBy(int status, int signal) {
    return status >= 0 && WIFSIGNALED(status) && WTERMSIG(status) == signal;
}

// Runs the service as the entry point does, in a child process: start-up, the
// loop when `loop` is set (after writing one byte to `ready`), shutdown.  The
// object is never destroyed, as in the entry point.  Exit status: 0, or one of
// the codes above.
[[noreturn]] void runService(bool loop, int ready) {
    int status = 0;
    try {
        auto* service = new SettingsManager;
        if (!service->init()) {
            status = INIT_FAILED;
        } else if (loop) {
            (void)!::write(ready, "r", 1);
            if (service->doWork() != EventPoll::Terminate) {
                status = LOOP_DID_NOT_TERMINATE;
            }
        }
        service->close();
    } catch (...) {
        status = SERVICE_THREW;
    }
    _exit(status);
}

// SIGUSR1 blocked in this process and read through a signal descriptor.
class ReadinessSignals {
public:
    ReadinessSignals() {
        sigemptyset(&set);
        sigaddset(&set, SIGUSR1);
        sigprocmask(SIG_BLOCK, &set, &previous);
        fd = signalfd(-1, &set, SFD_CLOEXEC);
    }
    ~ReadinessSignals() {
        ::close(fd);
        siginfo_t info;
        timespec none{0, 0};
        while (sigtimedwait(&set, &info, &none) == SIGUSR1) {
        }
        sigprocmask(SIG_SETMASK, &previous, nullptr);
    }
    // The senders of the signals that arrive within `limit`, stopping at the first.
    std::vector<pid_t> next(std::chrono::milliseconds limit) {
        std::vector<pid_t> senders;
        pollfd waiting{fd, POLLIN, 0};
        if (::poll(&waiting, 1, static_cast<int>(limit.count())) == 1) {
            signalfd_siginfo info{};
            if (::read(fd, &info, sizeof info) == sizeof info) {
                senders.push_back(static_cast<pid_t>(info.ssi_pid));
            }
        }
        return senders;
    }
    const sigset_t& signals() const { return set; }

private:
    sigset_t set{};
    sigset_t previous{};
    int fd = -1;
};

// A process named "super" that waits for SIGUSR1: it exits 0 when the signal
// comes, 1 when none came within 30 s.  (It keeps the test's handler of
// SIGTERM, so only SIGKILL ends it early.)
pid_t startSupervisorStandIn(const sigset_t& blocked) {
    int named[2];
    if (::pipe(named) != 0) {
        return -1;
    }
    const pid_t pid = ::fork();
    if (pid == 0) {
        ::prctl(PR_SET_NAME, "super");
        (void)!::write(named[1], "n", 1);
        siginfo_t info;
        timespec limit{30, 0};
        _exit(sigtimedwait(&blocked, &info, &limit) == SIGUSR1 ? 0 : 1);
    }
    char byte;
    (void)!::read(named[0], &byte, 1);
    ::close(named[0]);
    ::close(named[1]);
    return pid;
}

// The writes of ".current.stp" within `limit`, as times after `start`.  A
// write lands as a complete file renamed onto the name.
class CurrentFileWrites {
public:
    CurrentFileWrites() : fd(inotify_init1(IN_CLOEXEC)) {
        inotify_add_watch(fd, SETUPS, IN_MOVED_TO);
    }
    ~CurrentFileWrites() { ::close(fd); }
    std::vector<Clock::duration> collect(Clock::time_point start, Clock::duration limit) {
        std::vector<Clock::duration> writes;
        const auto end = Clock::now() + limit;
        for (auto now = Clock::now(); now < end; now = Clock::now()) {
            pollfd waiting{fd, POLLIN, 0};
            const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(end - now);
            if (::poll(&waiting, 1, static_cast<int>(left.count()) + 1) != 1) {
                continue;
            }
            const auto seen = Clock::now() - start;
            alignas(inotify_event) char buffer[4096];
            const ssize_t got = ::read(fd, buffer, sizeof buffer);
            for (ssize_t at = 0; at < got;) {
                const auto* event = reinterpret_cast<const inotify_event*>(buffer + at);
                if (event->len > 0 && std::string(event->name) == ".current.stp") {
                    writes.push_back(seen);
                }
                at += static_cast<ssize_t>(sizeof(inotify_event) + event->len);
            }
        }
        return writes;
    }

private:
    int fd;
};

} // namespace

class LifecycleTest : public ServiceTest {};

TEST_F(LifecycleTest, TheServiceConnectsSubscribesAndHandlesWhatTheBrokerSends) {
    EXPECT_EQ(service->settingsFolder(), "/var//SETUPS/");
    EXPECT_NE(gen::getServerConnection(), nullptr);
    broker->send(Notify{VarFocusTorqueChanged, 0, 0});
    EXPECT_EQ(gen::getEventPoll().wait(5000, false), EventPoll::EventsHandled);
    EXPECT_TRUE(service->isDirty());
}

TEST_F(LifecycleTest, AnExistingSettingsFolderIsKeptAsItIs) {
    ASSERT_TRUE(std::filesystem::create_directory(SETUPS));
    ::chmod(SETUPS, 0700);
    EXPECT_TRUE(service->init());
    EXPECT_EQ(modeOf(SETUPS), 0700u);
}

TEST_F(LifecycleTest, AnEarlierReleasesFolderLosesTheRightsOfOthers) {
    ASSERT_TRUE(std::filesystem::create_directory(SETUPS));
    ::chmod(SETUPS, 0766);
    writeFile(CURRENT, "{\n}");
    ::chmod(CURRENT, 0666);
    EXPECT_TRUE(service->init());
    EXPECT_EQ(modeOf(SETUPS), 0760u);
    EXPECT_EQ(modeOf(CURRENT) & ~0660u, 0u);
    struct stat status {};
    ASSERT_EQ(::stat(SETUPS, &status), 0);
    EXPECT_EQ(status.st_gid, ::getegid());
}

TEST_F(LifecycleTest, AMissingSettingsFolderIsCreatedWithMode0770WhateverTheUmask) {
    const mode_t mask = ::umask(0077);
    const bool started = service->init();
    ::umask(mask);
    EXPECT_TRUE(started);
    EXPECT_EQ(modeOf(SETUPS), 0770u);
    EXPECT_TRUE(exists(CURRENT));
    EXPECT_EQ(modeOf(CURRENT), 0660u);
}

TEST_F(LifecycleTest, AFolderThatCannotBeCreatedSkipsTheLoadButListsAndReports) {
    const mode_t varMode = modeOf("/var");
    ASSERT_EQ(::chmod("/var", 0555), 0);
    gen::memUserSetups().UserSetupListSize = 3;
    posted();
    testsupport::KmsgCapture log;
    const bool started = service->init();
    ::chmod("/var", varMode);
    EXPECT_FALSE(started);
    EXPECT_FALSE(exists(SETUPS));
    EXPECT_EQ(gen::memUserSetups().UserSetupListSize, 0);
    EXPECT_THAT(ids(posted()), Contains(VarUserSetupListChanged));
    const auto texts = messages(log.lines());
    EXPECT_THAT(texts, Contains("Could not create the settings folder."));
    EXPECT_THAT(texts, Contains("Monitoring the user-setup folder is not possible"));
    EXPECT_THAT(texts, Not(Contains("Could not open settings file: .current.stp")));
    for (const std::string& line : log.lines()) {
        if (line.find("Could not create the settings folder.") != std::string::npos) {
            EXPECT_TRUE(testsupport::isLogLine(line, gen::Error, "settingsmanager.cpp",
                                               "Could not create the settings folder."));
        }
    }
}

TEST_F(LifecycleTest, ASettingsPathThatCannotBeResolvedIsReportedAndStartUpGoesOn) {
    // A link to itself in a folder where it cannot be removed: the folder can
    // be neither found, created, taken over nor resolved.
    std::filesystem::create_symlink("SETUPS", "/var/SETUPS");
    std::string resolveError;
    try {
        static_cast<void>(std::filesystem::weakly_canonical(SETUPS));
    } catch (const std::filesystem::filesystem_error& error) {
        resolveError = error.what();
    }
    const mode_t varMode = modeOf("/var");
    ASSERT_EQ(::chmod("/var", 0555), 0);
    testsupport::KmsgCapture log;
    const bool started = service->init();
    ::chmod("/var", varMode);
    std::filesystem::remove("/var/SETUPS");
    ASSERT_FALSE(resolveError.empty());
    EXPECT_FALSE(started);
    const auto lines = log.lines();
    const std::string expected = "Could not set settings path: " + resolveError;
    EXPECT_TRUE(std::any_of(lines.begin(), lines.end(), [&](const std::string& line) {
        return testsupport::isLogLine(line, gen::LogLight, "settingsmanager.cpp", expected);
    })) << expected;
    const auto texts = messages(lines);
    EXPECT_THAT(texts, Contains("Monitoring the user-setup folder is not possible"));
    EXPECT_THAT(texts, Contains("settings folder /var//SETUPS belongs to uid 0 (root) and cannot "
                                "be removed: Permission denied"));
    EXPECT_THAT(texts, Contains("Could not create the settings folder."));
}

TEST_F(LifecycleTest, ALinkInThePlaceOfTheSettingsFolderIsReplacedAndNamed) {
    std::filesystem::create_symlink("/tmp", "/var/SETUPS");
    testsupport::KmsgCapture log;
    const bool started = service->init();
    EXPECT_TRUE(started);
    EXPECT_TRUE(std::filesystem::is_directory(std::filesystem::symlink_status(SETUPS)));
    EXPECT_FALSE(exists("/tmp/.current.stp"));
    EXPECT_THAT(messages(log.lines()),
                Contains("Removed settings folder /var//SETUPS, which belonged to uid 0 (root)"));
}

TEST_F(LifecycleTest, ShutdownWritesNothingWhenTheFileHoldsTheDocument) {
    ASSERT_TRUE(service->init());
    const std::filesystem::file_time_type written = std::filesystem::last_write_time(CURRENT);
    const std::string backup = SETUPS + std::string(".current.stp.backup");
    EXPECT_TRUE(service->close());
    EXPECT_EQ(std::filesystem::last_write_time(CURRENT), written);
    EXPECT_EQ(readFile(CURRENT), service->getCurrentValues().str());
    EXPECT_FALSE(exists(backup.c_str()));
}

TEST_F(LifecycleTest, ShutdownWritesTheCurrentFileWhenItNoLongerHoldsTheDocument) {
    ASSERT_TRUE(service->init());
    std::filesystem::remove(CURRENT);
    EXPECT_FALSE(service->isDirty());
    EXPECT_TRUE(service->close());
    EXPECT_EQ(readFile(CURRENT), service->getCurrentValues().str());
    EXPECT_EQ(gen::getServerConnection(), nullptr);
}

TEST_F(LifecycleTest, ShutdownReportsAFileThatCouldNotBeWritten) {
    EXPECT_FALSE(service->close());
    EXPECT_EQ(gen::getServerConnection(), nullptr);
}

// The service runs in a child of the test, which plays its broker and its parent.
class ForkedServiceTest : public testing::Test {
protected:
    void SetUp() override {
        std::filesystem::remove_all(SETUPS);
        broker = std::make_unique<BrokerDouble>();
    }
    void TearDown() override {
        for (int& end : ready) {
            if (end >= 0) {
                ::close(end);
            }
        }
        readiness.reset();
        broker.reset();
        std::filesystem::remove_all(SETUPS);
    }
    // Forks the service as the entry point runs it; its pid once its loop is
    // about to start, or -1.
    pid_t startLoop() {
        readiness = std::make_unique<ReadinessSignals>();
        if (::pipe(ready) != 0) {
            return -1;
        }
        const pid_t child = ::fork();
        if (child == 0) {
            runService(true, ready[1]);
        }
        acceptService(*broker);
        pollfd started{ready[0], POLLIN, 0};
        return ::poll(&started, 1, 20000) == 1 ? child : -1;
    }
    std::unique_ptr<BrokerDouble> broker;
    std::unique_ptr<ReadinessSignals> readiness;
    int ready[2] = {-1, -1};
};

TEST_F(ForkedServiceTest, TheParentIsSignalledExactlyOnceAfterTheSettingsAreLoaded) {
    std::filesystem::create_directory(SETUPS);
    writeFile(CURRENT, "{\"FocusTorque\": 4}");
    ReadinessSignals readiness;
    const pid_t supervisor = startSupervisorStandIn(readiness.signals());
    int go[2];
    ASSERT_EQ(::pipe(go), 0);
    const pid_t child = ::fork();
    if (child == 0) {
        char byte;
        auto* service = new SettingsManager;
        const bool started = service->init();
        (void)!::read(go[0], &byte, 1);
        service->close();
        _exit(started ? 0 : INIT_FAILED);
    }
    acceptService(*broker);
    const std::vector<pid_t> first = readiness.next(20s);
    ASSERT_EQ(first, std::vector<pid_t>{child});
    gen::openMemories();
    EXPECT_EQ(gen::memPersistent().FocusTorque, 4);
    (void)!::write(go[1], "g", 1);
    EXPECT_TRUE(exitedWith(waitFor(child, 20s), 0));
    EXPECT_TRUE(readiness.next(300ms).empty());
    ::kill(supervisor, SIGKILL);
    EXPECT_TRUE(killedBy(waitFor(supervisor, 10s), SIGKILL));
    ::close(go[0]);
    ::close(go[1]);
}

TEST_F(ForkedServiceTest, AFolderThatCannotBeCreatedDoesNotSignalTheParent) {
    const mode_t varMode = modeOf("/var");
    ASSERT_EQ(::chmod("/var", 0555), 0);
    ReadinessSignals readiness;
    const pid_t child = ::fork();
    if (child == 0) {
        runService(true, -1);
    }
    acceptService(*broker);
    const int status = waitFor(child, 20s);
    ::chmod("/var", varMode);
    EXPECT_TRUE(readiness.next(300ms).empty());
    EXPECT_TRUE(exitedWith(status, INIT_FAILED));
}

TEST_F(ForkedServiceTest, UnderADebuggerTheProcessNamedSuperIsSignalledInstead) {
    std::filesystem::create_directories("/tmp/gdb");
    std::filesystem::copy_file("/usr/bin/sleep", "/tmp/gdb/sleep",
                               std::filesystem::copy_options::overwrite_existing);
    ReadinessSignals readiness;
    const pid_t supervisor = startSupervisorStandIn(readiness.signals());
    const pid_t debugger = ::fork();
    if (debugger == 0) {
        if (::fork() == 0) {
            const std::string parentExe = "/proc/" + std::to_string(::getppid()) + "/exe";
            for (int i = 0; i < 1000; ++i) {
                std::error_code error;
                if (std::filesystem::read_symlink(parentExe, error).string().find("gdb") !=
                    std::string::npos) {
                    runService(false, -1);
                }
                std::this_thread::sleep_for(10ms);
            }
            _exit(1);
        }
        sigset_t none;
        sigemptyset(&none);
        sigprocmask(SIG_SETMASK, &none, nullptr);
        ::execl("/tmp/gdb/sleep", "sleep", "60", static_cast<char*>(nullptr));
        _exit(127);
    }
    acceptService(*broker);
    EXPECT_TRUE(exitedWith(waitFor(supervisor, 40s), 0));
    ::kill(debugger, SIGTERM);
    EXPECT_TRUE(killedBy(waitFor(debugger, 10s), SIGTERM));
    EXPECT_TRUE(readiness.next(100ms).empty());
}

TEST_F(ForkedServiceTest, ChangesAreWrittenAtMostOnceASecondAndAtShutdownOnlyWhenTheyChangeIt) {
    const pid_t child = startLoop();
    ASSERT_GT(child, 0);
    CurrentFileWrites files;
    testsupport::KmsgCapture log;

    // Two changes 100 ms apart: one write, about a second after the last check.
    gen::openMemories();
    const auto first = Clock::now();
    ++gen::memPersistent().FocusTorque;
    broker->send(Notify{VarFocusTorqueChanged, 0, 0});
    std::this_thread::sleep_for(100ms);
    ++gen::memPersistent().IrisTorque;
    broker->send(Notify{VarIrisTorqueChanged, 0, 0});
    const auto burst = files.collect(first, 3s);
    ASSERT_EQ(burst.size(), 1u);
    EXPECT_GE(burst[0], 850ms);
    EXPECT_LE(burst[0], 1600ms);

    // A change more than two seconds after the last check: written at once.
    const auto late = Clock::now();
    ++gen::memPersistent().ZoomTorque;
    broker->send(Notify{VarZoomTorqueChanged, 0, 0});
    const auto single = files.collect(late, 1500ms);
    ASSERT_EQ(single.size(), 1u);
    EXPECT_LE(single[0], 500ms);

    // A change event whose value did not change writes nothing.
    const auto unchanged = Clock::now();
    broker->send(Notify{VarZoomTorqueChanged, 0, 0});
    EXPECT_TRUE(files.collect(unchanged, 2500ms).empty());

    // SIGTERM ends the loop; shutdown writes what changed since and the child exits 0.
    ++gen::memPersistent().FocusTorque;
    const auto stop = Clock::now();
    ::kill(child, SIGTERM);
    EXPECT_EQ(files.collect(stop, 1500ms).size(), 1u);
    EXPECT_TRUE(exitedWith(waitFor(child, 20s), 0));
    bool terminated = false;
    for (const std::string& line : log.lines()) {
        terminated = terminated || testsupport::isLogLine(line, gen::LogLight, "eventpoll.cpp",
                                                          "SIG 15: Terminated");
    }
    EXPECT_TRUE(terminated);
}

TEST_F(ForkedServiceTest, AFailedSaveIsLoggedOnceAndRetriedEverySecondUntilItWorks) {
    const pid_t child = startLoop();
    ASSERT_GT(child, 0);
    const std::string before = readFile(CURRENT);
    ASSERT_EQ(::chmod(SETUPS, 0555), 0);
    CurrentFileWrites files;
    testsupport::KmsgCapture log;

    gen::openMemories();
    const auto change = Clock::now();
    ++gen::memPersistent().FocusTorque;
    broker->send(Notify{VarFocusTorqueChanged, 0, 0});
    const auto blocked = files.collect(change, 3500ms);
    ::chmod(SETUPS, 0755);
    EXPECT_TRUE(blocked.empty());
    EXPECT_EQ(readFile(CURRENT), before);
    std::vector<std::string> failures;
    for (const std::string& line : log.lines()) {
        if (line.find("Could not save") != std::string::npos) {
            failures.push_back(line);
        }
    }
    ASSERT_EQ(failures.size(), 1u);
    EXPECT_TRUE(testsupport::isLogLine(
        failures[0], gen::Error, "settingsstore.cpp",
        "Could not save .current.stp: create /var//SETUPS/..current.stp.tmp: Permission denied"));

    // No further event comes: the next check writes it.
    const auto allowed = Clock::now();
    const auto written = files.collect(allowed, 1500ms);
    ASSERT_EQ(written.size(), 1u);
    EXPECT_LE(written[0], 1100ms);
    ::kill(child, SIGTERM);
    EXPECT_TRUE(exitedWith(waitFor(child, 20s), 0));
}

TEST_F(LifecycleTest, AFailureOfTheFolderMonitorsCallbackIsLoggedAndTheLoopGoesOn) {
    ASSERT_TRUE(service->init());
    gen::closeServerConnection();
    testsupport::KmsgCapture log;
    writeFile(std::string(SETUPS) + "New.stp", "{}");
    EXPECT_EQ(gen::getEventPoll().wait(5000, false), EventPoll::EventsHandled);
    const auto texts = messages(log.lines());
    ASSERT_FALSE(texts.empty());
    EXPECT_EQ(texts.back().rfind("Could not refresh the user-setup list: ", 0), 0u) << texts.back();
}

TEST_F(ForkedServiceTest, ABrokerThatGoesAwayIsReachedAgainAndWhatHappenedMeanwhileIsServed) {
    const pid_t child = startLoop();
    ASSERT_GT(child, 0);
    gen::openMemories();
    testsupport::KmsgCapture log;

    // The broker goes away; meanwhile a value changes unheard and the user
    // interface asks for a new setup name.
    broker.reset();
    std::this_thread::sleep_for(200ms);
    gen::memPersistent().FocusTorque = 5;
    gen::memUserSetups().UserSetupSave = {};
    gen::memUserSetups().UserSetupAddNew = true;
    // Long enough for several attempts while no broker is there.
    std::this_thread::sleep_for(2500ms);
    EXPECT_TRUE(gen::memUserSetups().UserSetupAddNew);

    CurrentFileWrites files;
    const auto back = Clock::now();
    broker = std::make_unique<BrokerDouble>();
    acceptService(*broker);
    const std::size_t subscriptions = 2 * SUBSCRIPTION_COUNT;
    std::vector<Notify> records = broker->receive(subscriptions + 3, 5000);
    ASSERT_GE(records.size(), subscriptions + 3);
    EXPECT_TRUE(isSubscriptionSequence({records.begin(), records.begin() + subscriptions}));
    EXPECT_THAT(ids({records.begin() + subscriptions, records.end()}),
                testing::IsSupersetOf(
                    {VarUserSetupAddNewChanged, VarUserSetupSaveChanged, VarUserSetupListChanged}));
    EXPECT_FALSE(gen::memUserSetups().UserSetupAddNew);
    EXPECT_NE(gen::memUserSetups().UserSetupSave[0], '\0');

    // The change made while the broker was away is saved.
    const auto saved = files.collect(back, 2500ms);
    ASSERT_EQ(saved.size(), 1u);
    EXPECT_NE(readFile(CURRENT).find("\"FocusTorque\": 5,"), std::string::npos);

    // A change announced after the reconnect is heard and saved.
    gen::memPersistent().FocusTorque = 6;
    const auto change = Clock::now();
    broker->send(Notify{VarFocusTorqueChanged, 0, 0});
    ASSERT_EQ(files.collect(change, 2500ms).size(), 1u);
    EXPECT_NE(readFile(CURRENT).find("\"FocusTorque\": 6,"), std::string::npos);

    ::kill(child, SIGTERM);
    EXPECT_TRUE(exitedWith(waitFor(child, 20s), 0));
    std::vector<std::string> lost;
    std::vector<std::string> again;
    for (const std::string& line : log.lines()) {
        if (line.find("Lost the connection to the message broker") != std::string::npos) {
            lost.push_back(line);
        }
        if (line.find("Connected again") != std::string::npos) {
            again.push_back(line);
        }
    }
    ASSERT_EQ(lost.size(), 1u);
    EXPECT_TRUE(testsupport::isLogLine(lost[0], gen::Error, "settingsmanager.cpp",
                                       "Lost the connection to the message broker"));
    EXPECT_EQ(again.size(), 1u);
}
