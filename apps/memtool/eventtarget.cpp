#include "eventtarget.h"

#include "device.h"
#include "settings-service/eventid.h"
#include "settings-service/introspection.h"

std::optional<EventTarget> eventTarget(const Device& device, const Notify& notify) {
    if (notify.id >= EVENT_ID_COUNT) {
        return std::nullopt;
    }
    EventTarget found{};
    Introspection::getVarLocation(notify, found.memory, found.variable);
    if (Introspection::getVarEvent(found.memory, found.variable).id != notify.id) {
        return std::nullopt;
    }
    if (notify.indexed == 1) {
        found.index = notify.index;
    }
    found.readable = device.memoryExists(found.memory) &&
                     (!found.index ||
                      *found.index < Introspection::getElementCount(found.memory, found.variable));
    return found;
}
