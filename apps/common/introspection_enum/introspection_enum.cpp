#include "settings-service/introspection_enum.h"

#include "settings-service/log.h"
#include "settings-service/setters.h"
#include "settings-service/valuecodec.h"

namespace IntrospectionEnum {

namespace {

using Catalogue::tables;

void checkEnum(uint32_t enumIndex) {
    if (enumIndex >= tables().enumCount) {
        THROW_ERROR("Index exceeds limit");
    }
}

} // namespace

uint32_t getEnumCount() {
    return tables().enumCount;
}

const char* getEnumName(uint32_t enumIndex) {
    checkEnum(enumIndex);
    return tables().enums[enumIndex].name;
}

uint32_t getEnumEntryCount(uint32_t enumIndex) {
    checkEnum(enumIndex);
    return tables().enums[enumIndex].entryCount;
}

const char* getEnumEntryName(uint32_t enumIndex, uint32_t entry) {
    checkEnum(enumIndex);
    if (entry >= tables().enums[enumIndex].entryCount) {
        THROW_ERROR("Index exceeds limit");
    }
    return tables().enums[enumIndex].entries[entry];
}

uint32_t getEnumIndex(const char* name) {
    const std::optional<uint32_t> found = Catalogue::findEnum(name);
    if (!found) {
        THROW_ERROR("Unknown enum \"%s\"", name);
    }
    return *found;
}

std::string printEnum(const std::string& value, const char* enumName) {
    return printEnum(value, tables().enums[getEnumIndex(enumName)]);
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
    const std::optional<uint32_t> entry = ValueCodec::readEnum(entries, entryCount, text);
    if (!entry) {
        return ValueCodec::notAnEntry(text, enumName);
    }
    int32_t& target =
        *reinterpret_cast<int32_t*>(base + Catalogue::variable(memory, variable).offset);
    setVariable<int32_t>(target, notify, static_cast<int32_t>(*entry));
    return "";
}
