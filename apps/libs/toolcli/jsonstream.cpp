#include "jsonstream.h"

#include <algorithm>
#include <cstdint>

namespace {

// The escape of a byte that JSON needs escaped, or null.
const char* escapeOf(unsigned char byte, char (&scratch)[7]) {
    static const char HEX[] = "0123456789abcdef";
    switch (byte) {
    case '"':
        return "\\\"";
    case '\\':
        return "\\\\";
    case '\b':
        return "\\b";
    case '\f':
        return "\\f";
    case '\n':
        return "\\n";
    case '\r':
        return "\\r";
    case '\t':
        return "\\t";
    default:
        if (byte >= 0x20) {
            return nullptr;
        }
        scratch[0] = '\\';
        scratch[1] = 'u';
        scratch[2] = '0';
        scratch[3] = '0';
        scratch[4] = HEX[byte >> 4];
        scratch[5] = HEX[byte & 0x0f];
        scratch[6] = '\0';
        return scratch;
    }
}

// The length of the valid UTF-8 sequence that starts at text[at], or 0.
size_t sequenceLength(std::string_view text, size_t at) {
    static const uint32_t SMALLEST[] = {0, 0, 0x80, 0x800, 0x10000};
    const auto lead = static_cast<unsigned char>(text[at]);
    size_t length = 0;
    uint32_t code = 0;
    if (lead < 0x80) {
        return 1;
    } else if ((lead & 0xE0) == 0xC0) {
        length = 2;
        code = lead & 0x1F;
    } else if ((lead & 0xF0) == 0xE0) {
        length = 3;
        code = lead & 0x0F;
    } else if ((lead & 0xF8) == 0xF0) {
        length = 4;
        code = lead & 0x07;
    } else {
        return 0;
    }
    if (at + length > text.size()) {
        return 0;
    }
    for (size_t k = 1; k < length; ++k) {
        const auto next = static_cast<unsigned char>(text[at + k]);
        if ((next & 0xC0) != 0x80) {
            return 0;
        }
        code = (code << 6) | (next & 0x3F);
    }
    const bool surrogate = code >= 0xD800 && code <= 0xDFFF;
    return code < SMALLEST[length] || code > 0x10FFFF || surrogate ? 0 : length;
}

} // namespace

void JsonStream::writeQuoted(std::string_view text) {
    static const std::string_view REPLACEMENT = "\xEF\xBF\xBD";
    put('"');
    char scratch[7];
    size_t plain = 0;
    for (size_t i = 0; i < text.size();) {
        const auto byte = static_cast<unsigned char>(text[i]);
        const char* escape = escapeOf(byte, scratch);
        const size_t length = byte < 0x80 ? 1 : sequenceLength(text, i);
        if (escape == nullptr && length > 0) {
            i += length;
            continue;
        }
        put(text.substr(plain, i - plain));
        put(escape != nullptr ? std::string_view(escape) : REPLACEMENT);
        plain = ++i;
    }
    put(text.substr(plain));
    put('"');
}

void JsonStream::newline(size_t depth) {
    if (indent < 0) {
        return;
    }
    put('\n');
    static const std::string SPACES(256, ' ');
    for (size_t left = depth * static_cast<size_t>(indent); left > 0;) {
        const size_t now = std::min(left, SPACES.size());
        put(std::string_view(SPACES).substr(0, now));
        left -= now;
    }
}

void JsonStream::beforeValue() {
    if (levels.empty() || levels.back().object) {
        return;
    }
    if (levels.back().count++ > 0) {
        put(',');
    }
    newline(depth());
}

void JsonStream::begin(bool object, char bracket) {
    beforeValue();
    put(bracket);
    levels.push_back({object, 0});
}

void JsonStream::beginObject() {
    begin(true, '{');
}

void JsonStream::beginArray() {
    begin(false, '[');
}

void JsonStream::end() {
    const Level level = levels.back();
    levels.pop_back();
    if (level.count > 0) {
        newline(depth());
    }
    put(level.object ? '}' : ']');
}

void JsonStream::key(std::string_view name) {
    if (levels.back().count++ > 0) {
        put(',');
    }
    newline(depth());
    writeQuoted(name);
    put(indent < 0 ? ":" : ": ");
}

void JsonStream::raw(std::string_view json) {
    beforeValue();
    put(json);
}

void JsonStream::string(std::string_view text) {
    beforeValue();
    writeQuoted(text);
}

void JsonStream::put(std::string_view text) {
    pending.append(text);
    if (out != nullptr && pending.size() >= FLUSH_SIZE) {
        flush();
    }
}

void JsonStream::put(char c) {
    pending.push_back(c);
}

void JsonStream::flush() {
    if (out != nullptr) {
        std::fwrite(pending.data(), 1, pending.size(), out);
        pending.clear();
    }
}

std::string JsonStream::take() {
    std::string taken;
    taken.swap(pending);
    return taken;
}
