// Termination signals.  A termination request is process-wide and never
// cleared, so every test that raises one runs in a forked child; the child
// prints what it saw and the parent compares.
#include "child.h"
#include "kmsgcapture.h"
#include "logline.h"
#include "pipes.h"
#include "settings-service/eventpoll.h"
#include "settings-service/log.h"
#include "signallater.h"
#include "waitresult.h"

#include <csignal>
#include <cstdlib>
#include <ctime>
#include <functional>
#include <gtest/gtest.h>
#include <iostream>
#include <string>
#include <sys/epoll.h>
#include <vector>

using testsupport::isLogLine;
using testsupport::KmsgCapture;
using testsupport::runInChild;

namespace {

using Lines = std::vector<std::string>;

// Runs body in a child until its SIGTERM did arrive while it was blocked:
// should the signal come before the wait started (a very slow start), the
// first wait reports Terminate and the child says "early"; it is tried again.
testsupport::ChildResult runUntilBlocked(const std::function<int()>& body) {
    testsupport::ChildResult result;
    for (int attempt = 0; attempt < 3; ++attempt) {
        result = runInChild(body);
        if (result.out != "early\n") {
            break;
        }
    }
    return result;
}

void expectTerminationLogged(const KmsgCapture& kmsg, const Lines& messages) {
    auto lines = kmsg.lines();
    ASSERT_EQ(lines.size(), messages.size()) << testing::PrintToString(lines);
    for (size_t i = 0; i < lines.size(); ++i) {
        EXPECT_TRUE(isLogLine(lines[i], gen::LogLight, "eventpoll.cpp", messages[i]));
    }
}

TEST(EventPollSignals, SigtermWhileBlockedInterruptsAndTheNextWaitLogsAndTerminates) {
    gComponentLogLevel = nullptr;
    KmsgCapture kmsg;
    auto result = runUntilBlocked([] {
        EventPoll poll;
        KmsgCapture own;
        sendSignalLater(SIGTERM, 300);
        int first = poll.wait(-1);
        if (first == EventPoll::Terminate) {
            std::cout << "early\n";
            return 0;
        }
        size_t linesAfterFirst = own.lines().size();
        int second = poll.wait(-1);
        std::cout << resultName(first) << " " << linesAfterFirst << " " << resultName(second) << " "
                  << EventPoll::shouldTerminate() << "\n";
        return 0;
    });
    EXPECT_TRUE(result.exitedWith(0)) << result.status << result.err;
    EXPECT_EQ(result.out, "Interrupted 0 Terminate 1\n");
    expectTerminationLogged(kmsg, {"SIG 15: Terminated"});
}

TEST(EventPollSignals, SigtermWhileBlockedAfterATimerExpiryReportsTheTimerFirst) {
    gComponentLogLevel = nullptr;
    KmsgCapture kmsg;
    auto result = runUntilBlocked([] {
        EventPoll poll;
        poll.setTimer(20);
        while (poll.wait(-1) != EventPoll::TimerExpired) {
        }
        // Let the timer fire once more outside a wait, then stop it: the
        // expiry is pending when the termination signal wakes the wait.
        timespec pause{0, 100000000L};
        while (nanosleep(&pause, &pause) != 0) {
        }
        poll.setTimer(0);
        sendSignalLater(SIGTERM, 300);
        int first = poll.wait(-1);
        if (first == EventPoll::Terminate) {
            std::cout << "early\n";
            return 0;
        }
        int second = poll.wait(-1);
        std::cout << resultName(first) << " " << resultName(second) << "\n";
        return 0;
    });
    EXPECT_TRUE(result.exitedWith(0)) << result.status << result.err;
    EXPECT_EQ(result.out, "TimerExpired Terminate\n");
    expectTerminationLogged(kmsg, {"SIG 15: Terminated"});
}

TEST(EventPollSignals, SigintAndSigtermAreLoggedInAscendingOrderOnce) {
    gComponentLogLevel = nullptr;
    KmsgCapture kmsg;
    auto result = runInChild([] {
        EventPoll poll;
        raise(SIGTERM);
        raise(SIGINT);
        int first = poll.wait(0);
        int second = poll.wait(0);
        std::cout << resultName(first) << " " << resultName(second) << "\n";
        return 0;
    });
    EXPECT_TRUE(result.exitedWith(0)) << result.status << result.err;
    EXPECT_EQ(result.out, "Terminate Terminate\n");
    expectTerminationLogged(kmsg, {"SIG 2: Interrupt", "SIG 15: Terminated"});
}

TEST(EventPollSignals, AfterTerminationOnlyIgnoringItServesDescriptors) {
    gComponentLogLevel = nullptr;
    auto result = runInChild([] {
        EventPoll poll;
        Pipe pipe;
        int calls = 0;
        EventPoll::FunctionCallback count([&calls](EventPoll::Callback::EventType) { ++calls; });
        poll.add(pipe.readEnd, &count, EPOLLIN);
        pipe.put("x");
        raise(SIGINT);
        std::cout << resultName(poll.wait(0)) << " " << calls << " ";
        std::cout << resultName(poll.wait(0, true)) << " " << calls << " ";
        std::cout << resultName(poll.wait(0)) << " " << calls << " ";
        // The request is checked before the poll is: a closed poll still
        // reports it instead of throwing.
        poll.close();
        std::cout << resultName(poll.wait(0)) << "\n";
        return 0;
    });
    EXPECT_TRUE(result.exitedWith(0)) << result.status << result.err;
    EXPECT_EQ(result.out, "Terminate 0 EventsHandled 1 Terminate 1 Terminate\n");
}

TEST(EventPollSignals, TheHandlersAreInPlaceWithoutRestartAndWithEverySignalBlocked) {
    struct sigaction terminate {};
    ASSERT_EQ(sigaction(SIGTERM, nullptr, &terminate), 0);
    EXPECT_NE(terminate.sa_handler, SIG_DFL);
    EXPECT_NE(terminate.sa_handler, SIG_IGN);
    EXPECT_EQ(terminate.sa_flags & SA_RESTART, 0);
    EXPECT_EQ(sigismember(&terminate.sa_mask, SIGUSR1), 1);
    EXPECT_EQ(sigismember(&terminate.sa_mask, SIGHUP), 1);
    for (int number : {SIGINT, SIGALRM}) {
        struct sigaction other {};
        ASSERT_EQ(sigaction(number, nullptr, &other), 0);
        EXPECT_EQ(other.sa_handler, terminate.sa_handler) << number;
        EXPECT_EQ(other.sa_flags & SA_RESTART, 0) << number;
    }
    struct sigaction pipeSignal {};
    ASSERT_EQ(sigaction(SIGPIPE, nullptr, &pipeSignal), 0);
    EXPECT_EQ(pipeSignal.sa_handler, SIG_IGN);
}

TEST(EventPollSignals, NoTerminationIsRequestedWithoutASignal) {
    EXPECT_FALSE(EventPoll::shouldTerminate());
}

} // namespace
