// What memtool tells about a variable beyond the catalogue's lookups, from
// its typed facts (catalogue.h): the capacity of a string, whether it is a
// byte buffer (a string-typed variable read and written as hexadecimal
// digits) and whether it can be written, the names of an enum, and the value
// the memory's start-up writes.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

// The bytes of a string or buffer variable (a string holds one character
// fewer, for its terminator); nullopt for other types.
std::optional<uint32_t> stringCapacity(uint32_t memory, uint32_t variable);
bool isBuffer(uint32_t memory, uint32_t variable);
// False for the buffers whose setter refuses every text.
bool isWritable(uint32_t memory, uint32_t variable);
// The entry names of an enum variable, in value order; empty for other types.
std::vector<std::string> enumNames(uint32_t memory, uint32_t variable);
// True when element `index` holds its default value (the memory must be
// open); a string compares as text, anything else byte for byte.
bool holdsDefault(uint32_t memory, uint32_t variable, uint32_t index);
// The text of element `index` as the memory's default record holds it.
std::string defaultText(uint32_t memory, uint32_t variable, uint32_t index);
