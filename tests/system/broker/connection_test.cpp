// ServerConnection, the service's side, against a running message-broker.
#include "brokerlog.h"
#include "brokerprocess.h"
#include "kmsgcapture.h"
#include "logline.h"
#include "rawclient.h"
#include "settings-service/serverconnection.h"

#include <gtest/gtest.h>

#include <chrono>
#include <csignal>
#include <sys/wait.h>
#include <unistd.h>

namespace brokertest {
namespace {

constexpr uint32_t FOCUS = VarFocusTorqueChanged;
constexpr uint32_t IRIS = VarIrisTorqueChanged;
constexpr uint32_t SENTINEL = TEST_ID_BASE + 3;

class Recorder : public ServerConnection::EventHandler {
public:
    void handleEvent(const Notify& notify) override { records.push_back(notify); }
    std::vector<Notify> records;
};

class BrokerConnection : public ::testing::Test {
protected:
    void SetUp() override {
        gComponentLogLevel = &level;
        ASSERT_TRUE(broker.running());
    }
    void TearDown() override {
        gComponentLogLevel = nullptr;
        EXPECT_EQ(broker.stop(SIGTERM), 0);
    }
    // Serves the event loop until the recorder holds the sentinel; returns
    // the records before it.
    std::vector<Notify> serveUntilSentinel(Recorder& recorder) {
        auto end = std::chrono::steady_clock::now() + std::chrono::seconds(10);
        while (std::chrono::steady_clock::now() < end) {
            for (size_t i = 0; i < recorder.records.size(); ++i) {
                if (recorder.records[i].id == SENTINEL) {
                    return {recorder.records.begin(),
                            recorder.records.begin() + static_cast<ptrdiff_t>(i)};
                }
            }
            poll.wait(10, true);
        }
        ADD_FAILURE() << "the sentinel did not arrive";
        return recorder.records;
    }

    gen::LogLevel level = gen::LogAll;
    EventPoll& poll = gen::getEventPoll();
    BrokerProcess broker;
};

TEST_F(BrokerConnection, ConnectsSubscribesAndReceives) {
    testsupport::KmsgCapture log;
    ServerConnection connection(poll);
    auto lines = log.lines();
    ASSERT_EQ(lines.size(), 2u);
    EXPECT_TRUE(testsupport::isLogLine(lines[0], gen::LogLight, "serverconnection.cpp",
                                       "Waiting for server"));
    EXPECT_TRUE(testsupport::isLogLine(lines[1], gen::LogLight, "serverconnection.cpp",
                                       "Connected after 0 attempts"));
    EXPECT_EQ(semaphoreValue("/message-broker-ready"), 1);

    Recorder recorder;
    connection.setEventHandler(&recorder);
    connection.subscribe({EventId(FOCUS), 0, 0});
    connection.subscribe({EventId(SENTINEL), 0, 0});
    connection.postEvent({EventId(SENTINEL), 0, 0});
    serveUntilSentinel(recorder);
    recorder.records.clear();

    RawClient publisher;
    publisher.send({{EventId(IRIS), 0, 1}, {EventId(FOCUS), 1, 2}, {EventId(SENTINEL), 0, 0}});
    auto received = serveUntilSentinel(recorder);
    ASSERT_EQ(received.size(), 1u);
    EXPECT_EQ(received[0].id, FOCUS);
    EXPECT_EQ(received[0].indexed, 1u);
    EXPECT_EQ(received[0].index, 2u);
}

TEST_F(BrokerConnection, PostedRecordsReachOtherClients) {
    ServerConnection connection(poll);
    RawClient listener;
    listener.subscribe(FOCUS);
    listener.sync();
    connection.postEvent({EventId(FOCUS), 1, 4});
    auto received = listener.receive(1);
    ASSERT_EQ(received.size(), 1u);
    EXPECT_EQ(received[0].index, 4u);
}

TEST_F(BrokerConnection, SubscribeAllAndUnsubscribeAll) {
    ServerConnection connection(poll);
    Recorder recorder;
    connection.setEventHandler(&recorder);
    connection.subscribeAll();
    RawClient publisher;
    publisher.send({{EventId(777), 0, 0}, {EventId(SENTINEL), 0, 0}});
    auto received = serveUntilSentinel(recorder);
    ASSERT_EQ(received.size(), 1u);
    EXPECT_EQ(received[0].id, 777u);

    recorder.records.clear();
    connection.postEvent({UnsubscribeAll, 0, 0});
    connection.subscribe({EventId(SENTINEL), 0, 0});
    connection.postEvent({EventId(SENTINEL), 0, 0});
    serveUntilSentinel(recorder);
    recorder.records.clear();
    publisher.send({{EventId(777), 0, 0}, {EventId(FOCUS), 0, 0}, {EventId(SENTINEL), 0, 0}});
    EXPECT_TRUE(serveUntilSentinel(recorder).empty());
}

TEST_F(BrokerConnection, WhenTheBrokerEndsTheConnectionClosesAndPostingFails) {
    ServerConnection connection(poll);
    ASSERT_EQ(broker.stop(SIGTERM), 0);
    testsupport::KmsgCapture log;
    for (int i = 0; i < 20; ++i) {
        poll.wait(50, true);
    }
    EXPECT_THROW(connection.postEvent({EventId(FOCUS), 0, 0}), std::runtime_error);
    auto lines = log.lines();
    ASSERT_FALSE(lines.empty());
    EXPECT_TRUE(testsupport::isLogLine(lines.back(), gen::Error, "serverconnection.cpp",
                                       "Could not send message to server"));
}

TEST_F(BrokerConnection, ClientsStartedTogetherConnectOneAtATime) {
    constexpr int CLIENTS = 6;
    std::vector<pid_t> children;
    for (int i = 0; i < CLIENTS; ++i) {
        pid_t child = fork();
        ASSERT_GE(child, 0);
        if (child == 0) {
            try {
                // A poll of its own: the process's epoll instance is shared with the parent.
                EventPoll ownPoll;
                ServerConnection connection(ownPoll);
                connection.postEvent({EventId(FOCUS), 0, static_cast<uint32_t>(i)});
                _exit(0);
            } catch (...) {
                _exit(1);
            }
        }
        children.push_back(child);
    }
    for (pid_t child : children) {
        int status = 0;
        ASSERT_EQ(waitpid(child, &status, 0), child);
        EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0);
    }
    EXPECT_EQ(semaphoreValue("/message-broker-ready"), 1);
}

} // namespace
} // namespace brokertest
