// A closed poll: add and wait throw, remove and close do nothing.
#include "kmsgcapture.h"
#include "logline.h"
#include "pipes.h"
#include "settings-service/eventpoll.h"
#include "settings-service/log.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <stdexcept>
#include <string>
#include <sys/epoll.h>
#include <unistd.h>

using testsupport::isLocatedMessage;
using testsupport::isLogLine;
using testsupport::KmsgCapture;

namespace {

class EventPollClosed : public testing::Test {
protected:
    void SetUp() override {
        gComponentLogLevel = nullptr;
        poll.close();
    }
    EventPoll poll;
    EventPoll::FunctionCallback callback{[](EventPoll::Callback::EventType) {}};
};

TEST_F(EventPollClosed, AddThrowsAndLogsAtError) {
    Pipe pipe;
    KmsgCapture kmsg;
    try {
        poll.add(pipe.readEnd, &callback, EPOLLIN);
        ADD_FAILURE() << "add on a closed poll did not throw";
    } catch (const std::runtime_error& error) {
        EXPECT_TRUE(isLocatedMessage(error.what(), "eventpoll.cpp",
                                     "add called on an already closed handle"));
    }
    auto lines = kmsg.lines();
    ASSERT_EQ(lines.size(), 1u);
    EXPECT_TRUE(
        isLogLine(lines[0], gen::Error, "eventpoll.cpp", "add called on an already closed handle"));
}

TEST_F(EventPollClosed, WaitThrowsAndLogsAtError) {
    KmsgCapture kmsg;
    try {
        poll.wait(0);
        ADD_FAILURE() << "wait on a closed poll did not throw";
    } catch (const std::runtime_error& error) {
        EXPECT_TRUE(isLocatedMessage(error.what(), "eventpoll.cpp",
                                     "wait called on an already closed handle"));
    }
    auto lines = kmsg.lines();
    ASSERT_EQ(lines.size(), 1u);
    EXPECT_TRUE(isLogLine(lines[0], gen::Error, "eventpoll.cpp",
                          "wait called on an already closed handle"));
}

TEST_F(EventPollClosed, RemoveAndASecondCloseDoNothing) {
    Pipe pipe;
    KmsgCapture kmsg;
    EXPECT_NO_THROW(poll.remove(pipe.readEnd));
    EXPECT_NO_THROW(poll.remove(-1));
    EXPECT_NO_THROW(poll.close());
    EXPECT_EQ(kmsg.text(), "");
}

TEST(EventPollClose, CloseReleasesThePollsDescriptor) {
    int free = lowestFreeDescriptor();
    EventPoll poll;
    ASSERT_NE(lowestFreeDescriptor(), free) << "the poll holds the lowest free descriptor";
    poll.close();
    EXPECT_EQ(lowestFreeDescriptor(), free);
}

} // namespace
