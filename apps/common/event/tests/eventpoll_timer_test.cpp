// The periodic timer.  Its expiry flag is process-wide, so each test runs in
// a forked child that prints what it saw.
#include "child.h"
#include "kmsgcapture.h"
#include "pipes.h"
#include "settings-service/eventpoll.h"
#include "settings-service/log.h"
#include "waitresult.h"

#include <chrono>
#include <ctime>
#include <gtest/gtest.h>
#include <iostream>
#include <sstream>
#include <sys/epoll.h>

using testsupport::KmsgCapture;
using testsupport::runInChild;

namespace {

using Clock = std::chrono::steady_clock;

long millisecondsSince(Clock::time_point start) {
    return static_cast<long>(
        std::chrono::duration_cast<std::chrono::milliseconds>(Clock::now() - start).count());
}

int waitForExpiry(EventPoll& poll) {
    int result;
    while ((result = poll.wait(-1)) == EventPoll::Interrupted) {
    }
    return result;
}

TEST(EventPollTimer, DeletingWithoutATimerDoesNothing) {
    auto result = runInChild([] {
        EventPoll poll;
        poll.setTimer(-1);
        std::cout << resultName(poll.wait(150)) << "\n";
        return 0;
    });
    EXPECT_TRUE(result.exitedWith(0)) << result.status << result.err;
    EXPECT_EQ(result.out, "Timeout\n");
}

TEST(EventPollTimer, ZeroDisarmsAndMinusOneDeletesTheTimer) {
    auto result = runInChild([] {
        EventPoll poll;
        poll.setTimer(30);
        std::cout << resultName(waitForExpiry(poll)) << " ";
        poll.setTimer(0);
        std::cout << resultName(poll.wait(300)) << " ";
        poll.setTimer(30);
        std::cout << resultName(waitForExpiry(poll)) << " ";
        poll.setTimer(-1);
        std::cout << resultName(poll.wait(300)) << " ";
        poll.setTimer(30);
        std::cout << resultName(waitForExpiry(poll)) << "\n";
        return 0;
    });
    EXPECT_TRUE(result.exitedWith(0)) << result.status << result.err;
    EXPECT_EQ(result.out, "TimerExpired Timeout TimerExpired Timeout TimerExpired\n");
}

// A timer never fires early, so the lower bounds are exact; the upper bounds
// leave 900 ms for a loaded machine and still tell 1.5 s from 1 s and 2 s.
TEST(EventPollTimer, FifteenHundredMillisecondsFiresEveryOneAndAHalfSeconds) {
    auto result = runInChild([] {
        EventPoll poll;
        Clock::time_point start = Clock::now();
        poll.setTimer(1500);
        int first = waitForExpiry(poll);
        long firstAt = millisecondsSince(start);
        int second = waitForExpiry(poll);
        long secondAt = millisecondsSince(start);
        std::cout << resultName(first) << " " << resultName(second) << "\n"
                  << firstAt << "\n"
                  << secondAt << "\n";
        return 0;
    });
    ASSERT_TRUE(result.exitedWith(0)) << result.status << result.err;
    std::istringstream out(result.out);
    std::string first, second;
    long firstAt = 0, secondAt = 0;
    out >> first >> second >> firstAt >> secondAt;
    EXPECT_EQ(first, "TimerExpired");
    EXPECT_EQ(second, "TimerExpired");
    EXPECT_GE(firstAt, 1500);
    EXPECT_LT(firstAt, 2400);
    EXPECT_GE(secondAt, 3000);
    EXPECT_LT(secondAt, 3900);
}

TEST(EventPollTimer, AnExpiryWithAReadyDescriptorCallsTheCallbackAndReportsTheTimer) {
    gComponentLogLevel = nullptr;
    KmsgCapture kmsg;
    auto result = runInChild([] {
        EventPoll poll;
        Pipe pipe;
        int calls = 0;
        EventPoll::FunctionCallback count([&calls](EventPoll::Callback::EventType) { ++calls; });
        poll.add(pipe.readEnd, &count, EPOLLIN);
        poll.setTimer(20);
        // Sleep through at least one expiry, then stop the timer so that no
        // later expiry can interrupt the wait below.
        Clock::time_point start = Clock::now();
        while (millisecondsSince(start) < 100) {
            timespec pause{0, 10000000L};
            nanosleep(&pause, nullptr);
        }
        poll.setTimer(0);
        pipe.put("x");
        std::cout << resultName(poll.wait(0)) << " " << calls << " ";
        std::cout << resultName(poll.wait(0)) << " " << calls << "\n";
        return 0;
    });
    EXPECT_TRUE(result.exitedWith(0)) << result.status << result.err;
    EXPECT_EQ(result.out, "TimerExpired 1 EventsHandled 2\n");
    for (const auto& line : kmsg.lines()) {
        EXPECT_EQ(line.find("SIG "), std::string::npos) << "the timer is not logged: " << line;
    }
}

} // namespace
