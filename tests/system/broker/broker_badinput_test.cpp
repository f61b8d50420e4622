// Clients that misbehave never crash the broker or disturb the others.
#include "brokerlog.h"
#include "brokerprocess.h"
#include "kmsgcapture.h"
#include "rawclient.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <csignal>
#include <cstring>
#include <memory>
#include <random>
#include <regex>
#include <stdexcept>
#include <thread>

namespace brokertest {
namespace {

constexpr uint32_t FOCUS = VarFocusTorqueChanged;
constexpr uint32_t SENTINEL = TEST_ID_BASE + 2;

class BrokerBadInput : public ::testing::Test {
protected:
    void SetUp() override {
        ASSERT_TRUE(broker.running());
        watcher.subscribe(FOCUS);
        watcher.subscribe(SENTINEL);
        watcher.sync();
    }
    void TearDown() override { EXPECT_EQ(broker.stop(SIGTERM), 0); }

    // The broker still forwards, and the watcher got nothing but `expected`
    // (ids of FOCUS records) before the sentinel.
    void expectUndisturbed(std::vector<uint32_t> expected = {}) {
        EXPECT_TRUE(broker.running());
        RawClient publisher;
        publisher.send({{EventId(FOCUS), 0, 0xABCD}, {EventId(SENTINEL), 0, 0}});
        auto received = watcher.receiveUntil(SENTINEL);
        std::vector<uint32_t> indexes;
        for (const auto& record : received) {
            EXPECT_EQ(record.id, FOCUS);
            indexes.push_back(record.index);
        }
        expected.push_back(0xABCD);
        EXPECT_EQ(indexes, expected);
    }

    BrokerProcess broker;
    RawClient watcher;
};

TEST_F(BrokerBadInput, UnknownIdsAreForwardedOnlyToWhoeverAskedForThem) {
    RawClient all;
    all.subscribeAll();
    all.sync();
    RawClient sender;
    sender.send({{EventId(0xFFFFFFFFu), 0xFFFFFFFFu, 0xFFFFFFFFu},
                 {EventId(1061), 7, 7},
                 {EventId(0), 0, 0}});
    auto received = all.receive(3);
    ASSERT_EQ(received.size(), 3u);
    EXPECT_EQ(received[0].id, 0xFFFFFFFFu);
    EXPECT_EQ(received[0].index, 0xFFFFFFFFu);
    EXPECT_EQ(received[1].id, 1061u);
    expectUndisturbed();
}

TEST_F(BrokerBadInput, ASubscribeCommandAsTheLastBytesIsDropped) {
    {
        RawClient client;
        client.send({{Subscribe, 0, 0}});
        client.waitUntilTaken();
    }
    {
        RawClient client;
        client.send({{Unsubscribe, 0, 0}});
    }
    expectUndisturbed();
}

TEST_F(BrokerBadInput, AConnectionClosedInTheMiddleOfARecordForwardsNothingOfIt) {
    RawClient client;
    const Notify records[2] = {{EventId(FOCUS), 0, 1}, {EventId(FOCUS), 0, 2}};
    client.sendBytes(records, 12 + 5);
    client.close();
    expectUndisturbed({1});
}

TEST_F(BrokerBadInput, RecordsSentJustBeforeHangingUpAreDelivered) {
    for (uint32_t i = 0; i < 20; ++i) {
        RawClient client;
        client.send({{EventId(FOCUS), 0, i}});
    }
    std::vector<uint32_t> expected;
    for (uint32_t i = 0; i < 20; ++i) {
        expected.push_back(i);
    }
    // Each client's record arrives; their order across clients is not fixed.
    auto received = watcher.receive(20);
    std::vector<uint32_t> indexes;
    for (const auto& record : received) {
        indexes.push_back(record.index);
    }
    std::sort(indexes.begin(), indexes.end());
    EXPECT_EQ(indexes, expected);
}

TEST_F(BrokerBadInput, RandomBytesNeverStopTheBroker) {
    std::mt19937 random(20240611);
    for (int round = 0; round < 10; ++round) {
        RawClient client;
        std::vector<uint8_t> garbage(65536 + round * 7);
        for (auto& byte : garbage) {
            byte = static_cast<uint8_t>(random());
        }
        // No record of the garbage may carry FOCUS or the sentinel.
        for (size_t offset = 0; offset + 4 <= garbage.size(); offset += 4) {
            uint32_t word;
            std::memcpy(&word, &garbage[offset], 4);
            if (word == FOCUS || word == SENTINEL) {
                garbage[offset] ^= 0x80;
            }
        }
        client.sendBytes(garbage.data(), garbage.size());
    }
    expectUndisturbed();
}

TEST_F(BrokerBadInput, ManyClientsComingAndGoing) {
    for (int i = 0; i < 200; ++i) {
        RawClient client;
        if (i % 2 == 0) {
            client.subscribeAll();
        }
    }
    expectUndisturbed();
}

} // namespace
} // namespace brokertest

namespace brokertest {
namespace {

// True when a round trip through the broker works for this client; false
// when the broker closed it.
bool answers(RawClient& client, uint32_t id) {
    try {
        client.subscribe(id);
        client.send({{EventId(id), 0, 0}});
    } catch (const std::runtime_error&) {
        client.receive(1, 5000); // notes the end of the stream
        return false;
    }
    auto received = client.receive(1, 5000);
    return received.size() == 1 && received[0].id == id;
}

TEST(BrokerOutOfDescriptors, NewClientsAreClosedAndTheOthersServed) {
#ifdef BROKER_SANITIZED
    GTEST_SKIP() << "the sanitizers' own checks need free descriptors (a pipe per check)";
#endif
    constexpr unsigned LIMIT = 32;
    testsupport::KmsgCapture log;
    BrokerProcess broker(LIMIT);
    ASSERT_TRUE(broker.running()) << broker.errorOutput();
    std::vector<std::unique_ptr<RawClient>> clients;
    for (unsigned i = 0; i < LIMIT + 8; ++i) {
        clients.push_back(std::make_unique<RawClient>());
    }
    int served = 0;
    int refused = 0;
    for (unsigned i = 0; i < clients.size(); ++i) {
        if (answers(*clients[i], TEST_ID_BASE + 100 + i)) {
            ++served;
        } else {
            EXPECT_TRUE(clients[i]->closedByBroker()) << i;
            ++refused;
        }
    }
    EXPECT_GT(served, 10);
    EXPECT_GE(refused, 8);
    EXPECT_TRUE(broker.running());

    // The broker takes no more clients than its descriptor limit leaves room
    // for (clientlimits.h), so it refuses the others before its descriptors
    // run out: each refusal has a line, ten a second, and the count of those
    // left out comes in one line at the broker's first wake-up after that
    // second (the later client's).
    std::this_thread::sleep_for(std::chrono::milliseconds(1100));
    clients.clear();
    RawClient later;
    EXPECT_TRUE(answers(later, TEST_ID_BASE + 99));
    static const std::regex refusal(
        "Refused a client \\(pid [0-9]+, uid [0-9]+, gid [0-9]+\\): [0-9]+ clients are connected");
    static const std::regex leftOut("([0-9]+) more lines about misbehaving clients were left out");
    int warnings = 0;
    for (const auto& line : brokerLines(log.lines())) {
        std::smatch count;
        const std::string message = line.substr(std::min(line.size(), size_t{60}));
        if (std::regex_match(message, refusal) ||
            isBrokerLine(line, gen::Warn, "broker.cpp",
                         "Out of descriptors: closed a new client at once")) {
            EXPECT_TRUE(isBrokerLine(line, gen::Warn, "broker.cpp", message));
            ++warnings;
        } else if (std::regex_match(message, count, leftOut)) {
            EXPECT_TRUE(isBrokerLine(line, gen::Warn, "misbehaviourlog.cpp", message));
            warnings += std::stoi(count[1]);
        }
    }
    EXPECT_EQ(warnings, refused);
    EXPECT_EQ(broker.stop(SIGTERM), 0);
}

} // namespace
} // namespace brokertest
