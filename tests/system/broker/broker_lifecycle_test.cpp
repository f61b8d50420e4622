// The message-broker's start and end: socket, readiness semaphore, stale
// leftovers, signals, a second broker, and its log lines.
#include "brokerlog.h"
#include "brokerprocess.h"
#include "kmsgcapture.h"
#include "rawclient.h"
#include "settings-service/serverconnection.h"

#include <gtest/gtest.h>

#include <csignal>
#include <cstring>
#include <fcntl.h>
#include <semaphore.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

namespace brokertest {
namespace {

const char* const SOCKET = "/var/volatile/message-broker.socket";
const char* const SEMAPHORE = "/message-broker-ready";
const std::string LISTENING = "Listening on /var/volatile/message-broker.socket";

// A round trip through the broker works.
void expectForwarding() {
    RawClient client;
    client.sync();
}

TEST(BrokerLifecycle, ListensThenAnnouncesReadinessAndLogsQuietly) {
    testsupport::KmsgCapture log;
    BrokerProcess broker;
    ASSERT_TRUE(broker.running()) << broker.errorOutput();
    EXPECT_TRUE(isSocket(SOCKET));
    EXPECT_EQ(semaphoreValue(SEMAPHORE), 1);
    {
        RawClient first;
        RawClient second;
        first.sync();
        second.sync();
    }
    EXPECT_EQ(broker.stop(SIGTERM), 0);
    auto lines = brokerLines(log.lines());
    ASSERT_EQ(lines.size(), 3u) << "connections are not logged at the broker's level";
    EXPECT_TRUE(isBrokerLine(lines[0], gen::LogLight, "main.cpp", LISTENING));
    EXPECT_TRUE(isBrokerLine(lines[1], gen::LogLight, "eventpoll.cpp", "SIG 15: Terminated"));
    EXPECT_TRUE(isBrokerLine(lines[2], gen::LogLight, "main.cpp", "Stopped"));
}

TEST(BrokerLifecycle, SigtermEndsWithStatusZeroAndRemovesSocketAndSemaphore) {
    BrokerProcess broker;
    ASSERT_TRUE(broker.running());
    RawClient client;
    client.sync();
    EXPECT_EQ(broker.stop(SIGTERM), 0);
    EXPECT_FALSE(isSocket(SOCKET));
    EXPECT_EQ(::access(SOCKET, F_OK), -1);
    EXPECT_FALSE(semaphoreExists(SEMAPHORE));
    EXPECT_TRUE(client.receive(1, 2000).empty());
    EXPECT_TRUE(client.closedByBroker());
}

TEST(BrokerLifecycle, SigintEndsWithStatusZeroToo) {
    testsupport::KmsgCapture log;
    BrokerProcess broker;
    ASSERT_TRUE(broker.running());
    EXPECT_EQ(broker.stop(SIGINT), 0);
    EXPECT_FALSE(isSocket(SOCKET));
    EXPECT_FALSE(semaphoreExists(SEMAPHORE));
    auto lines = brokerLines(log.lines());
    ASSERT_EQ(lines.size(), 3u);
    EXPECT_TRUE(isBrokerLine(lines[1], gen::LogLight, "eventpoll.cpp", "SIG 2: Interrupt"));
}

TEST(BrokerLifecycle, CreatesTheSocketFolderWhenItIsMissing) {
    ASSERT_EQ(::rmdir("/var/volatile"), 0) << std::strerror(errno);
    BrokerProcess broker;
    ASSERT_TRUE(broker.running()) << broker.errorOutput();
    EXPECT_TRUE(isSocket(SOCKET));
    expectForwarding();
    EXPECT_EQ(broker.stop(SIGTERM), 0);
}

TEST(BrokerLifecycle, ReplacesAStaleSocketAndAStaleSemaphore) {
    int stale = ::socket(AF_UNIX, SOCK_STREAM, 0);
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    std::strcpy(address.sun_path, SOCKET);
    ASSERT_EQ(::bind(stale, reinterpret_cast<sockaddr*>(&address), sizeof address), 0);
    ::close(stale);
    sem_t* taken = sem_open(SEMAPHORE, O_CREAT | O_EXCL, 0600, 0);
    ASSERT_NE(taken, SEM_FAILED);
    sem_close(taken);

    testsupport::KmsgCapture log;
    BrokerProcess broker;
    ASSERT_TRUE(broker.running()) << broker.errorOutput();
    EXPECT_EQ(semaphoreValue(SEMAPHORE), 1);
    expectForwarding();
    EXPECT_EQ(broker.stop(SIGTERM), 0);
    auto lines = brokerLines(log.lines());
    ASSERT_GE(lines.size(), 3u);
    EXPECT_TRUE(isBrokerLine(lines[0], gen::LogLight, "endpoint.cpp",
                             "Removed stale /var/volatile/message-broker.socket"));
    EXPECT_TRUE(isBrokerLine(lines[1], gen::LogLight, "endpoint.cpp",
                             "Removed stale semaphore /message-broker-ready"));
    EXPECT_TRUE(isBrokerLine(lines[2], gen::LogLight, "main.cpp", LISTENING));
}

TEST(BrokerLifecycle, ASecondBrokerRefusesAndLeavesTheFirstWorking) {
    BrokerProcess first;
    ASSERT_TRUE(first.running());
    RawClient client;
    client.subscribe(VarFocusTorqueChanged);
    client.sync();

    testsupport::KmsgCapture log;
    BrokerProcess second;
    int status = second.wait();
    EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 1) << status;
    EXPECT_NE(second.errorOutput().find("Another message broker is already listening on "
                                        "/var/volatile/message-broker.socket"),
              std::string::npos);
    auto lines = brokerLines(log.lines());
    ASSERT_EQ(lines.size(), 1u);
    EXPECT_TRUE(isBrokerLine(lines[0], gen::Error, "endpoint.cpp",
                             "Another message broker is already listening on "
                             "/var/volatile/message-broker.socket"));

    EXPECT_TRUE(first.running());
    EXPECT_TRUE(isSocket(SOCKET));
    EXPECT_EQ(semaphoreValue(SEMAPHORE), 1);
    RawClient publisher;
    publisher.send({{VarFocusTorqueChanged, 0, 9}});
    auto received = client.receive(1);
    ASSERT_EQ(received.size(), 1u);
    EXPECT_EQ(received[0].index, 9u);
    expectForwarding();
    EXPECT_EQ(first.stop(SIGTERM), 0);
}

} // namespace
} // namespace brokertest
