// Text getters and setters of the plain base types, and setVariable, which stores a value and
// announces the change.  The texts are read and written by the rules of the value codec
// (valuecodec.h).
//
// Getter form: (address of the value, element index) -> text. Setter form: (memory base,
// memory index, variable index, the variable's Notify, text) -> error text, empty on success.
// The setters find the variable's offset in the catalogue. The Notify's `indexed` selects the
// addressing of the int, float and bool setters: 0 writes the value at base + offset, 1 element
// `index` of the array, any other value writes nothing and answers empty. String and buffer
// setters always write at base + offset. Setters never throw for bad text.
//
// Choices made here:
// - A buffer text shorter than the buffer ends at its terminator; the bytes after it are set
//   from the digit 0, and no character past the terminator is read.
// - The buffer getter, like the string getter, ignores the element index.
// - A variable that the model marks read-only has a setter that changes nothing and answers
//   "<name> is read-only".
// - setVariable<char, N> compares the stored text with the text cut to N - 1 characters, i.e.
//   with what it would store: a text longer than the variable, stored once, is not stored and
//   announced again on every call.
#pragma once

#include "settings-service/notify.h"
#include "settings-service/serverconnection.h"

#include <array>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <string>
#include <type_traits>

std::string getIntIntrospection(const void* address, int index);
std::string getFloatIntrospection(const void* address, int index);
std::string getBoolIntrospection(const void* address, int index);
std::string getStringIntrospection(const void* address, int index);
// The `length` bytes at address as lower-case hexadecimal, two digits each, no separators.
std::string getBufferText(const void* address, unsigned length);
// getBufferText of a buffer of L bytes.
template <unsigned L> std::string getBufferIntrospection(const void* address, int) {
    return getBufferText(address, L);
}

std::string setIntIntrospection(uint8_t* base, uint32_t memory, uint32_t variable, Notify notify,
                                const char* text);
std::string setFloatIntrospection(uint8_t* base, uint32_t memory, uint32_t variable, Notify notify,
                                  const char* text);
std::string setBoolIntrospection(uint8_t* base, uint32_t memory, uint32_t variable, Notify notify,
                                 const char* text);
std::string setStringIntrospection(uint8_t* base, uint32_t memory, uint32_t variable, Notify notify,
                                   const char* text);
// Reads 2 x `length` hexadecimal digits (either case) into the `length` bytes, writing as it
// goes; posts the event after every complete write.
std::string setBufferText(uint8_t* base, uint32_t memory, uint32_t variable, Notify notify,
                          const char* text, unsigned length);
// setBufferText of a buffer of L bytes.
template <unsigned L>
std::string setBufferIntrospection(uint8_t* base, uint32_t memory, uint32_t variable, Notify notify,
                                   const char* text) {
    return setBufferText(base, memory, variable, notify, text, L);
}
// The setter of a variable that the model marks read-only: changes nothing.
std::string setReadOnlyIntrospection(uint8_t* base, uint32_t memory, uint32_t variable,
                                     Notify notify, const char* text);

// Stores value and posts notify, unless the four bytes already equal value's (a bit-pattern
// comparison, also for floats).
template <typename T> void setVariable(T& target, Notify notify, const T& value) {
    static_assert(sizeof(T) == 4, "setVariable<T> is for 32-bit ints and floats");
    if (std::memcmp(&target, &value, sizeof(T)) == 0) {
        return;
    }
    std::memcpy(&target, &value, sizeof(T));
    postEvent(notify);
}

// Stores the text cut to N - 1 characters and posts notify, unless the stored text already is
// that cut text.  The comparison is made with what would be stored, so a text longer than the
// variable equals its own cut form and storing it again posts nothing.
template <typename T, std::size_t N>
void setVariable(std::array<T, N>& target, Notify notify, const char* value) {
    static_assert(std::is_same_v<T, char>, "setVariable<char, N> is for texts");
    const std::size_t length = strnlen(value, N - 1);
    if (std::memcmp(target.data(), value, length) == 0 && target[length] == '\0') {
        return;
    }
    std::snprintf(target.data(), N, "%.*s", static_cast<int>(N - 1), value);
    postEvent(notify);
}
