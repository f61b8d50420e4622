// One client's subscriptions and the interpretation of its command records.
//
// Commands: {Subscribe} and {Unsubscribe} take the id of the record that
// follows them (its other two words are not looked at); {SubscribeAll} asks
// for every event; {UnsubscribeAll} cancels every subscription, including a
// SubscribeAll.  After SubscribeAll, Unsubscribe of an id excludes that one id
// until it is subscribed again or the next SubscribeAll.  A command whose
// operand has not arrived yet waits for it, across reads.
#pragma once

#include "notify.h"

#include <cstdint>
#include <unordered_set>

class SubscriptionSet {
public:
    // Takes one record from the client: returns true when the record was a
    // command or a command's operand (and is not to be forwarded).
    bool apply(const Notify& record);
    bool contains(uint32_t id) const { return all != (ids.count(id) != 0); }

private:
    bool all = false;
    // The subscribed ids, or, while `all` is set, the excluded ones.
    std::unordered_set<uint32_t> ids;
    // Subscribe or Unsubscribe while waiting for its operand, else Invalid.
    EventId pending = Invalid;
};
