#include "settings-service/introspection_enum.h"

#include "printers.h"
#include "setjson.h"
#include "settings-service/introspection.h"
#include "settings-service/json.h"
#include "settings-service/log.h"
#include "settings-service/setters.h"

#include <cstring>

namespace {

const StructTypeInfo& structType(const char* name) {
    const StructTypeInfo* type = Introspection::findStructType(name);
    if (type == nullptr) {
        THROW_ERROR("Unknown struct \"%s\"", name);
    }
    return *type;
}

// The value object of one member value at `address`.
std::string memberValue(const StructInfo& member, const uint8_t* address) {
    switch (member.baseType) {
    case BaseInt:
        return Introspection::printValue(getIntIntrospection(address, 0), "int", "-2147483648",
                                         "2147483647");
    case BaseFloat:
        return Introspection::printValue(getFloatIntrospection(address, 0), "float", "-1e+38",
                                         "1e+38");
    case BaseBool:
        return Introspection::printBool(*address != 0);
    case BaseString: {
        const char* text = reinterpret_cast<const char*>(address);
        return "{\"value\":\"" +
               Introspection::escape(std::string(text, strnlen(text, member.elementSize))) +
               "\", \"type\": \"string\" }";
    }
    case BaseEnum: {
        const EnumInfo& info = Catalogue::enumNamed(member.typeName);
        return IntrospectionEnum::printEnum(
            getEnumIntrospection(address, 0, info.name, info.entries, info.entryCount), info);
    }
    default:
        return getStructIntrospection(address, 0, structType(member.typeName));
    }
}

} // namespace

std::string getStructIntrospection(const void* address, int index, const StructTypeInfo& type) {
    const uint8_t* element = static_cast<const uint8_t*>(address) + index * type.size;
    std::string text = "{";
    bool separate = false;
    for (const StructInfo& member : *type.members) {
        if (separate) {
            text += ",";
        }
        if (member.arrayLength > 0) {
            // The closing "]," already separates this member from the next.
            text += "\"" + std::string(member.name) + "\":[";
            for (uint32_t k = 0; k < member.arrayLength; ++k) {
                if (k > 0) {
                    text += ",";
                }
                text += memberValue(member, element + member.offset + k * member.elementSize);
            }
            text += "],";
            separate = false;
        } else {
            text += "\"" + std::string(member.name) +
                    "\": " + memberValue(member, element + member.offset);
            separate = true;
        }
    }
    return text + "}";
}

std::string setStructIntrospection(uint8_t* base, uint32_t memory, uint32_t variable, Notify notify,
                                   const char* text) {
    Json reader;
    if (!reader.parse(text)) {
        return std::string("Can't convert ") + text + " to struct";
    }
    return setJson(base, memory, variable, notify, reader.items);
}
