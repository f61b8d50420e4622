// Generated from gen/model by gen/generator. Do not edit.
#include "settings-service/catalogue.h"
#include "settings-service/converters.h"
#include "settings-service/enums.h"
#include "settings-service/records.h"
#include "settings-service/setters.h"

extern const EnumInfo ENUM_ARRAY[2];
extern const StructTypeInfo STRUCT_ARRAY[1];

namespace {

constexpr StructInfo POINT_MEMBER_ARRAY[] = {
    {0, "X", 0, BaseInt, "int", 0, 4},
    {0, "Y", 4, BaseFloat, "float", 0, 4},
    {0, "Name", 8, BaseString, "string", 0, 5},
    {0, "Shown", 13, BaseBool, "bool", 0, 1},
};

constexpr StructMembers POINT_MEMBERS(POINT_MEMBER_ARRAY);

constinit const VariableType VARIABLE_TYPES[] = {
    {{ValueKind::Int, 0, nullptr, nullptr}, 1, false, {true, true, 0, 10}, "5"},
    {{ValueKind::Float, 0, nullptr, nullptr}, 1, false, {false, true, 0, 0x1.4p+1}, "1.500000"},
    {{ValueKind::Bool, 0, nullptr, nullptr}, 1, false, {false, false, 0, 0}, "true"},
    {{ValueKind::String, 8, nullptr, nullptr}, 1, false, {false, false, 0, 0}, "abc"},
    {{ValueKind::Enum, 0, &ENUM_ARRAY[1], nullptr}, 1, false, {false, false, 0, 0}, "Green"},
    {{ValueKind::Buffer, 3, nullptr, nullptr}, 1, true, {false, false, 0, 0}, nullptr},
    {{ValueKind::Buffer, 2, nullptr, nullptr}, 1, false, {false, false, 0, 0}, nullptr},
    {{ValueKind::Struct, 0, nullptr, &STRUCT_ARRAY[0]}, 2, false, {false, false, 0, 0}, nullptr},
    {{ValueKind::Bool, 0, nullptr, nullptr}, 1, false, {false, false, 0, 0}, "false"},
    {{ValueKind::Enum, 0, &ENUM_ARRAY[0], nullptr}, 1, false, {false, false, 0, 0}, "Mid"},
};

constinit VariableDescriptor MEMALPHA_VARIABLES[] = {
    {{VarBrightnessChanged, 0, 0}, "Brightness", gMemAlpha, 0, "int", BaseInt, getIntIntrospection, setIntIntrospection, "0", "10", nullptr, 0, nullptr, 4, &VARIABLE_TYPES[0]},
    {{VarGainChanged, 0, 0}, "Gain", gMemAlpha, 4, "float", BaseFloat, getFloatIntrospection, setFloatIntrospection, nullptr, "2.5", nullptr, 0, nullptr, 4, &VARIABLE_TYPES[1]},
    {{VarEnabledChanged, 0, 0}, "Enabled", gMemAlpha, 8, "bool", BaseBool, getBoolIntrospection, setBoolIntrospection, nullptr, nullptr, nullptr, 0, nullptr, 1, &VARIABLE_TYPES[2]},
    {{VarTitleChanged, 0, 0}, "Title", gMemAlpha, 9, "string", BaseString, getStringIntrospection, setStringIntrospection, nullptr, nullptr, "8", 0, nullptr, 8, &VARIABLE_TYPES[3]},
    {{VarTintChanged, 0, 0}, "Tint", gMemAlpha, 20, "Colour", BaseEnum, getColourIntrospection, setColourIntrospection, nullptr, nullptr, nullptr, 0, nullptr, 4, &VARIABLE_TYPES[4]},
    {{VarCodeChanged, 0, 0}, "Code", gMemAlpha, 24, "string", BaseString, getBufferIntrospection<3>, setReadOnlyIntrospection, nullptr, nullptr, "3", 0, nullptr, 3, &VARIABLE_TYPES[5]},
    {{VarMaskChanged, 0, 0}, "Mask", gMemAlpha, 27, "string", BaseString, getBufferIntrospection<2>, setBufferIntrospection<2>, nullptr, nullptr, "2", 0, nullptr, 2, &VARIABLE_TYPES[6]},
    {{VarPointsChanged, 0, 0}, "Points", gMemAlpha, 32, "Point", BaseStruct, getPointIntrospection, setPointIntrospection, nullptr, nullptr, "2", 1, &POINT_MEMBERS, 16, &VARIABLE_TYPES[7]},
};

constexpr uint32_t MEMALPHA_NAME_ORDER[] = {
    0,
    5,
    2,
    1,
    6,
    7,
    4,
    3,
};

constinit VariableDescriptor MEMFLAGS_VARIABLES[] = {
    {{VarReadyChanged, 0, 0}, "Ready", gMemFlags, 0, "bool", BaseBool, getBoolIntrospection, setBoolIntrospection, nullptr, nullptr, nullptr, 0, nullptr, 1, &VARIABLE_TYPES[8]},
    {{VarBusyChanged, 0, 0}, "Busy", gMemFlags, 1, "bool", BaseBool, getBoolIntrospection, setBoolIntrospection, nullptr, nullptr, nullptr, 0, nullptr, 1, &VARIABLE_TYPES[8]},
};

constexpr uint32_t MEMFLAGS_NAME_ORDER[] = {
    1,
    0,
};

constinit VariableDescriptor MEMLEVELS_VARIABLES[] = {
    {{VarServiceLevelChanged, 0, 0}, "ServiceLevel", gMemLevels, 0, "Level", BaseEnum, getLevelIntrospection, setLevelIntrospection, nullptr, nullptr, nullptr, 0, nullptr, 4, &VARIABLE_TYPES[9]},
    {{VarOtherLevelChanged, 0, 0}, "OtherLevel", gMemLevels, 4, "Level", BaseEnum, getLevelIntrospection, setLevelIntrospection, nullptr, nullptr, nullptr, 0, nullptr, 4, &VARIABLE_TYPES[9]},
};

constexpr uint32_t MEMLEVELS_NAME_ORDER[] = {
    1,
    0,
};

} // namespace

constinit const char* const LEVEL_NAME_ARRAY[] = {
    "Low",
    "Mid",
    "High",
};
constinit const char* const COLOUR_NAME_ARRAY[] = {
    "Red",
    "Green",
};

constinit const EnumInfo ENUM_ARRAY[] = {
    {"Level", LEVEL_NAME_ARRAY, LEVEL_NAME_ARRAY_SIZE},
    {"Colour", COLOUR_NAME_ARRAY, COLOUR_NAME_ARRAY_SIZE},
};
const uint32_t ENUM_ARRAY_SIZE = 2;

constinit const StructTypeInfo STRUCT_ARRAY[] = {
    {"Point", &POINT_MEMBERS, 16},
};
const uint32_t STRUCT_ARRAY_SIZE = 1;

constinit const MemoryInfo MEMORY_ARRAY[] = {
    {"MemAlpha", MEMALPHA_VARIABLES, 8, MEMALPHA_NAME_ORDER},
    {"MemFlags", MEMFLAGS_VARIABLES, 2, MEMFLAGS_NAME_ORDER},
    {"MemLevels", MEMLEVELS_VARIABLES, 2, MEMLEVELS_NAME_ORDER},
};
const uint32_t MEMORY_ARRAY_SIZE = 3;

// The catalogue that the introspection functions read (catalogue.h).
constinit const CatalogueTables CATALOGUE_TABLES = {
    MEMORY_ARRAY, MEMORY_ARRAY_SIZE, ENUM_ARRAY, ENUM_ARRAY_SIZE, STRUCT_ARRAY, STRUCT_ARRAY_SIZE};
constinit const CatalogueTables* gCatalogueTables = &CATALOGUE_TABLES;
