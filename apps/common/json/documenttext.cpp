#include "documenttext.h"

#include "settings-service/json.h"

#include <charconv>
#include <cstddef>
#include <optional>
#include <system_error>

namespace DocumentText {

namespace {

constexpr char HEX_DIGITS[] = "0123456789abcdef";
constexpr std::string_view ESCAPE_START = "\\u00";

bool needsEscape(unsigned char c, bool brackets) {
    if (c < 0x20 || c == 0x7f || c == '"' || c == '\\') {
        return true;
    }
    return brackets && (c == '[' || c == ']' || c == '{' || c == '}');
}

} // namespace

std::string escape(std::string_view text, bool brackets) {
    std::string result;
    result.reserve(text.size());
    for (const char c : text) {
        const auto byte = static_cast<unsigned char>(c);
        if (needsEscape(byte, brackets)) {
            result += ESCAPE_START;
            result += HEX_DIGITS[byte >> 4];
            result += HEX_DIGITS[byte & 0x0f];
        } else {
            result += c;
        }
    }
    return result;
}

std::string unescape(std::string_view text) {
    constexpr std::size_t SEQUENCE_LENGTH = 6;
    std::string result;
    result.reserve(text.size());
    std::size_t at = 0;
    while (at < text.size()) {
        if (text.substr(at, ESCAPE_START.size()) == ESCAPE_START &&
            at + SEQUENCE_LENGTH <= text.size()) {
            const char* digits = text.data() + at + ESCAPE_START.size();
            unsigned value = 0;
            const auto [end, error] = std::from_chars(digits, digits + 2, value, 16);
            if (error == std::errc() && end == digits + 2) {
                result += static_cast<char>(value);
                at += SEQUENCE_LENGTH;
                continue;
            }
        }
        result += text[at];
        ++at;
    }
    return result;
}

bool isCompleteDocument(const std::string& text) {
    Json reader;
    return reader.parse(text) && isCompleteDocument(reader, text);
}

bool isCompleteDocument(const Json& reader, const std::string& text) {
    if (reader.outerIsArray) {
        return false;
    }
    if (reader.state == Json::Finished) {
        return true;
    }
    // The reader takes the brace of an empty object for the start of a name,
    // so "{}" never reaches Finished; it is whole when nothing else is there.
    std::string compact;
    for (const char c : text) {
        if (!Json::isWhitespace(c)) {
            compact += c;
        }
    }
    return reader.items.empty() && compact == "{}";
}

namespace {

std::string_view trimmed(std::string_view line) {
    while (!line.empty() && Json::isWhitespace(line.back())) {
        line.remove_suffix(1);
    }
    while (!line.empty() && Json::isWhitespace(line.front())) {
        line.remove_prefix(1);
    }
    return line;
}

// The one member of a document line, when the line holds exactly one.
std::optional<Json::Item> memberOf(std::string_view line) {
    if (!line.empty() && line.back() == ',') {
        line.remove_suffix(1);
    }
    const std::string wrapped = "{" + std::string(line) + "}";
    Json reader;
    if (!reader.parse(wrapped) || !isCompleteDocument(reader, wrapped) ||
        reader.items.size() != 1) {
        return std::nullopt;
    }
    return reader.items.front();
}

} // namespace

Lines readLines(const std::string& text) {
    Lines lines;
    std::size_t start = 0;
    for (int number = 1; start < text.size(); ++number) {
        const std::size_t end = text.find('\n', start);
        const bool ended = end != std::string::npos;
        const std::string_view line =
            std::string_view(text).substr(start, ended ? end - start : std::string::npos);
        start = ended ? end + 1 : text.size();
        const std::string_view content = trimmed(line);
        if (content.empty() || content == "{" || content == "}") {
            continue;
        }
        std::optional<Json::Item> member = ended ? memberOf(content) : std::nullopt;
        if (member) {
            lines.items.push_back(std::move(*member));
        } else {
            lines.unreadable.emplace_back(number, std::string(line));
        }
    }
    return lines;
}

} // namespace DocumentText
