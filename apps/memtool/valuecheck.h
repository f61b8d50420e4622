// memtool's check of a value text before it reaches a setter: a value is
// stored exactly as written, or refused with the reason.
//
// The catalogue's setters are lenient for their other callers, and stay so:
// the int setter detects the base ("0x20" is 32, "010" is 8) while the range
// check reads decimal, both stop at the first character that does not fit
// ("7abc" is 7, "5.5" is 5), a string is cut to its capacity, a buffer writes
// the bytes it could read before a bad digit.  memtool refuses, with the
// reason:
// - an int text that the range check (decimal) and the setter (base
//   detected) would read differently, or that the setter reads only in part;
// - a float text that is read only in part, or with more digits than a float
//   holds (16777217 would be stored as 16777216);
// - a bool other than "true" or "false", an enum text that names no entry;
// - a string longer than its capacity less the terminator, or holding a NUL
//   character (the setter would end the text there);
// - a buffer text that is not whole bytes of hexadecimal digits, or longer
//   than the buffer; and every text for a read-only buffer;
// - a struct text whose members are not all known and valid by the same
//   rules (their strings within their capacities);
// - a value outside the variable's range (the range check's own message).
// A buffer text shorter than the buffer is taken: the remaining bytes become 0.
#pragma once

#include <cstdint>
#include <string>

// Why `text` cannot be stored in the variable (in any of its elements), or
// "" when it can.
std::string refusal(uint32_t memory, uint32_t variable, const std::string& text);
