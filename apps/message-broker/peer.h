// One client as the broker's routing sees it, apart from its socket: whether
// it is still open, its subscriptions, the tail of a record it has not
// finished sending and the records queued for it.
#pragma once

#include "brokerprotocol.h"
#include "outputbuffer.h"
#include "subscriptionset.h"

struct Peer {
    bool open = true; // false once closed; the broker forgets it after the wake-up
    SubscriptionSet subscriptions;
    RecordReader reader;
    OutputBuffer output;
};
