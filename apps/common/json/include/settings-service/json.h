// A small, tolerant, single-level reader for settings documents.
//
// `Json` splits one level of a JSON object (or array) into a flat, ordered
// list of (name, value) items; every value stays raw text.  A nested object
// or array comes back as its exact source text, brackets included, for the
// caller to hand to another `Json` or to a struct setter.  The reader is a
// character-driven state machine with one function per state
// (`nextChar<State>`); it makes one pass, never backtracks and builds no tree.
//
// Behaviour of the settings format that callers rely on:
// - Whitespace is blank, tab, line feed and return.  Names and values may be
//   quoted with double or single quotes; there are no escape sequences (a
//   backslash is an ordinary character, the first matching quote ends the
//   string).
// - Names end at a colon or whitespace, even inside quotes: 'my name' fails.
// - Inside a nested value only brackets of the opening kind are counted and
//   quotes are not tracked, so a closing bracket inside a nested string ends
//   the nesting early.
// - Values of an array top level get an empty name.  Numbers, booleans and
//   null are not validated.
// - A document cut short is accepted: the completed items are kept and a
//   value still being read when the text ends is dropped.
// - `parse` returns false at the first rejected character and leaves its
//   zero-based index in `errorPosition`; the items read before it stay.
//
// Inside a quoted or nested value only the characters `openChar` and
// `closeChar` change anything but the value's text, and inside a name only
// ':', whitespace and `nameQuote` change anything but the name; `parse` copies
// such runs of characters at once instead of stepping through each.  The
// result and the error position are those of the stepwise reading.
//
// A fresh instance is meant for each document.  `parse` starts again in state
// `Begin` with an empty name and value, but it keeps `items`, `outerClose`
// and `outerIsArray` from an earlier call (so a second object document read
// into an instance that read an array reads its members as unnamed values).
#pragma once

#include <string>
#include <utility>
#include <vector>

class Json {
public:
    struct ObjectValue {
        std::string value;     // quotes removed; nested values keep their brackets
        bool isObject = false; // the value was a nested object or array
    };

    enum State : int {
        Begin = 0,
        NameStart = 1,
        Name = 2,
        NameEnd = 3,
        ValueStart = 4,
        Value = 5,
        ValueEnd = 6,
        Finished = 7,
        Failed = 8,
    };

    using Item = std::pair<std::string, ObjectValue>;

    Json() = default;

    bool parse(const std::string& text);

    // The first item with exactly this name, in document order.  An absent
    // name throws std::runtime_error "Not found": a careless lookup of a
    // missing member must not quietly read as an empty value.  Use `find`
    // to test for presence.
    const ObjectValue& operator[](const std::string& key) const;

    // The first item with exactly this name, or null when there is none.
    const ObjectValue* find(const std::string& key) const;

    static bool isWhitespace(char c) { return c == ' ' || c == '\t' || c == '\n' || c == '\r'; }
    static bool isString(char c) { return c == '"' || c == '\''; }
    // The closing bracket for '[' or '{', else 0.
    static char isObjectStart(char c) {
        if (c == '[')
            return ']';
        if (c == '{')
            return '}';
        return 0;
    }

    std::vector<Item> items;
    std::string name;
    char nameQuote = 0;
    std::string valueText;
    bool valueIsObject = false;
    char openChar = 0;
    char closeChar = 0;
    unsigned depth = 0;
    char outerClose = 0;
    bool outerIsArray = false;
    int errorPosition = -1;
    State state = Begin;

private:
    template <State S> State nextChar(char c);
    State step(char c);
    State afterSeparator(char c);
    template <typename Plain>
    static std::string::size_type appendRun(const std::string& text, std::string::size_type from,
                                            std::string& to, Plain plain);
    void finishItem();
};
