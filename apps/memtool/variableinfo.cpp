#include "variableinfo.h"

#include "settings-service/catalogue.h"
#include "settings-service/introspection.h"
#include "settings-service/introspection_enum.h"
#include "settings-service/memories.h"
#include "settings-service/setters.h"

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
    if (Introspection::getVarBaseType(memory, variable) != BaseString) {
        return std::nullopt;
    }
    return static_cast<uint32_t>(std::stoul(Introspection::getVarArrayLen(memory, variable)));
}

bool isBuffer(uint32_t memory, uint32_t variable) {
    return Introspection::getVarBaseType(memory, variable) == BaseString &&
           descriptor(memory, variable).getter != &getStringIntrospection;
}

bool isWritable(uint32_t memory, uint32_t variable) {
    return descriptor(memory, variable).setter != &setReadOnlyIntrospection;
}

std::vector<std::string> enumNames(uint32_t memory, uint32_t variable) {
    std::vector<std::string> names;
    if (Introspection::getVarBaseType(memory, variable) != BaseEnum) {
        return names;
    }
    const uint32_t type =
        IntrospectionEnum::getEnumIndex(Introspection::getVarType(memory, variable));
    for (uint32_t entry = 0; entry < IntrospectionEnum::getEnumEntryCount(type); ++entry) {
        names.emplace_back(IntrospectionEnum::getEnumEntryName(type, entry));
    }
    return names;
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
    if (entry.baseType == BaseString && !isBuffer(memory, variable)) {
        return std::strncmp(reinterpret_cast<const char*>(now),
                            reinterpret_cast<const char*>(start), entry.elementSize) == 0;
    }
    return std::memcmp(now, start, entry.elementSize) == 0;
}
