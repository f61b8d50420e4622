// Small text formatters of value descriptions: a bool's, a value's with its type and range, and
// the escaping of texts that struct getters embed in JSON.
//
// The escape pattern is empty at start and an empty pattern matches nothing, so escape() returns
// its input unchanged until a process sets a pattern.
//
// Choices made here:
// - While a DocumentEscape object lives, escape() writes texts for a settings document instead:
//   the characters that would end or unbalance a nested value (quote, backslash, brackets,
//   control characters) become \u00XX (see documenttext.h) and the pattern is not applied.  The
//   settings writer holds one while it builds a document, so that a struct's string member reads
//   back as it was; every other use of the struct texts is unchanged.
#pragma once

#include <string>

namespace Introspection {

// { "value": "true", "type": "bool", "textid": [ "false", "true" ]} with the bool's value.
std::string printBool(bool value);
// The compact JSON object of the four texts, keys sorted: {"max":..,"min":..,"type":..,"value":..}.
std::string printValue(const std::string& value, const std::string& type, const std::string& min,
                       const std::string& max);
// Puts a backslash before every match of the escape pattern.
std::string escape(const std::string& text);
// Compiles pattern (ECMAScript) as the escape pattern from now on; an empty pattern matches
// nothing.
void setEscapeCharacters(const std::string& pattern);

// Makes escape() write settings-document escapes for as long as it lives (see above).
class DocumentEscape {
public:
    DocumentEscape();
    ~DocumentEscape();
    DocumentEscape(const DocumentEscape&) = delete;
    DocumentEscape& operator=(const DocumentEscape&) = delete;
};

} // namespace Introspection
