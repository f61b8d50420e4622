// Generated from gen/model by gen/generator. Do not edit.
// The entry names of every enum, in value order.
#pragma once

#include <cstdint>

extern const char* const LEVEL_NAME_ARRAY[];
constexpr uint32_t LEVEL_NAME_ARRAY_SIZE = 3;
extern const char* const COLOUR_NAME_ARRAY[];
constexpr uint32_t COLOUR_NAME_ARRAY_SIZE = 2;
