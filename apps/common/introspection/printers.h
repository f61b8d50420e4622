// Small text formatters of value descriptions: a bool's, a value's with its type and range, and
// the escaping of texts that struct getters embed in JSON.
//
// The escape pattern is empty at start and an empty pattern matches nothing, so escape() returns
// its input unchanged until a process sets a pattern.
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

} // namespace Introspection
