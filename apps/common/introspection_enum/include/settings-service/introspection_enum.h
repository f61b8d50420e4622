// Enum and struct values as text: name-based access to the enum table, and the generic getters
// and setters that the generated get<Type>Introspection and set<Type>Introspection of every enum
// and struct type call.
//
// Enum values travel as their entry names; struct values as JSON text, one object per element
// with one value object per member (the layout other programs parse, spacing included).
//
// Choices made here:
// - A struct getter's string member is read up to its terminator but never past its capacity.
// - The struct text setter reads the text with the settings reader and applies its members with
//   setJson; a text that does not parse answers "Can't convert <text> to struct".
#pragma once

#include "settings-service/catalogue.h"
#include "settings-service/notify.h"

#include <cstdint>
#include <string>

namespace IntrospectionEnum {

uint32_t getEnumCount();
const char* getEnumName(uint32_t enumIndex);
uint32_t getEnumEntryCount(uint32_t enumIndex);
const char* getEnumEntryName(uint32_t enumIndex, uint32_t entry);
// The first enum of that name; throws "Unknown enum \"<name>\"".
uint32_t getEnumIndex(const char* name);
// { "value": "<value>", "type": "<enum>", "textid": [ "<entry>","<entry>",...]}
std::string printEnum(const std::string& value, const char* enumName);
// The same for an enum already looked up.
std::string printEnum(const std::string& value, const EnumInfo& info);

} // namespace IntrospectionEnum

// The entry name of element `index`; a value beyond the entries is logged at Error and reads
// "INVALID_VALUE: <value>".
std::string getEnumIntrospection(const void* address, int index, const char* enumName,
                                 const char* const* entries, uint32_t entryCount);
// Stores the index of the entry named `text` at base + offset (posting only on a change), or
// answers "<text> is not part of enum <name>".
std::string setEnumIntrospection(uint8_t* base, uint32_t memory, uint32_t variable, Notify notify,
                                 const char* text, const char* enumName, const char* const* entries,
                                 uint32_t entryCount);
// The JSON text of element `index` of a struct variable or member of type `type`.
std::string getStructIntrospection(const void* address, int index, const StructTypeInfo& type);
// Applies a struct's JSON text (as the struct getter writes it) to the element that the
// Notify's `index` selects.
std::string setStructIntrospection(uint8_t* base, uint32_t memory, uint32_t variable, Notify notify,
                                   const char* text);
