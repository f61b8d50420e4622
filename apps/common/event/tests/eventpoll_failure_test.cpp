// Failed system calls of the poll: each logs "<call>: <system's text>" at
// Error and throws the located message.
#include "child.h"
#include "kmsgcapture.h"
#include "logline.h"
#include "pipes.h"
#include "settings-service/eventpoll.h"
#include "settings-service/log.h"

#include <gtest/gtest.h>
#include <iostream>
#include <stdexcept>
#include <string>
#include <sys/resource.h>
#include <unistd.h>

using testsupport::isLocatedMessage;
using testsupport::isLogLine;
using testsupport::KmsgCapture;
using testsupport::runInChild;

namespace {

// Runs one setTimer call in a child (the timer is process-wide) and returns
// what the child printed: the exception text, or "no exception".
testsupport::ChildResult setTimerInChild(int milliseconds, bool withoutPendingSignals) {
    return runInChild([=] {
        gComponentLogLevel = nullptr;
        EventPoll poll;
        if (withoutPendingSignals) {
            // A process that may queue no signal cannot create a signalling timer.
            rlimit limit{};
            getrlimit(RLIMIT_SIGPENDING, &limit);
            limit.rlim_cur = 0;
            setrlimit(RLIMIT_SIGPENDING, &limit);
        }
        try {
            poll.setTimer(milliseconds);
            std::cout << "no exception";
        } catch (const std::runtime_error& error) {
            std::cout << error.what();
        }
        return 0;
    });
}

TEST(EventPollFailure, AFailedTimerCreateThrowsTimerCreate) {
    KmsgCapture kmsg;
    auto result = setTimerInChild(100, true);
    ASSERT_TRUE(result.exitedWith(0)) << result.status << result.err;
    const std::string message = "timer create: Resource temporarily unavailable";
    EXPECT_TRUE(isLocatedMessage(result.out, "eventpoll.cpp", message));
    auto lines = kmsg.lines();
    ASSERT_EQ(lines.size(), 1u);
    EXPECT_TRUE(isLogLine(lines[0], gen::Error, "eventpoll.cpp", message));
}

TEST(EventPollFailure, AFailedTimerSetThrowsTimerSet) {
    KmsgCapture kmsg;
    // A negative period gives a negative nanosecond count, which the system refuses.
    auto result = setTimerInChild(-5, false);
    ASSERT_TRUE(result.exitedWith(0)) << result.status << result.err;
    const std::string message = "timer set: Invalid argument";
    EXPECT_TRUE(isLocatedMessage(result.out, "eventpoll.cpp", message));
    auto lines = kmsg.lines();
    ASSERT_EQ(lines.size(), 1u);
    EXPECT_TRUE(isLogLine(lines[0], gen::Error, "eventpoll.cpp", message));
}

TEST(EventPollFailure, AFailedEpollWaitThrowsEpollWait) {
    gComponentLogLevel = nullptr;
    const int pollFd = lowestFreeDescriptor();
    EventPoll poll;
    ASSERT_NE(lowestFreeDescriptor(), pollFd) << "the poll holds the lowest free descriptor";
    // The poll's descriptor number now names a pipe, which epoll_wait refuses.
    Pipe pipe;
    ASSERT_EQ(dup2(pipe.readEnd, pollFd), pollFd);
    KmsgCapture kmsg;
    const std::string message = "epoll_wait: Invalid argument";
    try {
        poll.wait(0);
        ADD_FAILURE() << "wait on a descriptor that is no epoll instance did not throw";
    } catch (const std::runtime_error& error) {
        EXPECT_TRUE(isLocatedMessage(error.what(), "eventpoll.cpp", message));
    }
    auto lines = kmsg.lines();
    ASSERT_EQ(lines.size(), 1u);
    EXPECT_TRUE(isLogLine(lines[0], gen::Error, "eventpoll.cpp", message));
}

} // namespace
