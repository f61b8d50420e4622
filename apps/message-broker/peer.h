// One client as the broker's routing sees it, apart from its socket: whether
// it is still open, whether it is privileged, its subscriptions, the tail of a record it has not
// finished sending and the records queued for it.
#pragma once

#include "outputbuffer.h"
#include "settings-service/brokerprotocol.h"
#include "subscriptionset.h"

struct Peer {
    bool open = true; // false once closed; the broker forgets it after the wake-up
    // The broker's own user or root: kept when another can be closed instead (routing.h).
    bool privileged = false;
    SubscriptionSet subscriptions;
    RecordReader reader;
    OutputBuffer output;
};
