// Signalling processes by name: every process whose name contains the text
// gets the signal, others and the caller itself do not.
#include "signalbyname.h"

#include <csignal>
#include <ctime>
#include <gtest/gtest.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

namespace {

// Blocks SIGUSR1 for the test (and the children it forks), so that a signal
// that comes stays pending.
class BlockedSignal : public ::testing::Test {
protected:
    void SetUp() override {
        sigemptyset(&usr1);
        sigaddset(&usr1, SIGUSR1);
        sigprocmask(SIG_BLOCK, &usr1, &previous);
    }
    void TearDown() override {
        const timespec none{0, 0};
        siginfo_t info;
        while (sigtimedwait(&usr1, &info, &none) > 0) {
        }
        sigprocmask(SIG_SETMASK, &previous, nullptr);
    }

    // A child named `name` that waits up to `seconds` for SIGUSR1: it exits 0
    // when the signal came, 1 when it did not.  Returns once the name is set.
    pid_t startNamed(const char* name, time_t seconds) {
        int named[2];
        if (::pipe(named) != 0) {
            return -1;
        }
        const pid_t pid = ::fork();
        if (pid == 0) {
            ::prctl(PR_SET_NAME, name);
            (void)!::write(named[1], "n", 1);
            siginfo_t info;
            const timespec limit{seconds, 0};
            _exit(sigtimedwait(&usr1, &info, &limit) == SIGUSR1 ? 0 : 1);
        }
        char byte;
        (void)!::read(named[0], &byte, 1);
        ::close(named[0]);
        ::close(named[1]);
        return pid;
    }

    static int exitStatus(pid_t pid) {
        int status = 0;
        if (::waitpid(pid, &status, 0) != pid || !WIFEXITED(status)) {
            return -1;
        }
        return WEXITSTATUS(status);
    }

    sigset_t usr1{};
    sigset_t previous{};
};

using SignalByNameTest = BlockedSignal;

TEST_F(SignalByNameTest, SignalsEveryProcessWhoseNameContainsTheText) {
    const pid_t exact = startNamed("sbn-super", 20);
    const pid_t longer = startNamed("sbn-superv-2", 20);
    ASSERT_GT(exact, 0);
    ASSERT_GT(longer, 0);
    EXPECT_EQ(Readiness::signalProcessesNamed("sbn-super", SIGUSR1), 2);
    EXPECT_EQ(exitStatus(exact), 0);
    EXPECT_EQ(exitStatus(longer), 0);
}

TEST_F(SignalByNameTest, LeavesOtherProcessesAlone) {
    const pid_t other = startNamed("sbn-other", 1);
    ASSERT_GT(other, 0);
    EXPECT_EQ(Readiness::signalProcessesNamed("sbn-super", SIGUSR1), 0);
    EXPECT_EQ(exitStatus(other), 1);
}

TEST_F(SignalByNameTest, NeverSignalsTheCaller) {
    char ownName[16] = {};
    ::prctl(PR_GET_NAME, ownName);
    ::prctl(PR_SET_NAME, "sbn-super-self");
    const int signalled = Readiness::signalProcessesNamed("sbn-super", SIGUSR1);
    ::prctl(PR_SET_NAME, ownName);
    EXPECT_EQ(signalled, 0);
    sigset_t pending;
    sigpending(&pending);
    EXPECT_FALSE(sigismember(&pending, SIGUSR1));
}

TEST_F(SignalByNameTest, AnEmptyNameSignalsNoProcess) {
    const pid_t child = startNamed("sbn-empty", 1);
    ASSERT_GT(child, 0);
    EXPECT_EQ(Readiness::signalProcessesNamed("", SIGUSR1), 0);
    EXPECT_EQ(exitStatus(child), 1);
}

} // namespace
