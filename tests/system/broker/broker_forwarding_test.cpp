// Forwarding through a running message-broker: subscriptions, several
// subscribers, the sender's own records, records split across writes.
#include "brokerprocess.h"
#include "rawclient.h"

#include <gtest/gtest.h>

#include <csignal>
#include <memory>

namespace brokertest {
namespace {

constexpr uint32_t FOCUS = VarFocusTorqueChanged;
constexpr uint32_t IRIS = VarIrisTorqueChanged;
constexpr uint32_t SENTINEL = TEST_ID_BASE + 1;

std::vector<uint32_t> ids(const std::vector<Notify>& records) {
    std::vector<uint32_t> result;
    for (const auto& record : records) {
        result.push_back(record.id);
    }
    return result;
}

class BrokerForwarding : public ::testing::Test {
protected:
    void SetUp() override { ASSERT_TRUE(broker.running()) << broker.errorOutput(); }
    void TearDown() override { EXPECT_EQ(broker.stop(SIGTERM), 0); }

    // A client subscribed to `subscribed` and to the sentinel.
    std::unique_ptr<RawClient> subscriber(std::vector<uint32_t> subscribed) {
        auto client = std::make_unique<RawClient>();
        for (uint32_t id : subscribed) {
            client->subscribe(id);
        }
        client->subscribe(SENTINEL);
        client->sync();
        return client;
    }

    BrokerProcess broker;
};

TEST_F(BrokerForwarding, ASubscriberGetsItsEventsUnchangedAndNothingElse) {
    auto listener = subscriber({FOCUS});
    RawClient publisher;
    publisher.send({{EventId(IRIS), 0, 0},
                    {EventId(FOCUS), 1, 7},
                    {EventId(0), 0, 0},
                    {EventId(FOCUS), 0, 0},
                    {EventId(SENTINEL), 0, 0}});
    auto received = listener->receiveUntil(SENTINEL);
    ASSERT_EQ(received.size(), 2u);
    EXPECT_EQ(received[0].id, FOCUS);
    EXPECT_EQ(received[0].indexed, 1u);
    EXPECT_EQ(received[0].index, 7u);
    EXPECT_EQ(received[1].id, FOCUS);
    EXPECT_EQ(received[1].indexed, 0u);
}

TEST_F(BrokerForwarding, UnsubscribeStopsOneEvent) {
    auto listener = subscriber({FOCUS, IRIS});
    listener->unsubscribe(FOCUS);
    listener->sync();
    RawClient publisher;
    publisher.send({{EventId(FOCUS), 0, 1}, {EventId(IRIS), 0, 2}, {EventId(SENTINEL), 0, 0}});
    EXPECT_EQ(ids(listener->receiveUntil(SENTINEL)), std::vector<uint32_t>{IRIS});
}

TEST_F(BrokerForwarding, SubscribeAllDeliversEveryRecordButCommands) {
    auto listener = std::make_unique<RawClient>();
    listener->subscribeAll();
    listener->sync();
    RawClient publisher;
    publisher.subscribe(FOCUS);
    publisher.send({{EventId(0), 0, 0},
                    {CalibAllMotor, 0, 0},
                    {EventId(FOCUS), 0, 0},
                    {EventId(1060), 1, 3},
                    {EventId(99999), 0, 0},
                    {EventId(0xFFFFFFFFu), 5, 6},
                    {EventId(SENTINEL), 0, 0}});
    EXPECT_EQ(ids(listener->receiveUntil(SENTINEL)),
              (std::vector<uint32_t>{0, CalibAllMotor, FOCUS, 1060, 99999, 0xFFFFFFFFu}));
}

TEST_F(BrokerForwarding, UnsubscribeAfterSubscribeAllLeavesOneOut) {
    auto listener = std::make_unique<RawClient>();
    listener->subscribeAll();
    listener->unsubscribe(FOCUS);
    listener->sync();
    RawClient publisher;
    publisher.send({{EventId(FOCUS), 0, 0}, {EventId(IRIS), 0, 0}, {EventId(SENTINEL), 0, 0}});
    EXPECT_EQ(ids(listener->receiveUntil(SENTINEL)), std::vector<uint32_t>{IRIS});
}

TEST_F(BrokerForwarding, UnsubscribeAllCancelsEverySubscription) {
    auto listener = subscriber({FOCUS, IRIS});
    listener->subscribeAll();
    listener->unsubscribeAll();
    listener->subscribe(SENTINEL);
    listener->sync();
    RawClient publisher;
    publisher.send({{EventId(FOCUS), 0, 0},
                    {EventId(IRIS), 0, 0},
                    {EventId(500), 0, 0},
                    {EventId(SENTINEL), 0, 0}});
    EXPECT_TRUE(listener->receiveUntil(SENTINEL).empty());
}

TEST_F(BrokerForwarding, EverySubscriberGetsEveryRecordInOrder) {
    constexpr uint32_t COUNT = 1000;
    std::vector<std::unique_ptr<RawClient>> listeners;
    for (int i = 0; i < 3; ++i) {
        listeners.push_back(subscriber({FOCUS}));
    }
    auto other = subscriber({IRIS});
    RawClient publisher;
    std::vector<Notify> records;
    for (uint32_t i = 0; i < COUNT; ++i) {
        records.push_back({EventId(FOCUS), 1, i});
    }
    records.push_back({EventId(SENTINEL), 0, 0});
    publisher.send(records);
    for (auto& listener : listeners) {
        auto received = listener->receiveUntil(SENTINEL);
        ASSERT_EQ(received.size(), COUNT);
        for (uint32_t i = 0; i < COUNT; ++i) {
            ASSERT_EQ(received[i].index, i);
        }
    }
    EXPECT_TRUE(other->receiveUntil(SENTINEL).empty());
}

TEST_F(BrokerForwarding, TheSenderGetsItsOwnRecordOnlyWhenSubscribed) {
    auto client = subscriber({FOCUS});
    client->send({{EventId(FOCUS), 0, 1}, {EventId(IRIS), 0, 2}, {EventId(SENTINEL), 0, 3}});
    auto received = client->receiveUntil(SENTINEL);
    ASSERT_EQ(ids(received), std::vector<uint32_t>{FOCUS});
    EXPECT_EQ(received[0].index, 1u);
}

TEST_F(BrokerForwarding, ARecordWrittenInTwoPiecesArrivesWhole) {
    auto listener = subscriber({FOCUS});
    RawClient publisher;
    const Notify record{EventId(FOCUS), 1, 0x0A0B0C0D};
    const auto* bytes = reinterpret_cast<const uint8_t*>(&record);
    publisher.sendBytes(bytes, 5);
    publisher.waitUntilTaken();
    publisher.sendBytes(bytes + 5, 7);
    publisher.send({{EventId(SENTINEL), 0, 0}});
    auto received = listener->receiveUntil(SENTINEL);
    ASSERT_EQ(received.size(), 1u);
    EXPECT_EQ(received[0].id, FOCUS);
    EXPECT_EQ(received[0].indexed, 1u);
    EXPECT_EQ(received[0].index, 0x0A0B0C0Du);
}

TEST_F(BrokerForwarding, ASubscriptionSplitAcrossWritesTakesEffect) {
    for (size_t cut : {5u, 12u, 17u}) {
        auto listener = std::make_unique<RawClient>();
        const Notify request[2] = {{Subscribe, 0, 0}, {EventId(FOCUS), 0, 0}};
        const auto* bytes = reinterpret_cast<const uint8_t*>(request);
        listener->sendBytes(bytes, cut);
        listener->waitUntilTaken();
        listener->sendBytes(bytes + cut, sizeof request - cut);
        listener->subscribe(SENTINEL);
        listener->sync();
        RawClient publisher;
        publisher.send(
            {{EventId(FOCUS), 0, static_cast<uint32_t>(cut)}, {EventId(SENTINEL), 0, 0}});
        auto received = listener->receiveUntil(SENTINEL);
        ASSERT_EQ(received.size(), 1u) << "cut after " << cut << " bytes";
        EXPECT_EQ(received[0].index, cut);
    }
}

} // namespace
} // namespace brokertest
