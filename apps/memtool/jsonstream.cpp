#include "jsonstream.h"

#include <nlohmann/json.hpp>

#include <algorithm>

namespace {

using Json = nlohmann::ordered_json;

// Forwards the parser's events to the stream.
class Relay : public nlohmann::json_sax<Json> {
public:
    explicit Relay(JsonStream& stream) : stream(stream) {}

    bool null() override { return put("null"); }
    bool boolean(bool value) override { return put(value ? "true" : "false"); }
    bool number_integer(number_integer_t value) override { return put(std::to_string(value)); }
    bool number_unsigned(number_unsigned_t value) override { return put(std::to_string(value)); }
    bool number_float(number_float_t value, const string_t&) override {
        return put(Json(value).dump());
    }
    bool string(string_t& value) override {
        stream.string(value);
        return true;
    }
    bool binary(binary_t&) override { return false; }
    bool start_object(std::size_t) override {
        stream.beginObject();
        return true;
    }
    bool key(string_t& name) override {
        stream.key(name);
        return true;
    }
    bool end_object() override {
        stream.end();
        return true;
    }
    bool start_array(std::size_t) override {
        stream.beginArray();
        return true;
    }
    bool end_array() override {
        stream.end();
        return true;
    }
    bool parse_error(std::size_t, const std::string&,
                     const nlohmann::detail::exception& error) override {
        throw std::runtime_error(error.what());
    }

private:
    bool put(std::string_view json) {
        stream.raw(json);
        return true;
    }

    JsonStream& stream;
};

} // namespace

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

} // namespace

void JsonStream::writeQuoted(std::string_view text) {
    put('"');
    char scratch[7];
    size_t plain = 0;
    for (size_t i = 0; i < text.size(); ++i) {
        const char* escape = escapeOf(static_cast<unsigned char>(text[i]), scratch);
        if (escape != nullptr) {
            put(text.substr(plain, i - plain));
            put(escape);
            plain = i + 1;
        }
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
    newline(levels.size());
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
        newline(levels.size());
    }
    put(level.object ? '}' : ']');
}

void JsonStream::key(std::string_view name) {
    if (levels.back().count++ > 0) {
        put(',');
    }
    newline(levels.size());
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

void JsonStream::document(const std::string& json) {
    Relay relay(*this);
    Json::sax_parse(json, &relay);
}

void JsonStream::put(std::string_view text) {
    pending.append(text);
    if (pending.size() >= FLUSH_SIZE) {
        flush();
    }
}

void JsonStream::put(char c) {
    pending.push_back(c);
}

void JsonStream::flush() {
    std::fwrite(pending.data(), 1, pending.size(), out);
    pending.clear();
}
