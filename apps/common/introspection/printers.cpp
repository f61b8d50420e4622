#include "printers.h"

#include <nlohmann/json.hpp>
#include <optional>
#include <regex>

namespace {
std::optional<std::regex> escapePattern;
}

namespace Introspection {

std::string printBool(bool value) {
    return std::string("{ \"value\": \"") + (value ? "true" : "false") +
           "\", \"type\": \"bool\", \"textid\": [ \"false\", \"true\" ]}";
}

std::string printValue(const std::string& value, const std::string& type, const std::string& min,
                       const std::string& max) {
    nlohmann::json object = {{"value", value}, {"type", type}, {"min", min}, {"max", max}};
    return object.dump();
}

std::string escape(const std::string& text) {
    if (!escapePattern) {
        return text;
    }
    return std::regex_replace(text, *escapePattern, "\\$&");
}

void setEscapeCharacters(const std::string& pattern) {
    if (pattern.empty()) {
        escapePattern.reset();
    } else {
        escapePattern.emplace(pattern, std::regex::ECMAScript);
    }
}

} // namespace Introspection
