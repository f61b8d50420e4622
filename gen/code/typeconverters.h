// The definitions of the per-type text converters that the generated converters.cpp names, one
// line per type: get<Type>Introspection and set<Type>Introspection of an enum forward to the
// enum converters with the type's name array, those of a struct to the struct converters with
// the type's entry of STRUCT_ARRAY.
#pragma once

#include "settings-service/catalogue.h"
#include "settings-service/converters.h"
#include "settings-service/enums.h"
#include "settings-service/introspection_enum.h"

#define ENUM_CONVERTERS(Type, NAME_ARRAY)                                                          \
    std::string get##Type##Introspection(const void* address, int index) {                         \
        return getEnumIntrospection(address, index, #Type, NAME_ARRAY, NAME_ARRAY##_SIZE);         \
    }                                                                                              \
    std::string set##Type##Introspection(uint8_t* base, uint32_t memory, uint32_t variable,        \
                                         Notify notify, const char* text) {                        \
        return setEnumIntrospection(base, memory, variable, notify, text, #Type, NAME_ARRAY,       \
                                    NAME_ARRAY##_SIZE);                                            \
    }

#define STRUCT_CONVERTERS(Type, STRUCT_INDEX)                                                      \
    std::string get##Type##Introspection(const void* address, int index) {                         \
        return getStructIntrospection(address, index, STRUCT_ARRAY[STRUCT_INDEX]);                 \
    }                                                                                              \
    std::string set##Type##Introspection(uint8_t* base, uint32_t memory, uint32_t variable,        \
                                         Notify notify, const char* text) {                        \
        return setStructIntrospection(base, memory, variable, notify, text);                       \
    }
