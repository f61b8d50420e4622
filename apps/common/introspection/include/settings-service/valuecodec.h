// The value codec: one set of rules that turns a value text into what a
// variable stores and back.  The setters and the struct setter (lenient, as
// other programs rely on), the range check and the loader's judgement of a
// document's value, the clamps of settings of other releases, and the strict
// check that memtool and the inspector make before a setter sees a text all
// read texts here.
//
// Reading, as the setters store a text:
// - int: std::stoi with base detection ("0x20" is 32, "010" is 8), stopping
//   at the first character that does not fit ("7abc" is 7); float:
//   std::stof, with one rule of range on every target (below); either fails
//   with "Can't convert <text> to int|float";
// - bool: exactly "true" or "false", else "Value has to be 'true' or 'false'";
// - string: the text up to its first NUL, cut to the capacity less the
//   terminator;
// - buffer: two hexadecimal digits of either case a byte, a NUL ending the
//   text (the bytes after it become 0); another character stops the reading
//   ("Can't convert <text> to buffer");
// - enum: an entry name, exactly, else "<text> is not part of enum <Name>".
//
// The range check (Introspection::checkMinMax) reads an int in base 10 and a
// float as the setters do, the bounds from the descriptor's texts; where a
// variable states only one bound the other is the type's limit (an int's
// -2147483648 or 2147483647, a float's largest value or, below, the smallest
// positive normal float 1.17549435e-38: a float with only a maximum refuses
// zero and negatives).  A variable that states neither passes every text
// unread.
//
// Strict check (refusal): a value is stored exactly as written, or refused
// with the reason:
// - an int text that the range check (decimal) and the setter (base
//   detected) would read differently, or that the setter reads only in part;
// - a float text that is read only in part, or with more digits than a float
//   holds (16777217 would be stored as 16777216);
// - a bool other than "true" or "false", an enum text that names no entry;
// - a string longer than its capacity less the terminator, or holding a NUL
//   character (the setter would end the text there);
// - a buffer text that is not whole bytes of hexadecimal digits, or longer
//   than the buffer; and every text for a read-only variable;
// - a struct text whose members are not all known and valid by the same
//   rules (their strings within their capacities);
// - a value outside the variable's range (the range check's own message).
// A buffer text shorter than the buffer is taken: the remaining bytes become 0.
//
// The texts of stored values are the getters': "%d", "%f", "true"/"false",
// a buffer's bytes as two lower-case hexadecimal digits each.
//
// The generator applies the same rules to the model's own texts (bounds,
// defaults; gen/generator/values.py); tests/valuecodec_cases.json holds the
// cases that both implementations run.
//
// A float text is read into the nearest float (ties to even).  It is refused
// when that float is infinite or denormal (or zero) while the text's number is
// not: beyond the largest float, or too small for a normal float.  A text a
// hair below the smallest normal float that rounds to it is read as it.  Bare
// std::stof differs there between targets (the device's 32-bit ARM core finds
// a number tiny before rounding and refuses "1.17549435e-38"; x86-64 decides
// after rounding and reads it), so the codec decides by the rounded float
// itself, and reads every text alike on every target.  The generator's
// float32 (values.py) applies the same rule.
//
// Choices made here:
// - A clamped int is compared with its bounds as a 64-bit number; a text that
//   is no 64-bit number is not clamped but kept aside.
// - A float text whose nearest float is the smallest normal float is read,
//   also where the device's std::stof alone would refuse it (see above).
// - A float clamped to the lower limit of a variable with only a maximum is
//   given as "1.175494351e-38", just above the smallest normal float: the
//   codec and a bare std::stof read it as that float on every target, so the
//   other programs that read the settings document read it too.
#pragma once

#include "settings-service/catalogue.h"
#include "settings-service/json.h"

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace ValueCodec {

// ---- numbers

// The int that std::stoi reads at the front of `text` in `base` (0 detects
// it); `used`, when given, counts the characters read.  Nothing where no
// number stands or it exceeds 32 bits.
std::optional<int32_t> readInt(const std::string& text, int base, std::size_t* used = nullptr);
// The float that std::stof reads at the front of `text`, by the rule of range
// above on every target.
std::optional<float> readFloat(const std::string& text, std::size_t* used = nullptr);

// ---- the texts of stored values, as the getters write them

std::string intText(int32_t value);
std::string floatText(float value);
const char* boolText(bool value);
// Two lower-case hexadecimal digits a byte, no separators.
std::string bufferText(const uint8_t* bytes, unsigned length);

// ---- reading a text as the setters store it

inline constexpr const char* NOT_A_BOOL = "Value has to be 'true' or 'false'";
// "Can't convert <text> to <type>".
std::string cannotConvert(const std::string& text, const char* type);
std::optional<bool> readBool(std::string_view text);
// The index of the entry named `text`.
std::optional<uint32_t> readEnum(const char* const* entries, uint32_t count, std::string_view text);
// The value of a hexadecimal digit of either case; nothing for another character.
std::optional<unsigned> hexDigit(char c);
// "<text> is not part of enum <name>".
std::string notAnEntry(std::string_view text, const char* enumName);
// The characters of `text` that a string of `capacity` bytes keeps.
std::size_t keptLength(const char* text, uint32_t capacity);
// Reads the hexadecimal digits of `text` into the `length` bytes at `target`
// as it goes; the character at which it stopped, or nothing when every byte
// was written.
std::optional<char> readBuffer(const char* text, uint8_t* target, unsigned length);

// The bytes that an element of this type stores for `text`, or the setter's
// error text.  A struct is written member by member (setjson.h), not here.
struct Reading {
    std::string error;
    std::string bytes;
};
Reading read(const ElementType& type, const std::string& text);

// The element type of a struct member; nothing for a base type code without
// a kind.  Throws "Unknown enum" for an enum member of no enum.
std::optional<ElementType> memberType(const StructInfo& member);

// ---- the range check

enum class RangeResult { Inside, Outside, Unreadable };
// The range check of a value text against a variable's base type code and
// bound texts (null when absent).  Codes without a range are Inside; code 4
// and codes above 6 are Outside.
RangeResult checkRange(uint32_t baseType, const char* minimum, const char* maximum,
                       const std::string& value);
// The text that the loader's range check judges: for an int, the number that
// the setter stores, in decimal ("08" is judged as 0, "0x7fffffff" as
// 2147483647); a text the setter cannot read, and other types, as they stand.
std::string storedValueText(uint32_t baseType, const std::string& value);
// The range check's error text of an unreadable value: "Can't convert
// \"<value>\"\n".
std::string unreadable(const std::string& value);
// "Value must be between min: <min> and max: <max>, but is: <value>".
std::string outsideRange(const std::string& minimum, const std::string& maximum,
                         const std::string& value);
// The bound nearest to `value`, a number that the range check found outside:
// the bound's text, or where the variable states none the type's limit
// ("-2147483648", "2147483647", "1.175494351e-38", "3.40282347e+38"; each
// reads back as the limit on every target).  Nothing for a float that is not
// a number or a text that is no number.
std::optional<std::string> nearestBound(uint32_t baseType, const char* minimum, const char* maximum,
                                        const std::string& value);

// ---- the strict check (valuerefusal.cpp)

// Why `text` would not be stored exactly as written in an element of this
// type, or "".
std::string refusal(const ElementType& type, const std::string& text);
// Why `text` cannot be stored as written in the variable (in any of its
// elements), or "": read-only, the range check, then the element's rules.
std::string refusal(uint32_t memory, uint32_t variable, const std::string& text);
// The problems of the members as setJson would apply them to an element of
// struct `type` (structwalk.h), by the strict rules, "" when there are none.
// A value where an array or a struct belongs reads "not an array of <Type>"
// or "not an object of <Type>".
std::string structRefusal(const StructTypeInfo& type, const std::vector<Json::Item>& members);

} // namespace ValueCodec
