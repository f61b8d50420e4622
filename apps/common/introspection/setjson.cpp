#include "setjson.h"

#include "settings-service/catalogue.h"
#include "settings-service/introspection.h"
#include "settings-service/serverconnection.h"
#include "structwalk.h"
#include "settings-service/valuecodec.h"

#include <cstring>

namespace {

// Stores each member value as the setters read it, noting whether any stored
// byte changed.
struct Store {
    bool changed = false;

    uint8_t* at(uint8_t* start, uint32_t offset) const { return start + offset; }

    std::string notAnArray(const std::string& text, const std::string& typeName) const {
        return "Can't convert " + text + " to an array of " + typeName;
    }

    std::string notAnObject(const std::string& text, const std::string& typeName) const {
        return "Can't convert " + text + " to " + typeName;
    }

    std::string scalar(uint8_t* address, const ElementType& type, const std::string& text) {
        const ValueCodec::Reading reading = ValueCodec::read(type, text);
        if (!reading.error.empty()) {
            return reading.error;
        }
        if (std::memcmp(address, reading.bytes.data(), reading.bytes.size()) != 0) {
            std::memcpy(address, reading.bytes.data(), reading.bytes.size());
            changed = true;
        }
        return "";
    }
};

} // namespace

std::string setJson(uint8_t* base, uint32_t memory, uint32_t variable, Notify notify,
                    const std::vector<Json::Item>& members) {
    const uint32_t length = Introspection::getElementCount(memory, variable);
    const VariableDescriptor& entry = Catalogue::variable(memory, variable);
    if (entry.structMembers == nullptr) {
        return std::string(entry.name) + " is not a struct";
    }
    if (notify.index >= length) {
        return "Element " + std::to_string(notify.index) + " exceeds the array length " +
               std::to_string(length);
    }
    Store store;
    StructWalk<Store> writer(store);
    writer.applyMembers(base + entry.offset + notify.index * entry.elementSize,
                        *entry.structMembers, entry.typeName, members, "");
    if (store.changed) {
        postEvent(notify);
    }
    return writer.errors;
}
