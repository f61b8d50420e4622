// A client that stops reading never holds back the broker or the others.
#include "brokerlog.h"
#include "brokerprocess.h"
#include "kmsgcapture.h"
#include "rawclient.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <csignal>
#include <memory>
#include <regex>
#include <thread>

namespace brokertest {
namespace {

constexpr uint32_t FOCUS = VarFocusTorqueChanged;
constexpr uint32_t CHUNK = 1000; // records per write of the publisher
// How far the publisher may run ahead of the slowest reader: 240 KB, well
// below the broker's 1 MiB output bound, so a reader that the scheduler holds
// back is never taken for a client that does not read.
constexpr uint32_t WINDOW = 20000;
constexpr auto PACE_LIMIT = std::chrono::seconds(30);

// Indexes 0 .. count-1 in order, or the position of the first mismatch.
::testing::AssertionResult inOrder(const std::vector<Notify>& records) {
    for (uint32_t i = 0; i < records.size(); ++i) {
        if (records[i].id != FOCUS || records[i].index != i) {
            return ::testing::AssertionFailure()
                   << "record " << i << " is {" << records[i].id << ", " << records[i].indexed
                   << ", " << records[i].index << "}";
        }
    }
    return ::testing::AssertionSuccess();
}

// Posts `count` FOCUS records while `readers` subscribers read them in
// threads of their own and `slow` (subscribed too) reads nothing.  The
// publisher keeps within WINDOW records of the slowest reader.  Returns what
// each reader received.
std::vector<std::vector<Notify>> postWhileOneDoesNotRead(RawClient& slow, uint32_t count,
                                                         int readers) {
    slow.subscribe(FOCUS);
    slow.sync();
    std::vector<std::unique_ptr<RawClient>> subscribers;
    for (int i = 0; i < readers; ++i) {
        subscribers.push_back(std::make_unique<RawClient>());
        subscribers.back()->subscribe(FOCUS);
        subscribers.back()->sync();
    }
    std::vector<std::vector<Notify>> received(readers);
    std::vector<std::atomic<uint32_t>> progress(readers);
    std::vector<std::thread> threads;
    for (int i = 0; i < readers; ++i) {
        threads.emplace_back([&, i] {
            while (received[i].size() < count) {
                auto part = subscribers[i]->receive(CHUNK, 30000);
                received[i].insert(received[i].end(), part.begin(), part.end());
                progress[i] = received[i].size();
                if (part.size() < CHUNK) {
                    break;
                }
            }
        });
    }
    auto slowestReader = [&] {
        uint32_t slowest = count;
        for (const auto& done : progress) {
            slowest = std::min<uint32_t>(slowest, done);
        }
        return slowest;
    };
    const auto limit = std::chrono::steady_clock::now() + PACE_LIMIT;
    RawClient publisher;
    std::vector<Notify> chunk(CHUNK);
    for (uint32_t first = 0; first < count; first += CHUNK) {
        while (first >= WINDOW + slowestReader() && std::chrono::steady_clock::now() < limit) {
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
        }
        for (uint32_t i = 0; i < CHUNK; ++i) {
            chunk[i] = {EventId(FOCUS), 0, first + i};
        }
        publisher.send(chunk);
    }
    for (auto& thread : threads) {
        thread.join();
    }
    return received;
}

// The broker's line about closing the slow client, if any.
std::vector<std::string> dropLines(const testsupport::KmsgCapture& log) {
    static const std::regex message(
        "Client [0-9]+ \\(pid [0-9]+, uid [0-9]+, gid [0-9]+\\) does not read: [0-9]+ bytes "
        "waiting, closing it");
    std::vector<std::string> found;
    for (const auto& line : brokerLines(log.lines())) {
        auto at = line.find("Client ");
        if (at != std::string::npos && std::regex_match(line.substr(at), message)) {
            EXPECT_TRUE(isBrokerLine(line, gen::Warn, "broker.cpp", line.substr(at)));
            found.push_back(line);
        }
    }
    return found;
}

class BrokerSlowClient : public ::testing::Test {
protected:
    void SetUp() override { ASSERT_TRUE(broker.running()); }
    void TearDown() override { EXPECT_EQ(broker.stop(SIGTERM), 0); }

    BrokerProcess broker;
};

TEST_F(BrokerSlowClient, OthersGetAllOf100000RecordsAndTheBrokerStaysUp) {
    constexpr uint32_t COUNT = 100000;
    testsupport::KmsgCapture log;
    RawClient slow;
    for (const auto& received : postWhileOneDoesNotRead(slow, COUNT, 2)) {
        EXPECT_EQ(received.size(), COUNT);
        EXPECT_TRUE(inOrder(received));
    }
    EXPECT_TRUE(broker.running());
    RawClient later;
    later.sync();

    // The slow client gets a gap-free beginning; if that is not everything,
    // the broker closed it and said so.
    auto backlog = slow.receive(COUNT, 2000);
    EXPECT_TRUE(inOrder(backlog));
    if (backlog.size() < COUNT) {
        EXPECT_TRUE(slow.closedByBroker());
        EXPECT_EQ(dropLines(log).size(), 1u);
    } else {
        EXPECT_TRUE(dropLines(log).empty());
    }
}

TEST_F(BrokerSlowClient, AClientThatNeverReadsIsClosedAndLogged) {
    constexpr uint32_t COUNT = 300000; // 3.6 MB: far beyond the output bound and socket buffers
    testsupport::KmsgCapture log;
    RawClient slow;
    auto received = postWhileOneDoesNotRead(slow, COUNT, 1);
    EXPECT_EQ(received[0].size(), COUNT);
    EXPECT_TRUE(inOrder(received[0]));

    auto backlog = slow.receive(COUNT, 2000);
    EXPECT_LT(backlog.size(), COUNT);
    EXPECT_GT(backlog.size(), 0u) << "what its socket held before the close arrives";
    EXPECT_TRUE(inOrder(backlog));
    EXPECT_TRUE(slow.closedByBroker());
    EXPECT_EQ(dropLines(log).size(), 1u);
    EXPECT_TRUE(broker.running());
    RawClient later;
    later.sync();
}

} // namespace
} // namespace brokertest
