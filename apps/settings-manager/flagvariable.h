// Request and status flags in shared memory: a bool is stored and its change
// event posted on `broker` only when the value differs from what is stored.
#pragma once

#include "settings-service/notify.h"
#include "settings-service/serverconnection.h"

inline void setFlag(ServerConnection& broker, bool& flag, EventId event, bool value) {
    if (flag == value) {
        return;
    }
    flag = value;
    broker.postEvent(Notify{event, 0, 0});
}
