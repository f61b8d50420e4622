// What the broker does with the whole records that one client sent, apart
// from sockets, so that it can also run on bytes alone (the fuzz test).
//
// Records are taken in order: a command changes the sender's subscriptions;
// every other record is queued for each open peer subscribed to its id, the
// sender included.  A peer whose queue would pass OutputBuffer::LIMIT is
// handed to `overflow`, which must close it (set `open` false).  Records that
// follow the sender's own closing are not taken.
#pragma once

#include "notify.h"
#include "peer.h"

#include <span>

// `peers`: a range of pointers (plain or owning) to Peer or a class derived
// from it; `overflow` is called with such an element's referent.
template <class Peers, class Overflow>
void takeRecords(Peer& from, std::span<const Notify> records, Peers& peers, Overflow&& overflow) {
    for (const Notify& record : records) {
        if (!from.open) {
            return;
        }
        if (from.subscriptions.apply(record)) {
            continue;
        }
        for (auto& peer : peers) {
            if (peer->open && peer->subscriptions.contains(record.id) &&
                !peer->output.append(record)) {
                overflow(*peer);
            }
        }
    }
}
