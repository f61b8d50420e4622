#include "valuecodec.h"

#include "introspection.h"
#include "json.h"
#include "setjson.h"

#include <algorithm>
#include <cctype>
#include <cfloat>
#include <climits>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <exception>
#include <vector>

namespace ValueCodec {

namespace {

// The texts of the range check's limits where a variable states no bound.  The
// smallest normal float is written just above its exact value: std::stof on
// the device's core (which finds a number tiny before rounding) refuses
// "1.17549435e-38", which lies a hair below it.
constexpr const char* INT_LOWEST = "-2147483648";
constexpr const char* INT_HIGHEST = "2147483647";
constexpr const char* FLOAT_LOWEST = "1.175494351e-38";
constexpr const char* FLOAT_HIGHEST = "3.40282347e+38";

std::optional<unsigned> hexDigit(char c) {
    if (c >= '0' && c <= '9') {
        return c - '0';
    }
    if (c >= 'a' && c <= 'f') {
        return c - 'a' + 10;
    }
    if (c >= 'A' && c <= 'F') {
        return c - 'A' + 10;
    }
    return std::nullopt;
}

template <typename T> std::string bytesOf(const T& value) {
    return std::string(reinterpret_cast<const char*>(&value), sizeof value);
}

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
    if (!std::all_of(text.begin(), text.end(), [](char c) { return hexDigit(c).has_value(); })) {
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

std::string structRefusal(const StructTypeInfo& type, const std::string& text) {
    Json members;
    if (!members.parse(text) || members.outerClose != '}') {
        return "the value of a struct must be a JSON object" +
               (members.errorPosition < 0
                    ? std::string()
                    : " (error at " + std::to_string(members.errorPosition) + ")");
    }
    return checkJson(type, members.items);
}

} // namespace

std::optional<int32_t> readInt(const std::string& text, int base, std::size_t* used) {
    try {
        std::size_t end = 0;
        const int value = std::stoi(text, &end, base);
        if (used != nullptr) {
            *used = end;
        }
        return value;
    } catch (const std::exception&) {
        return std::nullopt;
    }
}

std::optional<float> readFloat(const std::string& text, std::size_t* used) {
    try {
        std::size_t end = 0;
        const float value = std::stof(text, &end);
        if (used != nullptr) {
            *used = end;
        }
        return value;
    } catch (const std::exception&) {
        return std::nullopt;
    }
}

std::string intText(int32_t value) {
    char text[16];
    std::snprintf(text, sizeof text, "%d", value);
    return text;
}

std::string floatText(float value) {
    return std::to_string(value);
}

const char* boolText(bool value) {
    return value ? "true" : "false";
}

std::string bufferText(const uint8_t* bytes, unsigned length) {
    static const char DIGITS[] = "0123456789abcdef";
    std::string text(2 * length, '0');
    for (unsigned i = 0; i < length; ++i) {
        text[2 * i] = DIGITS[bytes[i] >> 4];
        text[2 * i + 1] = DIGITS[bytes[i] & 0x0f];
    }
    return text;
}

std::string cannotConvert(const std::string& text, const char* type) {
    return "Can't convert " + text + " to " + type;
}

std::optional<bool> readBool(std::string_view text) {
    if (text == "true") {
        return true;
    }
    if (text == "false") {
        return false;
    }
    return std::nullopt;
}

std::optional<uint32_t> readEnum(const char* const* entries, uint32_t count,
                                 std::string_view text) {
    for (uint32_t entry = 0; entry < count; ++entry) {
        if (text == entries[entry]) {
            return entry;
        }
    }
    return std::nullopt;
}

std::string notAnEntry(std::string_view text, const char* enumName) {
    return std::string(text) + " is not part of enum " + enumName;
}

std::size_t keptLength(const char* text, uint32_t capacity) {
    return capacity == 0 ? 0 : strnlen(text, capacity - 1);
}

std::optional<char> readBuffer(const char* text, uint8_t* target, unsigned length) {
    bool ended = false;
    for (unsigned i = 0; i < length; ++i) {
        unsigned digits[2] = {0, 0};
        for (unsigned k = 0; k < 2; ++k) {
            ended = ended || text[2 * i + k] == '\0';
            if (ended) {
                continue;
            }
            const std::optional<unsigned> digit = hexDigit(text[2 * i + k]);
            if (!digit) {
                return text[2 * i + k];
            }
            digits[k] = *digit;
        }
        target[i] = static_cast<uint8_t>(16 * digits[0] + digits[1]);
    }
    return std::nullopt;
}

Reading read(const ElementType& type, const std::string& text) {
    switch (type.kind) {
    case ValueKind::Int:
        if (const std::optional<int32_t> value = readInt(text, 0)) {
            return {"", bytesOf(*value)};
        }
        return {cannotConvert(text, "int"), ""};
    case ValueKind::Float:
        if (const std::optional<float> value = readFloat(text)) {
            return {"", bytesOf(*value)};
        }
        return {cannotConvert(text, "float"), ""};
    case ValueKind::Bool:
        if (const std::optional<bool> value = readBool(text)) {
            return {"", std::string(1, *value ? '\1' : '\0')};
        }
        return {NOT_A_BOOL, ""};
    case ValueKind::String:
        if (type.capacity == 0) {
            return {};
        }
        return {"", text.substr(0, keptLength(text.c_str(), type.capacity)) + '\0'};
    case ValueKind::Buffer: {
        std::string bytes(type.capacity, '\0');
        if (readBuffer(text.c_str(), reinterpret_cast<uint8_t*>(bytes.data()), type.capacity)) {
            return {cannotConvert(text, "buffer"), ""};
        }
        return {"", bytes};
    }
    case ValueKind::Enum:
        if (const std::optional<uint32_t> entry =
                readEnum(type.enumType->entries, type.enumType->entryCount, text)) {
            return {"", bytesOf(*entry)};
        }
        return {notAnEntry(text, type.enumType->name), ""};
    case ValueKind::Struct:
        break;
    }
    return {cannotConvert(text, type.structType->name), ""};
}

std::optional<ElementType> memberType(const StructInfo& member) {
    switch (member.baseType) {
    case BaseInt:
        return ElementType{ValueKind::Int, 0, nullptr, nullptr};
    case BaseFloat:
        return ElementType{ValueKind::Float, 0, nullptr, nullptr};
    case BaseBool:
        return ElementType{ValueKind::Bool, 0, nullptr, nullptr};
    case BaseString:
        return ElementType{ValueKind::String, member.elementSize, nullptr, nullptr};
    case BaseEnum:
        return ElementType{ValueKind::Enum, 0, &Catalogue::enumNamed(member.typeName.c_str()),
                           nullptr};
    case BaseStruct:
        return ElementType{ValueKind::Struct, 0, nullptr,
                           Introspection::findStructType(member.typeName)};
    default:
        return std::nullopt;
    }
}

RangeResult checkRange(uint32_t baseType, const char* minimum, const char* maximum,
                       const std::string& value) {
    const auto within = [](auto low, auto high, auto number) {
        if (!low || !high || !number) {
            return RangeResult::Unreadable;
        }
        return *low <= *number && *number <= *high ? RangeResult::Inside : RangeResult::Outside;
    };
    switch (baseType) {
    case BaseInt:
        if (minimum == nullptr && maximum == nullptr) {
            return RangeResult::Inside;
        }
        return within(minimum ? readInt(minimum, 10) : std::optional<int32_t>(INT_MIN),
                      maximum ? readInt(maximum, 10) : std::optional<int32_t>(INT_MAX),
                      readInt(value, 10));
    case BaseFloat:
        if (minimum == nullptr && maximum == nullptr) {
            return RangeResult::Inside;
        }
        return within(minimum ? readFloat(minimum) : std::optional<float>(FLT_MIN),
                      maximum ? readFloat(maximum) : std::optional<float>(FLT_MAX),
                      readFloat(value));
    case BaseBool:
    case BaseString:
    case BaseEnum:
    case BaseStruct:
        return RangeResult::Inside;
    default:
        return RangeResult::Outside;
    }
}

std::string storedValueText(uint32_t baseType, const std::string& value) {
    if (baseType != BaseInt) {
        return value;
    }
    const std::optional<int32_t> stored = readInt(value, 0);
    return stored ? intText(*stored) : value;
}

std::string unreadable(const std::string& value) {
    return "Can't convert \"" + value + "\"\n";
}

std::string outsideRange(const std::string& minimum, const std::string& maximum,
                         const std::string& value) {
    return "Value must be between min: " + minimum + " and max: " + maximum + ", but is: " + value;
}

std::optional<std::string> nearestBound(uint32_t baseType, const char* minimum, const char* maximum,
                                        const std::string& value) {
    if (baseType == BaseInt) {
        try {
            const long long number = std::stoll(value, nullptr, 0);
            const long long lowest = minimum ? std::stoll(minimum) : INT_MIN;
            if (number < lowest) {
                return minimum ? minimum : INT_LOWEST;
            }
            return maximum ? maximum : INT_HIGHEST;
        } catch (const std::exception&) {
            return std::nullopt;
        }
    }
    if (baseType != BaseFloat) {
        return std::nullopt;
    }
    const std::optional<float> number = readFloat(value);
    const char* lowest = minimum ? minimum : FLOAT_LOWEST;
    const std::optional<float> low = readFloat(lowest);
    if (!number || !low || std::isnan(*number)) {
        return std::nullopt;
    }
    if (*number < *low) {
        return lowest;
    }
    return maximum ? maximum : FLOAT_HIGHEST;
}

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
    return structRefusal(*type.structType, text);
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

} // namespace ValueCodec
