// One client's subscriptions and the interpretation of its command records.
//
// Commands: {Subscribe} and {Unsubscribe} take the id of the record that
// follows them (its other two words are not looked at); {SubscribeAll} asks
// for every event; {UnsubscribeAll} cancels every subscription, including a
// SubscribeAll.  After SubscribeAll, Unsubscribe of an id excludes that one id
// until it is subscribed again or the next SubscribeAll.  A command whose
// operand has not arrived yet waits for it, across reads.
//
// Choice made here: the set is a bitset over the event table (EVENT_ID_COUNT
// ids), so that it costs the same few bytes whatever a client sends; an
// operand outside the table is refused (the command has no effect; refusals()
// counts them for the broker, which logs them).  SubscribeAll still delivers
// every record, ids outside the table included.
#pragma once

#include "settings-service/notify.h"

#include <bitset>
#include <cstdint>

class SubscriptionSet {
public:
    // Takes one record from the client: returns true when the record was a
    // command or a command's operand (and is not to be forwarded).
    bool apply(const Notify& record);
    bool contains(uint32_t id) const { return all != (id < EVENT_ID_COUNT && ids.test(id)); }
    // The operands refused so far (outside the event table), and the last one.
    uint32_t refusals() const { return refusedCount; }
    uint32_t lastRefusal() const { return lastRefusedId; }

private:
    bool all = false;
    uint32_t refusedCount = 0;
    uint32_t lastRefusedId = 0;
    // Subscribe or Unsubscribe while waiting for its operand, else Invalid.
    EventId pending = Invalid;
    // The subscribed ids, or, while `all` is set, the excluded ones.
    std::bitset<EVENT_ID_COUNT> ids;
};
