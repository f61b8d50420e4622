// How a value stands in a settings document: ints, floats, bools and structs
// bare, every other base type in double quotes, its text escaped as
// documenttext.h describes; an array of a type other than string and buffer as
// "[" elements joined by "," "]".
#pragma once

#include "settings-service/catalogue.h"

#include <cstdint>
#include <string>

inline bool isQuotedInDocument(uint32_t baseType) {
    switch (baseType) {
    case BaseInt:
    case BaseFloat:
    case BaseBool:
    case BaseStruct:
        return false;
    default:
        return true;
    }
}

// The value of a variable as its line of a settings document holds it after
// "<name>": , the quotes included.  Read from `record`, a copy of the memory's
// record taken earlier, when one is given; from the live memory otherwise.
std::string documentValue(uint32_t memory, uint32_t variable, const uint8_t* record = nullptr);
// The same without the quotes of a quoted value: the text that the settings
// reader gives for it.
std::string documentValueText(uint32_t memory, uint32_t variable, const uint8_t* record = nullptr);
