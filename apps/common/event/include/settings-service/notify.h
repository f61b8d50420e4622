// The broker's one record: three little-endian 32-bit words, no framing.
#pragma once

#include "settings-service/eventid.h"

#include <cstdint>

struct Notify {
    EventId id;       // which event
    uint32_t indexed; // 1: the event concerns element `index` of an array variable
    uint32_t index;
};

static_assert(sizeof(Notify) == 12, "Notify travels as exactly 12 bytes");
