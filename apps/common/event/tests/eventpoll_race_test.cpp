// A termination signal that arrives after wait() has checked for one but
// before the kernel puts the process to sleep must still end the wait.
//
// This program defines epoll_wait and epoll_pwait itself: once armed, each
// sends the signal to the process at the last moment before entering the
// kernel and then forwards to the C library's function.
#include "child.h"
#include "settings-service/eventpoll.h"
#include "settings-service/log.h"
#include "signallater.h"
#include "waitresult.h"

#include <csignal>
#include <dlfcn.h>
#include <gtest/gtest.h>
#include <iostream>
#include <sys/epoll.h>

namespace {

int signalOnEntry = 0;

void sendArmedSignal() {
    if (signalOnEntry != 0) {
        int number = signalOnEntry;
        signalOnEntry = 0;
        raise(number);
    }
}

template <class Function> Function real(const char* name) {
    return reinterpret_cast<Function>(dlsym(RTLD_NEXT, name));
}

testsupport::ChildResult waitWithSignalOnEntry(int number) {
    return testsupport::runInChild([number] {
        gComponentLogLevel = nullptr;
        EventPoll poll;
        // A wait that went to sleep for good shows as a child killed by SIGKILL.
        sendSignalLater(SIGKILL, 5000);
        signalOnEntry = number;
        int first = poll.wait(-1);
        int second = poll.wait(0);
        std::cout << resultName(first) << " " << resultName(second) << "\n";
        return 0;
    });
}

TEST(EventPollRace, SigtermJustBeforeTheKernelWaitsEndsTheWait) {
    auto result = waitWithSignalOnEntry(SIGTERM);
    EXPECT_TRUE(result.exitedWith(0)) << "status " << result.status << " (9: the wait slept on)";
    EXPECT_EQ(result.out, "Interrupted Terminate\n");
}

TEST(EventPollRace, SigintJustBeforeTheKernelWaitsEndsTheWait) {
    auto result = waitWithSignalOnEntry(SIGINT);
    EXPECT_TRUE(result.exitedWith(0)) << "status " << result.status << " (9: the wait slept on)";
    EXPECT_EQ(result.out, "Interrupted Terminate\n");
}

TEST(EventPollRace, ATimerExpiryJustBeforeTheKernelWaitsIsReportedAtOnce) {
    auto result = waitWithSignalOnEntry(SIGALRM);
    EXPECT_TRUE(result.exitedWith(0)) << "status " << result.status << " (9: the wait slept on)";
    EXPECT_EQ(result.out, "TimerExpired Timeout\n");
}

TEST(EventPollRace, TheCallbacksRunWithTheSignalMaskTheProcessHad) {
    sigset_t before;
    sigprocmask(SIG_SETMASK, nullptr, &before);
    EventPoll poll;
    EXPECT_EQ(poll.wait(0), EventPoll::Timeout);
    sigset_t after;
    sigprocmask(SIG_SETMASK, nullptr, &after);
    for (int number : {SIGINT, SIGTERM, SIGALRM}) {
        EXPECT_EQ(sigismember(&after, number), sigismember(&before, number)) << number;
    }
}

} // namespace

extern "C" int epoll_wait(int fd, epoll_event* events, int count, int timeout) {
    sendArmedSignal();
    static auto forward = real<int (*)(int, epoll_event*, int, int)>("epoll_wait");
    return forward(fd, events, count, timeout);
}

extern "C" int epoll_pwait(int fd, epoll_event* events, int count, int timeout,
                           const sigset_t* mask) {
    sendArmedSignal();
    static auto forward =
        real<int (*)(int, epoll_event*, int, int, const sigset_t*)>("epoll_pwait");
    return forward(fd, events, count, timeout, mask);
}
