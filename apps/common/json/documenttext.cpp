#include "documenttext.h"

#include "json.h"

#include <cstddef>

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

int hexValue(char c) {
    if (c >= '0' && c <= '9') {
        return c - '0';
    }
    if (c >= 'a' && c <= 'f') {
        return c - 'a' + 10;
    }
    if (c >= 'A' && c <= 'F') {
        return c - 'A' + 10;
    }
    return -1;
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
            const int high = hexValue(text[at + 4]);
            const int low = hexValue(text[at + 5]);
            if (high >= 0 && low >= 0) {
                result += static_cast<char>(16 * high + low);
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
    if (!reader.parse(text) || reader.outerIsArray) {
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
