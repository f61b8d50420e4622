// Generated from gen/model by gen/generator. Do not edit.
// The text getters and setters of every enum and struct type, bound to the type's table entry
// (the definitions are the macros of typeconverters.h).
#include "settings-service/converters.h"

#include "typeconverters.h"

ENUM_CONVERTERS(Level, LEVEL_NAME_ARRAY)
ENUM_CONVERTERS(Colour, COLOUR_NAME_ARRAY)

STRUCT_CONVERTERS(Point, 0)
