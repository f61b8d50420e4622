// The routing's queue limits, without sockets: whom a client's own limit and
// the limit on all queues together close, and that the total stays the sum
// of the queues.
#include "routing.h"

#include <gtest/gtest.h>

#include <memory>
#include <vector>

namespace {

constexpr EventId FOCUS = static_cast<EventId>(167);
constexpr size_t RECORD = sizeof(Notify);

struct Closing {
    const Peer* peer;
    QueueLimit limit;
};

class RoutingTest : public testing::Test {
protected:
    // A peer subscribed to FOCUS, privileged or not.
    Peer& subscriber(bool privileged) {
        Peer& peer = added(privileged);
        peer.subscriptions.apply({Subscribe, 0, 0});
        peer.subscriptions.apply({FOCUS, 0, 0});
        return peer;
    }
    Peer& added(bool privileged) {
        peers.push_back(std::make_unique<Peer>());
        peers.back()->privileged = privileged;
        return *peers.back();
    }
    // `count` FOCUS records from `from`, in batches as the broker reads them.
    void send(Peer& from, size_t count) {
        std::vector<Notify> batch(256, Notify{FOCUS, 0, 0});
        for (size_t sent = 0; sent < count && from.open; sent += batch.size()) {
            const size_t now = std::min(batch.size(), count - sent);
            takeRecords(from, std::span<const Notify>(batch).first(now), peers, total,
                        [this](Peer& peer, QueueLimit limit) {
                            EXPECT_TRUE(peer.open);
                            closed.push_back({&peer, limit});
                            total.bytes -= peer.output.pending();
                            peer.output = OutputBuffer();
                            peer.open = false;
                        });
            EXPECT_EQ(total.bytes, queued());
        }
    }
    // `count` records queued for `peer` before the test's traffic: data it has not read.
    void unread(Peer& peer, size_t count) {
        for (size_t i = 0; i < count; ++i) {
            ASSERT_TRUE(peer.output.append({FOCUS, 0, 0}));
            total.bytes += RECORD;
        }
    }
    size_t queued() const {
        size_t sum = 0;
        for (const auto& peer : peers) {
            sum += peer->output.pending();
        }
        return sum;
    }

    std::vector<std::unique_ptr<Peer>> peers;
    QueueTotal total;
    std::vector<Closing> closed;
};

TEST_F(RoutingTest, ASubscriberPastItsOwnLimitIsClosed) {
    Peer& sender = added(false);
    Peer& slow = subscriber(false);
    Peer& other = subscriber(true);
    unread(slow, 1000);
    send(sender, OutputBuffer::LIMIT / RECORD - 500);
    ASSERT_EQ(closed.size(), 1u);
    EXPECT_EQ(closed[0].peer, &slow);
    EXPECT_EQ(closed[0].limit, QueueLimit::Own);
    EXPECT_TRUE(sender.open);
    EXPECT_TRUE(other.open);
    EXPECT_EQ(other.output.pending(), (OutputBuffer::LIMIT / RECORD - 500) * RECORD);
}

TEST_F(RoutingTest, AnUnprivilegedSenderThatFloodsAPrivilegedSubscriberIsClosedInstead) {
    Peer& privileged = subscriber(true);
    Peer& sender = added(false);
    send(sender, OutputBuffer::LIMIT / RECORD + 10);
    ASSERT_EQ(closed.size(), 1u);
    EXPECT_EQ(closed[0].peer, &sender);
    EXPECT_EQ(closed[0].limit, QueueLimit::Own);
    EXPECT_TRUE(privileged.open);
    EXPECT_EQ(privileged.output.pending(), OutputBuffer::LIMIT / RECORD * RECORD);
}

TEST_F(RoutingTest, APrivilegedSenderClosesTheSubscriberItOverflows) {
    Peer& privileged = subscriber(true);
    Peer& sender = added(true);
    send(sender, OutputBuffer::LIMIT / RECORD + 10);
    ASSERT_EQ(closed.size(), 1u);
    EXPECT_EQ(closed[0].peer, &privileged);
    EXPECT_TRUE(sender.open);
}

TEST_F(RoutingTest, PastTheTotalTheUnprivilegedPeerWithTheMostUnreadDataIsClosed) {
    Peer& sender = added(true);
    // Five subscribers that never read, each within its own limit: the total
    // passes first.  The privileged one is never taken while others are there.
    Peer& privileged = subscriber(true);
    std::vector<Peer*> others;
    for (int i = 0; i < 4; ++i) {
        others.push_back(&subscriber(false));
    }
    // One of them has more unread data than the rest.
    Peer& most = *others[2];
    unread(most, 1000);
    send(sender, QueueTotal::LIMIT / (5 * RECORD) + 10);
    ASSERT_FALSE(closed.empty());
    EXPECT_EQ(closed[0].peer, &most);
    EXPECT_EQ(closed[0].limit, QueueLimit::Total);
    for (const Closing& closing : closed) {
        EXPECT_NE(closing.peer, &privileged);
        EXPECT_NE(closing.peer, &sender);
    }
    EXPECT_TRUE(privileged.open);
    EXPECT_LE(total.bytes, QueueTotal::LIMIT);
}

TEST_F(RoutingTest, PastTheTotalAnUnprivilegedSenderIsClosedBeforeAPrivilegedSubscriber) {
    std::vector<Peer*> privileged;
    for (int i = 0; i < 5; ++i) {
        privileged.push_back(&subscriber(true));
    }
    Peer& sender = added(false);
    send(sender, QueueTotal::LIMIT / (5 * RECORD) + 10);
    ASSERT_EQ(closed.size(), 1u);
    EXPECT_EQ(closed[0].peer, &sender);
    EXPECT_EQ(closed[0].limit, QueueLimit::Total);
    for (Peer* peer : privileged) {
        EXPECT_TRUE(peer->open);
    }
}

TEST_F(RoutingTest, AmongPrivilegedPeersAloneTheOneWithTheMostUnreadDataIsClosed) {
    Peer& sender = added(true);
    std::vector<Peer*> privileged;
    for (int i = 0; i < 5; ++i) {
        privileged.push_back(&subscriber(true));
    }
    unread(*privileged[3], 1);
    send(sender, QueueTotal::LIMIT / (5 * RECORD) + 10);
    ASSERT_FALSE(closed.empty());
    EXPECT_EQ(closed[0].peer, privileged[3]);
    EXPECT_EQ(closed[0].limit, QueueLimit::Total);
    EXPECT_TRUE(sender.open);
    EXPECT_LE(total.bytes, QueueTotal::LIMIT);
}

} // namespace
