#include "settings-service/valuecodec.h"

#include "settings-service/introspection.h"
#include "settings-service/json.h"
#include "structwalk.h"

#include <algorithm>
#include <cctype>
#include <cstdio>
#include <cstdlib>

// The strict check, in a file of its own so that a program that never checks
// strictly (the service) does not carry it.
namespace ValueCodec {

namespace {

// Checks each member value by the strict rules; nothing is addressed.
struct Check {
    uint8_t* at(uint8_t*, uint32_t) const { return nullptr; }

    std::string notAnArray(const std::string&, const std::string& typeName) const {
        return "not an array of " + typeName;
    }

    std::string notAnObject(const std::string&, const std::string& typeName) const {
        return "not an object of " + typeName;
    }

    std::string scalar(uint8_t*, const ElementType& type, const std::string& text) const {
        return refusal(type, text);
    }
};

std::string quoted(const std::string& text) {
    return "\"" + text + "\"";
}

std::string partly(const std::string& text, size_t end) {
    return "only " + quoted(text.substr(0, end)) + " of " + quoted(text) + " would be read";
}

std::string intRefusal(const std::string& text) {
    size_t setterEnd = 0;
    const std::optional<int32_t> setterValue = readInt(text, 0, &setterEnd);
    if (!setterValue) {
        return cannotConvert(text, "int");
    }
    if (setterEnd != text.size()) {
        return partly(text, setterEnd);
    }
    size_t decimalEnd = 0;
    const std::optional<int32_t> decimalValue = readInt(text, 10, &decimalEnd);
    if (!decimalValue) {
        decimalEnd = 0;
    }
    if (decimalEnd != text.size() || decimalValue != setterValue) {
        return quoted(text) + " is not a decimal integer: the range check would read " +
               (decimalEnd == 0 ? "nothing" : std::to_string(*decimalValue)) + " and the setter " +
               std::to_string(*setterValue);
    }
    return "";
}

// The count of significant digits in a decimal number's mantissa.
size_t significantDigits(const std::string& text) {
    size_t count = 0;
    for (char c : text.substr(0, text.find_first_of("eE"))) {
        if (std::isdigit(static_cast<unsigned char>(c)) && (count > 0 || c != '0')) {
            ++count;
        }
    }
    return count;
}

std::string scientific(double value, size_t digits) {
    char text[64];
    std::snprintf(text, sizeof text, "%.*e", static_cast<int>(digits - 1), value);
    return text;
}

std::string floatRefusal(const std::string& text) {
    size_t end = 0;
    const std::optional<float> value = readFloat(text, &end);
    if (!value) {
        return cannotConvert(text, "float");
    }
    if (end != text.size()) {
        return partly(text, end);
    }
    const bool decimal = text.find_first_of("xXnNiI") == std::string::npos;
    const size_t digits = significantDigits(text);
    if (decimal && digits > 0 &&
        scientific(*value, digits) != scientific(std::strtod(text.c_str(), nullptr), digits)) {
        char stored[32];
        std::snprintf(stored, sizeof stored, "%.9g", *value);
        return "a float cannot hold " + quoted(text) + " exactly: it would be stored as " + stored;
    }
    return "";
}

std::string stringRefusal(const std::string& text, uint32_t capacity) {
    if (text.find('\0') != std::string::npos) {
        return "the text holds a NUL character, which would end it there";
    }
    if (text.size() + 1 > capacity) {
        return "the text has " + std::to_string(text.size()) + " characters; at most " +
               std::to_string(capacity == 0 ? 0 : capacity - 1) + " fit (capacity " +
               std::to_string(capacity) + " bytes with the terminator)";
    }
    return "";
}

std::string bufferRefusal(const std::string& text, uint32_t bytes) {
    if (!std::all_of(text.begin(), text.end(),
                     [](char c) { return ValueCodec::hexDigit(c).has_value(); })) {
        return quoted(text) + " is not hexadecimal: a buffer takes two hex digits per byte";
    }
    if (text.size() % 2 != 0) {
        return quoted(text) + " has an odd number of hex digits: a buffer takes two per byte";
    }
    if (text.size() > 2 * bytes) {
        return "the buffer holds " + std::to_string(bytes) + " bytes (" +
               std::to_string(2 * bytes) + " hex digits); the text has " +
               std::to_string(text.size()) + " digits";
    }
    return "";
}

std::string structTextRefusal(const StructTypeInfo& type, const std::string& text) {
    Json members;
    if (!members.parse(text) || members.outerClose != '}') {
        return "the value of a struct must be a JSON object" +
               (members.errorPosition < 0
                    ? std::string()
                    : " (error at " + std::to_string(members.errorPosition) + ")");
    }
    return structRefusal(type, members.items);
}

} // namespace

std::string refusal(const ElementType& type, const std::string& text) {
    switch (type.kind) {
    case ValueKind::Int:
        return intRefusal(text);
    case ValueKind::Float:
        return floatRefusal(text);
    case ValueKind::Bool:
        return readBool(text) ? "" : NOT_A_BOOL;
    case ValueKind::String:
        return stringRefusal(text, type.capacity);
    case ValueKind::Buffer:
        return bufferRefusal(text, type.capacity);
    case ValueKind::Enum:
        return readEnum(type.enumType->entries, type.enumType->entryCount, text)
                   ? ""
                   : notAnEntry(text, type.enumType->name);
    case ValueKind::Struct:
        break;
    }
    return structTextRefusal(*type.structType, text);
}

std::string refusal(uint32_t memory, uint32_t variable, const std::string& text) {
    const VariableType& type = Introspection::typeOf(memory, variable);
    if (type.readOnly) {
        return std::string(Introspection::getVarName(memory, variable)) + " is read-only";
    }
    const ValueKind kind = type.element.kind;
    if (kind != ValueKind::Buffer && kind != ValueKind::Struct) {
        std::string error;
        if (!Introspection::checkMinMax(memory, variable, text, error)) {
            if (!error.empty()) {
                return error.substr(0, error.find_last_not_of('\n') + 1);
            }
            return outsideRange(Introspection::getVarMin(memory, variable),
                                Introspection::getVarMax(memory, variable), text);
        }
    }
    return refusal(type.element, text);
}

std::string structRefusal(const StructTypeInfo& type, const std::vector<Json::Item>& members) {
    Check check;
    StructWalk<Check> walk(check);
    walk.applyMembers(nullptr, *type.members, type.name, members, "");
    return walk.errors;
}

} // namespace ValueCodec
