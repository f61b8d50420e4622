#include "introspection_enum.h"

#include "log.h"
#include "setters.h"

#include <cstring>

namespace IntrospectionEnum {

namespace {
void checkEnum(uint32_t enumIndex) {
    if (enumIndex >= ENUM_ARRAY_SIZE) {
        THROW_ERROR("Index exceeds limit");
    }
}
} // namespace

uint32_t getEnumCount() {
    return ENUM_ARRAY_SIZE;
}

const char* getEnumName(uint32_t enumIndex) {
    checkEnum(enumIndex);
    return ENUM_ARRAY[enumIndex].name;
}

uint32_t getEnumEntryCount(uint32_t enumIndex) {
    checkEnum(enumIndex);
    return ENUM_ARRAY[enumIndex].entryCount;
}

const char* getEnumEntryName(uint32_t enumIndex, uint32_t entry) {
    checkEnum(enumIndex);
    if (entry >= ENUM_ARRAY[enumIndex].entryCount) {
        THROW_ERROR("Index exceeds limit");
    }
    return ENUM_ARRAY[enumIndex].entries[entry];
}

uint32_t getEnumIndex(const char* name) {
    for (uint32_t enumIndex = 0; enumIndex < ENUM_ARRAY_SIZE; ++enumIndex) {
        if (std::strcmp(ENUM_ARRAY[enumIndex].name, name) == 0) {
            return enumIndex;
        }
    }
    THROW_ERROR("Unknown enum \"%s\"", name);
}

std::string printEnum(const std::string& value, const char* enumName) {
    return printEnum(value, ENUM_ARRAY[getEnumIndex(enumName)]);
}

std::string printEnum(const std::string& value, const EnumInfo& info) {
    std::string text =
        "{ \"value\": \"" + value + "\", \"type\": \"" + info.name + "\", \"textid\": [ ";
    for (uint32_t entry = 0; entry < info.entryCount; ++entry) {
        if (entry > 0) {
            text += ",";
        }
        text += std::string("\"") + info.entries[entry] + "\"";
    }
    return text + "]}";
}

} // namespace IntrospectionEnum

std::string getEnumIntrospection(const void* address, int index, const char* enumName,
                                 const char* const* entries, uint32_t entryCount) {
    const uint32_t value = static_cast<const uint32_t*>(address)[index];
    if (value >= entryCount) {
        LOG(Error, "Value %i of enum %s is above number of entries (%i)", static_cast<int>(value),
            enumName, static_cast<int>(entryCount));
        return "INVALID_VALUE: " + std::to_string(value);
    }
    return entries[value];
}

std::string setEnumIntrospection(uint8_t* base, uint32_t memory, uint32_t variable, Notify notify,
                                 const char* text, const char* enumName, const char* const* entries,
                                 uint32_t entryCount) {
    for (uint32_t entry = 0; entry < entryCount; ++entry) {
        if (std::strcmp(text, entries[entry]) == 0) {
            int32_t& target =
                *reinterpret_cast<int32_t*>(base + MEMORY_ARRAY[memory].variables[variable].offset);
            setVariable<int32_t>(target, notify, static_cast<int32_t>(entry));
            return "";
        }
    }
    return std::string(text) + " is not part of enum " + enumName;
}
