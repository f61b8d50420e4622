// Registration, dispatch and the results of EventPoll::wait for descriptors.
#include "kmsgcapture.h"
#include "logline.h"
#include "pipes.h"
#include "settings-service/eventpoll.h"
#include "settings-service/log.h"

#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <functional>
#include <gtest/gtest.h>
#include <stdexcept>
#include <string>
#include <sys/epoll.h>
#include <sys/socket.h>
#include <unistd.h>
#include <vector>

using testsupport::isLocatedMessage;
using testsupport::isLogLine;
using testsupport::KmsgCapture;

namespace {

using EventType = EventPoll::Callback::EventType;

static_assert(EventPoll::Callback::Priority == 0 && EventPoll::Callback::Readable == 1 &&
              EventPoll::Callback::Hangup == 2);
static_assert(EventPoll::Interrupted == 0 && EventPoll::TimerExpired == 1 &&
              EventPoll::Timeout == 2 && EventPoll::EventsHandled == 3 &&
              EventPoll::Terminate == 4);

std::string format(const char* pattern, ...) __attribute__((format(printf, 1, 2)));
std::string format(const char* pattern, ...) {
    char text[256];
    va_list args;
    va_start(args, pattern);
    std::vsnprintf(text, sizeof text, pattern, args);
    va_end(args);
    return text;
}

class Recorder : public EventPoll::Callback {
public:
    void event(EventType type) override { events.push_back(type); }
    std::vector<EventType> events;
};

class EventPollDispatch : public testing::Test {
protected:
    void SetUp() override { gComponentLogLevel = nullptr; }
    EventPoll poll;
};

TEST_F(EventPollDispatch, AddAndRemoveLogTheClient) {
    Pipe pipe;
    Recorder recorder;
    KmsgCapture kmsg;
    poll.add(pipe.readEnd, &recorder, EPOLLIN);
    poll.remove(pipe.readEnd);
    auto lines = kmsg.lines();
    ASSERT_EQ(lines.size(), 2u);
    EXPECT_TRUE(
        isLogLine(lines[0], gen::DebugMost, "eventpoll.cpp",
                  format("Add new client %i/%p", pipe.readEnd, static_cast<void*>(&recorder))));
    EXPECT_TRUE(isLogLine(lines[1], gen::DebugMost, "eventpoll.cpp",
                          format("Remove  client %i", pipe.readEnd)));
}

TEST_F(EventPollDispatch, TheLinesFollowTheComponentLevel) {
    gen::LogLevel component = gen::LogLight;
    gComponentLogLevel = &component;
    Pipe pipe;
    Recorder recorder;
    KmsgCapture kmsg;
    poll.add(pipe.readEnd, &recorder, EPOLLIN);
    pipe.put("x");
    EXPECT_EQ(poll.wait(0), EventPoll::EventsHandled);
    poll.remove(pipe.readEnd);
    gComponentLogLevel = nullptr;
    EXPECT_EQ(kmsg.text(), "");
}

TEST_F(EventPollDispatch, AReadableDescriptorGetsReadable) {
    Pipe pipe;
    Recorder recorder;
    poll.add(pipe.readEnd, &recorder, EPOLLIN);
    pipe.put("x");
    KmsgCapture kmsg;
    EXPECT_EQ(poll.wait(0), EventPoll::EventsHandled);
    EXPECT_EQ(recorder.events, std::vector<EventType>{EventPoll::Callback::Readable});
    auto lines = kmsg.lines();
    ASSERT_EQ(lines.size(), 1u);
    EXPECT_TRUE(
        isLogLine(lines[0], gen::DebugAll, "eventpoll.cpp",
                  format("Call    client %p for events 00000001", static_cast<void*>(&recorder))));
}

TEST_F(EventPollDispatch, HangupWithInputGivesOnlyHangup) {
    Pipe pipe;
    Recorder recorder;
    poll.add(pipe.readEnd, &recorder, EPOLLIN);
    pipe.put("x");
    pipe.closeWriteEnd();
    KmsgCapture kmsg;
    EXPECT_EQ(poll.wait(0), EventPoll::EventsHandled);
    EXPECT_EQ(recorder.events, std::vector<EventType>{EventPoll::Callback::Hangup});
    auto lines = kmsg.lines();
    ASSERT_EQ(lines.size(), 1u);
    EXPECT_TRUE(
        isLogLine(lines[0], gen::DebugAll, "eventpoll.cpp",
                  format("Call    client %p for events 00000011", static_cast<void*>(&recorder))));
}

TEST_F(EventPollDispatch, UrgentDataGivesPriority) {
    int sockets[2];
    ASSERT_EQ(socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, sockets), 0);
    Recorder recorder;
    poll.add(sockets[0], &recorder, EPOLLIN | EPOLLPRI);
    ASSERT_EQ(send(sockets[1], "!", 1, MSG_OOB), 1) << std::strerror(errno);
    EXPECT_EQ(poll.wait(0), EventPoll::EventsHandled);
    EXPECT_EQ(recorder.events, std::vector<EventType>{EventPoll::Callback::Priority});
    poll.remove(sockets[0]);
    close(sockets[0]);
    close(sockets[1]);
}

TEST_F(EventPollDispatch, OtherEventBitsCallNothing) {
    Pipe pipe;
    Recorder recorder;
    poll.add(pipe.writeEnd, &recorder, EPOLLOUT);
    KmsgCapture kmsg;
    EXPECT_EQ(poll.wait(0), EventPoll::EventsHandled);
    EXPECT_TRUE(recorder.events.empty());
    auto lines = kmsg.lines();
    ASSERT_EQ(lines.size(), 1u);
    EXPECT_TRUE(
        isLogLine(lines[0], gen::DebugAll, "eventpoll.cpp",
                  format("Call    client %p for events 00000004", static_cast<void*>(&recorder))));
}

TEST_F(EventPollDispatch, ADescriptorWithoutCallbackIsLoggedAsUnhandled) {
    Pipe pipe;
    poll.add(pipe.readEnd, nullptr, EPOLLIN);
    pipe.put("x");
    KmsgCapture kmsg;
    EXPECT_EQ(poll.wait(0), EventPoll::EventsHandled);
    auto lines = kmsg.lines();
    ASSERT_EQ(lines.size(), 1u);
    EXPECT_TRUE(isLogLine(lines[0], gen::Warn, "eventpoll.cpp", "Unhandled event: 00000001"));
}

TEST_F(EventPollDispatch, NothingReadyGivesTimeout) {
    Pipe pipe;
    Recorder recorder;
    poll.add(pipe.readEnd, &recorder, EPOLLIN);
    EXPECT_EQ(poll.wait(0), EventPoll::Timeout);
    EXPECT_EQ(poll.wait(20), EventPoll::Timeout);
    EXPECT_TRUE(recorder.events.empty());
}

TEST_F(EventPollDispatch, MoreThanEightReadyDescriptorsAreServedOverSuccessiveCalls) {
    constexpr int COUNT = 11;
    std::vector<Pipe> pipes(COUNT);
    std::vector<int> calls(COUNT, 0);
    std::vector<EventPoll::FunctionCallback> callbacks;
    callbacks.reserve(COUNT);
    for (int i = 0; i < COUNT; ++i) {
        callbacks.emplace_back([&pipes, &calls, i](EventType) {
            ++calls[i];
            pipes[i].take();
        });
        poll.add(pipes[i].readEnd, &callbacks[i], EPOLLIN);
        pipes[i].put("x");
    }
    auto served = [&calls] {
        int total = 0;
        for (int count : calls) {
            total += count;
        }
        return total;
    };
    EXPECT_EQ(poll.wait(0), EventPoll::EventsHandled);
    EXPECT_EQ(served(), 8);
    EXPECT_EQ(poll.wait(0), EventPoll::EventsHandled);
    EXPECT_EQ(served(), COUNT);
    EXPECT_EQ(poll.wait(0), EventPoll::Timeout);
    EXPECT_EQ(calls, std::vector<int>(COUNT, 1));
}

TEST_F(EventPollDispatch, AnExceptionFromACallbackEndsTheBatch) {
    Pipe first;
    Pipe second;
    int calls = 0;
    EventPoll::FunctionCallback thrower([&calls](EventType) {
        ++calls;
        throw std::runtime_error("callback failed");
    });
    poll.add(first.readEnd, &thrower, EPOLLIN);
    poll.add(second.readEnd, &thrower, EPOLLIN);
    first.put("x");
    second.put("x");
    EXPECT_THROW(poll.wait(0), std::runtime_error);
    EXPECT_EQ(calls, 1);
}

TEST_F(EventPollDispatch, AFunctionCallbackForwardsTheEventType) {
    Pipe pipe;
    std::vector<EventType> seen;
    EventPoll::FunctionCallback callback([&seen](EventType type) { seen.push_back(type); });
    poll.add(pipe.readEnd, &callback, EPOLLIN);
    pipe.put("x");
    EXPECT_EQ(poll.wait(0), EventPoll::EventsHandled);
    EXPECT_EQ(seen, std::vector<EventType>{EventPoll::Callback::Readable});
}

TEST_F(EventPollDispatch, AnEmptyFunctionCallbackThrowsBadFunctionCall) {
    EventPoll::FunctionCallback empty;
    EXPECT_THROW(empty.event(EventPoll::Callback::Readable), std::bad_function_call);
    Pipe pipe;
    poll.add(pipe.readEnd, &empty, EPOLLIN);
    pipe.put("x");
    EXPECT_THROW(poll.wait(0), std::bad_function_call);
}

TEST_F(EventPollDispatch, FailedRegistrationsThrowTheSystemText) {
    Recorder recorder;
    KmsgCapture kmsg;
    try {
        poll.add(-1, &recorder, EPOLLIN);
        ADD_FAILURE() << "add of -1 did not throw";
    } catch (const std::runtime_error& error) {
        EXPECT_TRUE(
            isLocatedMessage(error.what(), "eventpoll.cpp", "epoll_ctl: Bad file descriptor"));
    }
    Pipe pipe;
    try {
        poll.remove(pipe.readEnd);
        ADD_FAILURE() << "remove of an unregistered descriptor did not throw";
    } catch (const std::runtime_error& error) {
        EXPECT_TRUE(isLocatedMessage(error.what(), "eventpoll.cpp",
                                     "epoll_ctl: No such file or directory"));
    }
    auto lines = kmsg.lines();
    ASSERT_EQ(lines.size(), 2u);
    EXPECT_TRUE(isLogLine(lines[0], gen::Error, "eventpoll.cpp", "epoll_ctl: Bad file descriptor"));
    EXPECT_TRUE(
        isLogLine(lines[1], gen::Error, "eventpoll.cpp", "epoll_ctl: No such file or directory"));
}

TEST(EventPollProcess, TheProcessHasOnePollThatWorks) {
    EventPoll& poll = gen::getEventPoll();
    EXPECT_EQ(&poll, &gen::getEventPoll());
    Pipe pipe;
    Recorder recorder;
    poll.add(pipe.readEnd, &recorder, EPOLLIN);
    pipe.put("x");
    EXPECT_EQ(poll.wait(0), EventPoll::EventsHandled);
    poll.remove(pipe.readEnd);
    EXPECT_EQ(recorder.events, std::vector<EventType>{EventPoll::Callback::Readable});
}

} // namespace
