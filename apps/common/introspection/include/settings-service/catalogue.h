// The shape of the generated catalogue: the memory table, the variable
// descriptors, struct member lists and the enum table.  The generator (gen/)
// fills these tables; introspection reads them.  Beside the texts of a
// descriptor (range, array length) the generator writes the variable's typed
// facts (VariableType): kind, element count, capacity, read-only, numeric
// bounds, default, and the enum or struct it uses.
//
// Every table is constant data, complete when the program is loaded: no code
// builds any of it at start.  Only the descriptors' events are writable
// (setVarValueJson stores an element index in them).
//
// The libraries depend in one direction: the generated tables (introspection_gen)
// point at the converters of introspection_enum and introspection, so these two
// never name a generated table.  They read the catalogue through
// Catalogue::tables(), that is through gCatalogueTables: the generated tables
// define it, pointing at themselves, and every program that links
// introspection_gen keeps the object that defines it.  A program without
// generated tables gets the weak definition beside introspection, an empty
// catalogue.
#pragma once

#include "settings-service/notify.h"

#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>

// Base type codes of a variable or struct member.  A buffer has the code of a
// string (its kind tells them apart).
enum BaseType : uint32_t {
    BaseInt = 0,
    BaseFloat = 1,
    BaseBool = 2,
    BaseString = 3,
    BaseUnnamed = 4, // no name in the base-type name table and no variable has it
    BaseEnum = 5,
    BaseStruct = 6,
};

// The kind of a value as the model states it.
enum class ValueKind : uint8_t { Int, Float, Bool, String, Buffer, Enum, Struct };

struct EnumInfo;
struct StructTypeInfo;

// The type of one element of a variable or struct member: what the value
// codec (valuecodec.h) needs to read and write it.
struct ElementType {
    ValueKind kind;
    uint32_t capacity;        // bytes of a string (its terminator included) or buffer, else 0
    const EnumInfo* enumType; // enums, else null
    const StructTypeInfo* structType; // structs, else null
};

// The bounds that a variable states, as numbers (exact for every 32-bit int and float).
struct ValueRange {
    bool hasMin;
    bool hasMax;
    double minimum; // 0 when absent
    double maximum; // 0 when absent
};

// The typed facts of a variable that the model knows, generated beside the
// texts of its descriptor (which say the same: the catalogue's tests compare them).
struct VariableType {
    ElementType element;
    uint32_t count;          // elements: the array length, 1 for a single value
    bool readOnly;           // its setter refuses every text
    ValueRange range;        // ints and floats only
    const char* defaultText; // one element's start value as its getter writes it; null for
                             // buffers and structs (which start zeroed)
};

// Text getter: (address of the value, element index) -> value text.
using VarGetter = std::string (*)(const void* address, int index);
// Text setter: (memory base, memory index, variable index, event, text) -> error text,
// empty on success.
using VarSetter = std::string (*)(uint8_t* base, uint32_t memory, uint32_t variable, Notify notify,
                                  const char* text);

// One member of a struct type.
struct StructInfo {
    uint32_t reserved; // 0 in every generated member
    const char* name;
    uint32_t offset;      // byte offset inside the struct
    uint32_t baseType;    // BaseType code
    const char* typeName; // "int", "float", "bool", "string" or the enum/struct name
    uint32_t arrayLength; // 0 for a single value
    uint32_t elementSize; // byte size of one value (a string's capacity)
};

// The member list of a struct type, in declaration order: a view of a
// constant array.
using StructMembers = std::span<const StructInfo>;

// One struct type: its members and its byte size.
struct StructTypeInfo {
    const char* name;
    const StructMembers* members;
    uint32_t size;
};

struct VariableDescriptor {
    Notify event; // the change event; indexed and index 0 as generated
    const char* name;
    uint8_t*& memoryBase; // the memory's gMem<Name>, read at the time of use
    uint32_t offset;      // byte offset inside the memory record
    const char* typeName; // "int", "float", "bool", "string" or the enum/struct name
    uint32_t baseType;    // BaseType code
    VarGetter getter;
    VarSetter setter;
    const char* min;         // null when absent
    const char* max;         // null when absent
    const char* arrayLength; // null when the variable is not an array
    uint8_t isArray;
    const StructMembers* structMembers; // struct types only, else null
    uint32_t elementSize;               // byte size of one element
    const VariableType* type;           // the typed facts; never null
};

struct MemoryInfo {
    const char* name;
    VariableDescriptor* variables;
    uint32_t variableCount;
    // The variable indexes sorted by name (byte order; the lower index first
    // among equal names), variableCount of them.
    const uint32_t* nameOrder;
};

struct EnumInfo {
    const char* name;
    const char* const* entries;
    uint32_t entryCount;
};

// The generated tables, for code that links introspection_gen.
extern const MemoryInfo MEMORY_ARRAY[];
extern const uint32_t MEMORY_ARRAY_SIZE;
extern const EnumInfo ENUM_ARRAY[];
extern const uint32_t ENUM_ARRAY_SIZE;
extern const StructTypeInfo STRUCT_ARRAY[];
extern const uint32_t STRUCT_ARRAY_SIZE;

// The tables of one catalogue.
struct CatalogueTables {
    const MemoryInfo* memories;
    uint32_t memoryCount;
    const EnumInfo* enums;
    uint32_t enumCount;
    const StructTypeInfo* structs;
    uint32_t structCount;
};

// The program's catalogue; never null (an empty catalogue in a program without
// generated tables).
extern const CatalogueTables* gCatalogueTables;

namespace Catalogue {

inline const CatalogueTables& tables() {
    return *gCatalogueTables;
}

// The descriptor of a variable; the indexes are not checked.
inline VariableDescriptor& variable(uint32_t memory, uint32_t variable) {
    return tables().memories[memory].variables[variable];
}

// The index of the first enum of that name, or nullopt.
std::optional<uint32_t> findEnum(std::string_view name);
// The first enum of that name; throws "Unknown enum \"<name>\"" when there is none.
const EnumInfo& enumNamed(const char* name);

} // namespace Catalogue
