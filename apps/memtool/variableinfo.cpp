#include "variableinfo.h"

#include "settings-service/catalogue.h"
#include "settings-service/introspection.h"
#include "settings-service/memories.h"

#include <cstring>
#include <map>

namespace {

// The indexes come from the name lookups of names.h and are valid.
const VariableDescriptor& descriptor(uint32_t memory, uint32_t variable) {
    return MEMORY_ARRAY[memory].variables[variable];
}

// The default records, made once per memory when first asked for.
const std::vector<uint8_t>& defaultImage(uint32_t memory) {
    static std::map<uint32_t, std::vector<uint8_t>> images;
    auto found = images.find(memory);
    if (found == images.end()) {
        found = images.emplace(memory, gen::defaultImage(memory)).first;
    }
    return found->second;
}

} // namespace

std::optional<uint32_t> stringCapacity(uint32_t memory, uint32_t variable) {
    const ElementType& element = Introspection::typeOf(memory, variable).element;
    if (element.kind != ValueKind::String && element.kind != ValueKind::Buffer) {
        return std::nullopt;
    }
    return element.capacity;
}

bool isBuffer(uint32_t memory, uint32_t variable) {
    return Introspection::typeOf(memory, variable).element.kind == ValueKind::Buffer;
}

bool isWritable(uint32_t memory, uint32_t variable) {
    return !Introspection::typeOf(memory, variable).readOnly;
}

std::vector<std::string> enumNames(uint32_t memory, uint32_t variable) {
    const EnumInfo* type = Introspection::typeOf(memory, variable).element.enumType;
    if (type == nullptr) {
        return {};
    }
    return std::vector<std::string>(type->entries, type->entries + type->entryCount);
}

std::string defaultText(uint32_t memory, uint32_t variable, uint32_t index) {
    const VariableDescriptor& entry = descriptor(memory, variable);
    return entry.getter(defaultImage(memory).data() + entry.offset, static_cast<int>(index));
}

bool holdsDefault(uint32_t memory, uint32_t variable, uint32_t index) {
    const VariableDescriptor& entry = descriptor(memory, variable);
    const size_t at = entry.offset + index * entry.elementSize;
    const uint8_t* now = entry.memoryBase + at;
    const uint8_t* start = defaultImage(memory).data() + at;
    if (entry.type->element.kind == ValueKind::String) {
        return std::strncmp(reinterpret_cast<const char*>(now),
                            reinterpret_cast<const char*>(start), entry.elementSize) == 0;
    }
    return std::memcmp(now, start, entry.elementSize) == 0;
}
