// How a value stands in a settings document: ints, floats, bools and structs
// bare, every other base type in double quotes, its text escaped as
// documenttext.h describes.
#pragma once

#include "catalogue.h"

#include <cstdint>

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
