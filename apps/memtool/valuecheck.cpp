#include "valuecheck.h"

#include "settings-service/catalogue.h"
#include "settings-service/introspection.h"
#include "settings-service/introspection_enum.h"
#include "settings-service/json.h"
#include "variableinfo.h"

#include <algorithm>
#include <cctype>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <vector>

namespace {

std::string quoted(const std::string& text) {
    return "\"" + text + "\"";
}

std::string partly(const std::string& text, size_t end) {
    return "only " + quoted(text.substr(0, end)) + " of " + quoted(text) + " would be read";
}

std::string intRefusal(const std::string& text) {
    size_t setterEnd = 0;
    int setterValue = 0;
    try {
        setterValue = std::stoi(text, &setterEnd, 0);
    } catch (const std::exception&) {
        return "Can't convert " + text + " to int";
    }
    if (setterEnd != text.size()) {
        return partly(text, setterEnd);
    }
    size_t decimalEnd = 0;
    int decimalValue = 0;
    try {
        decimalValue = std::stoi(text, &decimalEnd, 10);
    } catch (const std::exception&) {
        decimalEnd = 0;
    }
    if (decimalEnd != text.size() || decimalValue != setterValue) {
        return quoted(text) + " is not a decimal integer: the range check would read " +
               (decimalEnd == 0 ? "nothing" : std::to_string(decimalValue)) + " and the setter " +
               std::to_string(setterValue);
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
    float value = 0;
    try {
        value = std::stof(text, &end);
    } catch (const std::exception&) {
        return "Can't convert " + text + " to float";
    }
    if (end != text.size()) {
        return partly(text, end);
    }
    const bool decimal = text.find_first_of("xXnNiI") == std::string::npos;
    const size_t digits = significantDigits(text);
    if (decimal && digits > 0 &&
        scientific(value, digits) != scientific(std::strtod(text.c_str(), nullptr), digits)) {
        char stored[32];
        std::snprintf(stored, sizeof stored, "%.9g", value);
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
                     [](char c) { return std::isxdigit(static_cast<unsigned char>(c)) != 0; })) {
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

std::string enumRefusal(const std::string& text, const std::string& enumName) {
    const uint32_t type = IntrospectionEnum::getEnumIndex(enumName.c_str());
    for (uint32_t entry = 0; entry < IntrospectionEnum::getEnumEntryCount(type); ++entry) {
        if (text == IntrospectionEnum::getEnumEntryName(type, entry)) {
            return "";
        }
    }
    return text + " is not part of enum " + enumName;
}

// The rules that a variable and a struct member share.
std::string scalarRefusal(uint32_t baseType, const std::string& typeName, uint32_t capacity,
                          const std::string& text) {
    switch (baseType) {
    case BaseInt:
        return intRefusal(text);
    case BaseFloat:
        return floatRefusal(text);
    case BaseBool:
        return text == "true" || text == "false" ? "" : "Value has to be 'true' or 'false'";
    case BaseString:
        return stringRefusal(text, capacity);
    case BaseEnum:
        return enumRefusal(text, typeName);
    default:
        return "no conversion for type " + typeName;
    }
}

// Checks struct members as the struct setter would apply them, collecting
// "path: reason" for each problem.
class StructCheck {
public:
    std::vector<std::string> problems;

    void members(StructMembers layout, const std::string& typeName,
                 const std::vector<Json::Item>& items, const std::string& prefix) {
        for (const auto& [name, value] : items) {
            const auto member = std::find_if(layout.begin(), layout.end(),
                                             [&](const StructInfo& m) { return name == m.name; });
            if (member == layout.end()) {
                problems.push_back(prefix + name + ": not a member of " + typeName);
            } else if (member->arrayLength > 0) {
                array(*member, value, prefix + name);
            } else {
                element(*member, value, prefix + name);
            }
        }
    }

private:
    void array(const StructInfo& member, const Json::ObjectValue& value, const std::string& path) {
        Json elements;
        if (!value.isObject || value.value.front() != '[' || !elements.parse(value.value)) {
            problems.push_back(path + ": not an array of " + member.typeName);
            return;
        }
        if (elements.items.size() > member.arrayLength) {
            problems.push_back(path + ": more than " + std::to_string(member.arrayLength) +
                               " elements");
        }
        for (size_t k = 0; k < elements.items.size() && k < member.arrayLength; ++k) {
            element(member, elements.items[k].second, path + "[" + std::to_string(k) + "]");
        }
    }

    void element(const StructInfo& member, const Json::ObjectValue& value,
                 const std::string& path) {
        Json object;
        const bool parsed =
            value.isObject && value.value.front() == '{' && object.parse(value.value);
        if (member.baseType == BaseStruct) {
            const StructTypeInfo* type = Introspection::findStructType(member.typeName);
            if (type == nullptr || !parsed) {
                problems.push_back(path + ": not an object of " + member.typeName);
            } else {
                members(*type->members, member.typeName, object.items, path + ".");
            }
            return;
        }
        const Json::ObjectValue* inner = value.isObject && parsed ? object.find("value") : &value;
        if (inner == nullptr || inner->isObject) {
            problems.push_back(path + ": no \"value\" in " + value.value);
            return;
        }
        const std::string reason =
            scalarRefusal(member.baseType, member.typeName, member.elementSize, inner->value);
        if (!reason.empty()) {
            problems.push_back(path + ": " + reason);
        }
    }
};

std::string structRefusal(uint32_t memory, uint32_t variable, const std::string& text) {
    Json members;
    if (!members.parse(text) || members.outerClose != '}') {
        return "the value of a struct must be a JSON object" +
               (members.errorPosition < 0
                    ? std::string()
                    : " (error at " + std::to_string(members.errorPosition) + ")");
    }
    StructCheck check;
    check.members(*MEMORY_ARRAY[memory].variables[variable].structMembers,
                  Introspection::getVarType(memory, variable), members.items, "");
    std::string joined;
    for (const std::string& problem : check.problems) {
        joined += (joined.empty() ? "" : "; ") + problem;
    }
    return joined;
}

std::string rangeRefusal(uint32_t memory, uint32_t variable, const std::string& text) {
    std::string error;
    if (Introspection::checkMinMax(memory, variable, text, error)) {
        return "";
    }
    if (!error.empty()) {
        return error.substr(0, error.find_last_not_of('\n') + 1);
    }
    return "Value must be between min: " + Introspection::getVarMin(memory, variable) +
           " and max: " + Introspection::getVarMax(memory, variable) + ", but is: " + text;
}

} // namespace

std::string refusal(uint32_t memory, uint32_t variable, const std::string& text) {
    const uint32_t base = Introspection::getVarBaseType(memory, variable);
    if (!isWritable(memory, variable)) {
        return std::string(Introspection::getVarName(memory, variable)) + " is read-only";
    }
    if (isBuffer(memory, variable)) {
        return bufferRefusal(text, *stringCapacity(memory, variable));
    }
    if (base == BaseStruct) {
        return structRefusal(memory, variable, text);
    }
    if (std::string range = rangeRefusal(memory, variable, text); !range.empty()) {
        return range;
    }
    return scalarRefusal(base, Introspection::getVarType(memory, variable),
                         stringCapacity(memory, variable).value_or(0), text);
}
