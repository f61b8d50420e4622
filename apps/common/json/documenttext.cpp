#include "documenttext.h"

#include "json.h"

#include <charconv>
#include <cstddef>
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

} // namespace DocumentText
