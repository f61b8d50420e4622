// The variable that a broker record announces: its change event names the
// variable; an indexed record names one element of an array.  `watch
// --values` and the inspector's event stream read the value they show from it.
#pragma once

#include "device.h"
#include "settings-service/notify.h"

#include <cstdint>
#include <optional>

struct EventTarget {
    uint32_t memory;
    uint32_t variable;
    std::optional<uint32_t> index; // the element of an indexed record
    // False when the memory is not present or the element is outside the array.
    bool readable;
};

// Nullopt for a record of no variable (a command, an event of another program).
std::optional<EventTarget> eventTarget(const Device& device, const Notify& notify);
