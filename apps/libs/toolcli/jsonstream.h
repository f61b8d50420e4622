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
    // Writes to `out`, or keeps everything for take() when `out` is null.  A
    // stream that writes a piece of a larger document starts at the depth
    // where the piece goes.
    JsonStream(FILE* out, int indent, size_t depth = 0) : out(out), indent(indent), base(depth) {}
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
    // What a stream without a FILE has written so far; it starts afresh.
    std::string take();
    // The depth of the next value: the open objects and arrays, and the start depth.
    size_t depth() const { return base + levels.size(); }

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
    size_t base;
    std::string pending;
    std::vector<Level> levels;
};
