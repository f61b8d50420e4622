// Request and status flags in shared memory: a bool is stored and its change
// event posted on `broker` only when the value differs from what is stored.
#pragma once

#include "collaborators.h"

inline void setFlag(const BrokerLink& broker, bool& flag, EventId event, bool value) {
    if (flag == value) {
        return;
    }
    flag = value;
    broker.post(Notify{event, 0, 0});
}
