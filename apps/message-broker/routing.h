// What the broker does with the whole records that one client sent, apart
// from sockets, so that it can also run on bytes alone (the fuzz test).
//
// Records are taken in order: a command changes the sender's subscriptions;
// every other record is queued for each open peer subscribed to its id, the
// sender included.  Records that follow the sender's own closing are not
// taken.
//
// Two limits keep the queues, and so the broker, small whatever a client
// does, and choose whom to close so that a hostile or slow client never gets
// a well-behaved one cut off:
// - A peer's own queue may not pass OutputBuffer::LIMIT.  The peer is closed,
//   unless it is privileged (the broker's own user or root) and the sender is
//   not: then the sender, which floods it, is closed instead.
// - All queues together may not pass QueueTotal::LIMIT.  The unprivileged
//   peer with the most unread data is closed; when no unprivileged peer has
//   any, an unprivileged sender is closed, and only when the sender is
//   privileged too, the privileged peer with the most unread data.
// `close` is called with the peer to close and the limit that was passed; it
// must close it (set `open` false) and take its queued bytes off the total,
// as the caller does with the bytes it writes (QueueTotal::bytes).
#pragma once

#include "peer.h"
#include "settings-service/notify.h"

#include <cstddef>
#include <span>

struct QueueTotal {
    static constexpr size_t LIMIT = 4 * 1024 * 1024;
    size_t bytes = 0;
};

enum class QueueLimit { Own, Total };

namespace routing {

// The open peer with the most queued bytes among the privileged or the
// unprivileged ones; null when none of them has any.
template <class Peers> Peer* largestQueue(Peers& peers, bool privileged) {
    Peer* largest = nullptr;
    for (auto& peer : peers) {
        if (peer->open && peer->privileged == privileged && !peer->output.empty() &&
            (largest == nullptr || peer->output.pending() > largest->output.pending())) {
            largest = &*peer;
        }
    }
    return largest;
}

// Closes peers until the total is within its limit.
template <class Peers, class Close>
void keepTotal(Peer& from, Peers& peers, QueueTotal& total, Close& close) {
    while (total.bytes > QueueTotal::LIMIT) {
        Peer* victim = largestQueue(peers, false);
        if (victim == nullptr) {
            victim = from.privileged ? largestQueue(peers, true) : &from;
        }
        if (victim == nullptr || !victim->open) {
            return;
        }
        close(*victim, QueueLimit::Total);
    }
}

} // namespace routing

// `peers`: a range of pointers (plain or owning) to Peer or a class derived
// from it; `close` is called with such an element's referent (or `from`).
template <class Peers, class Close>
void takeRecords(Peer& from, std::span<const Notify> records, Peers& peers, QueueTotal& total,
                 Close&& close) {
    for (const Notify& record : records) {
        if (!from.open) {
            return;
        }
        if (from.subscriptions.apply(record)) {
            continue;
        }
        for (auto& peer : peers) {
            if (!from.open) {
                return;
            }
            if (!peer->open || !peer->subscriptions.contains(record.id)) {
                continue;
            }
            if (!peer->output.append(record)) {
                const bool floods = &*peer != &from && peer->privileged && !from.privileged;
                close(floods ? from : static_cast<Peer&>(*peer), QueueLimit::Own);
                continue;
            }
            total.bytes += sizeof record;
            routing::keepTotal(from, peers, total, close);
        }
    }
}
