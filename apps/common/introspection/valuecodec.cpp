#include "settings-service/valuecodec.h"

#include "settings-service/introspection.h"

#include <cerrno>
#include <cfloat>
#include <climits>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <exception>

namespace ValueCodec {

namespace {

// The texts of the range check's limits where a variable states no bound.  The
// smallest normal float is written just above its exact value, a text that
// std::stof reads as it on every target (the device's core refuses
// "1.17549435e-38", a hair below, finding it tiny before rounding).
constexpr const char* INT_LOWEST = "-2147483648";
constexpr const char* INT_HIGHEST = "2147483647";
constexpr const char* FLOAT_LOWEST = "1.175494351e-38";
constexpr const char* FLOAT_HIGHEST = "3.40282347e+38";

template <typename T> std::string bytesOf(const T& value) {
    return std::string(reinterpret_cast<const char*>(&value), sizeof value);
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
    const char* start = text.c_str();
    char* end = nullptr;
    const int saved = errno;
    errno = 0;
    const float value = std::strtof(start, &end);
    const bool outOfRange = errno == ERANGE;
    errno = saved;
    if (end == start || (outOfRange && !std::isnormal(value))) {
        return std::nullopt;
    }
    if (used != nullptr) {
        *used = static_cast<std::size_t>(end - start);
    }
    return value;
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
        return ElementType{ValueKind::Enum, 0, &Catalogue::enumNamed(member.typeName), nullptr};
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

} // namespace ValueCodec
