// JSON written as it is produced, laid out byte for byte as the JSON library
// (nlohmann) lays out the same document with dump(indent), or dump(-1) when
// the indent is negative: objects and arrays are opened, filled and closed in
// turn, so that nothing but the current path is held in memory.
#pragma once

#include <cstdio>
#include <string>
#include <string_view>
#include <vector>

class JsonStream {
public:
    JsonStream(FILE* out, int indent) : out(out), indent(indent) {}
    ~JsonStream() { flush(); }
    JsonStream(const JsonStream&) = delete;
    JsonStream& operator=(const JsonStream&) = delete;

    void beginObject();
    void beginArray();
    void end();
    // A member's name, given unescaped.
    void key(std::string_view name);
    // A value already in JSON form (a number, true, a quoted string...).
    void raw(std::string_view json);
    // A string value, given unescaped.
    void string(std::string_view text);
    // Hands what is written so far to the FILE.
    void flush();

private:
    struct Level {
        bool object;
        size_t count;
    };

    void beforeValue();
    void newline(size_t depth);
    void begin(bool object, char bracket);
    // `text` as a JSON string literal, escaped as nlohmann escapes it (control
    // characters, quote and backslash; other bytes as they are).  A byte that
    // is not part of valid UTF-8 is written as U+FFFD, the replacement
    // character, so that the output stays JSON.
    void writeQuoted(std::string_view text);

    // Output is gathered in pieces of about this size before each write.
    static constexpr size_t FLUSH_SIZE = 1 << 16;

    void put(std::string_view text);
    void put(char c);

    FILE* out;
    int indent;
    std::string pending;
    std::vector<Level> levels;
};
