// The message-broker's command line: --help and --version print and exit 0
// without a socket, a semaphore or a log line; anything else is a usage
// error with status 2.
#include "brokerlog.h"
#include "brokerprocess.h"
#include "kmsgcapture.h"
#include "rawclient.h"
#include "version.h"

#include <gtest/gtest.h>

#include <csignal>
#include <semaphore.h>
#include <string>
#include <unistd.h>

namespace brokertest {
namespace {

const char* const SOCKET = "/var/volatile/message-broker.socket";
const char* const SEMAPHORE = "/message-broker-ready";
const std::string USAGE = "usage: message-broker [--help | --version]\n";

class BrokerCommandLine : public ::testing::Test {
protected:
    void SetUp() override {
        ::unlink(SOCKET);
        sem_unlink(SEMAPHORE);
    }
    // Nothing of a running broker appeared and nothing was logged.
    void expectNoSideEffect() {
        EXPECT_EQ(::access(SOCKET, F_OK), -1) << "a socket was made";
        EXPECT_FALSE(semaphoreExists(SEMAPHORE)) << "a semaphore was made";
        EXPECT_TRUE(log.lines().empty()) << log.lines().front();
    }

    testsupport::KmsgCapture log;
};

TEST_F(BrokerCommandLine, VersionPrintsTheProjectVersion) {
    auto result = runBroker({"--version"});
    EXPECT_TRUE(result.exitedWith(0)) << result.err;
    EXPECT_EQ(result.out, std::string("message-broker ") + Constants::PROJECT_VERSION + "\n");
    EXPECT_EQ(result.err, "");
    expectNoSideEffect();
}

TEST_F(BrokerCommandLine, HelpPrintsTheUsage) {
    auto result = runBroker({"--help"});
    EXPECT_TRUE(result.exitedWith(0)) << result.err;
    EXPECT_EQ(result.out.substr(0, USAGE.size()), USAGE);
    EXPECT_NE(result.out.find("/var/volatile/message-broker.socket"), std::string::npos);
    EXPECT_EQ(result.err, "");
    expectNoSideEffect();
}

TEST_F(BrokerCommandLine, AnyOtherArgumentIsAUsageError) {
    for (const auto& arguments : std::vector<std::vector<std::string>>{
             {"--bogus"}, {"-h"}, {"run"}, {"--help", "--version"}, {"--version", "now"}}) {
        auto result = runBroker(arguments);
        SCOPED_TRACE(arguments.back());
        EXPECT_TRUE(result.exitedWith(2)) << result.err;
        EXPECT_EQ(result.out, "");
        const std::string wrong = arguments.size() == 1 ? arguments[0] : arguments[1];
        EXPECT_EQ(result.err.substr(0, result.err.find('\n') + 1),
                  "message-broker: unexpected argument '" + wrong + "'\n");
        EXPECT_NE(result.err.find(USAGE), std::string::npos);
    }
    expectNoSideEffect();
}

TEST_F(BrokerCommandLine, AskingARunningDeviceLeavesItsBrokerAlone) {
    BrokerProcess broker;
    ASSERT_TRUE(broker.running()) << broker.errorOutput();
    testsupport::KmsgCapture quiet;
    EXPECT_TRUE(runBroker({"--version"}).exitedWith(0));
    EXPECT_TRUE(runBroker({"--help"}).exitedWith(0));
    EXPECT_TRUE(runBroker({"--bogus"}).exitedWith(2));
    EXPECT_TRUE(broker.running());
    EXPECT_TRUE(isSocket(SOCKET));
    EXPECT_EQ(semaphoreValue(SEMAPHORE), 1);
    RawClient client;
    client.sync();
    EXPECT_TRUE(brokerLines(quiet.lines()).empty());
    EXPECT_EQ(broker.stop(SIGTERM), 0);
}

} // namespace
} // namespace brokertest
