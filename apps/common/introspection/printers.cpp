#include "printers.h"

#include "documenttext.h"

#include <nlohmann/json.hpp>
#include <optional>
#include <regex>

namespace {
std::optional<std::regex> escapePattern;
// The number of DocumentEscape objects alive.
int documentEscapes = 0;
} // namespace

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
    if (documentEscapes > 0) {
        return DocumentText::escape(text, true);
    }
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

DocumentEscape::DocumentEscape() {
    ++documentEscapes;
}

DocumentEscape::~DocumentEscape() {
    --documentEscapes;
}

} // namespace Introspection
