// Lookups and text access over the generated catalogue: memories and
// variables by index, name and change event, values as text, ranges as text
// and range checks of candidate values.
//
// Every function taking a memory index (and a variable index) checks it
// first and throws "Index exceeds limit" (through THROW_ERROR) when the
// memory index is not below MEMORY_ARRAY_SIZE or the variable index is not
// below that memory's variable count.  A memory that is not open (its base
// pointer still null) reads and writes as "n/a", never as an exception.
//
// Choices made here:
// - getVarLocation of an id beyond the event table yields (0, 0), as an event
//   that belongs to no variable does, instead of reading outside the map.
// - setVarValueJson stores the element index in the variable's table entry
//   (its Notify's `index`); later getVarEvent calls and posted events of that
//   variable carry it.
#pragma once

#include "settings-service/catalogue.h"
#include "settings-service/json.h"

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace Introspection {

// Names of the base type codes; code 4 has none.
inline constexpr const char* BASE_TYPE_NAME_ARRAY[] = {"int",    "float", "bool",
                                                       "string", "enum",  "struct"};

uint32_t getMemCount();
const char* getMemName(uint32_t memory);
// The first memory with exactly this name; throws "Unknown memory \"<name>\"".
uint32_t getMemIndex(const std::string& name);

uint32_t getVarCount(uint32_t memory);
const char* getVarName(uint32_t memory, uint32_t variable);
const char* getVarType(uint32_t memory, uint32_t variable);
uint32_t getVarBaseType(uint32_t memory, uint32_t variable);
// The base type code, like getVarBaseType; callers index BASE_TYPE_NAME_ARRAY.
uint32_t getVarBaseTypeName(uint32_t memory, uint32_t variable);
// The array length text, null for a variable that is not an array.
const char* getVarArrayLen(uint32_t memory, uint32_t variable);
Notify getVarEvent(uint32_t memory, uint32_t variable);
// True when the is-array flag is set and the length text (base detected as by
// std::stoi(text, nullptr, 0)) is not negative.
bool isArray(uint32_t memory, uint32_t variable);
// The number of elements: the array length (base detected) when isArray, else 1.
uint32_t getElementCount(uint32_t memory, uint32_t variable);

// The variable whose change event is notify.id; (0, 0) for an event of no variable.
void getVarLocation(const Notify& notify, uint32_t& memory, uint32_t& variable);
// Builds the event-to-variable map (done once, on first use, otherwise).
void genEventToVar();

// The value of element `index` as text ("n/a" when the memory is not open).
std::string getVarValue(uint32_t memory, uint32_t variable, int index);
// The same value text, read from `record`, a copy of the memory's record
// taken earlier instead of the live memory.
std::string getVarValueIn(const uint8_t* record, uint32_t memory, uint32_t variable, int index);
// Stores a text value through the variable's setter; the error text, empty on success.
std::string setVarValue(uint32_t memory, uint32_t variable, const char* value);
// Stores struct members of element `index` through setJson; the error text.
std::string setVarValueJson(uint32_t memory, uint32_t variable,
                            const std::vector<Json::Item>& members, int index);

std::string getVarMin(uint32_t memory, uint32_t variable);
std::string getVarMax(uint32_t memory, uint32_t variable);
// True when `value` lies within the variable's range (the range check of
// valuecodec.h).  When a text cannot be converted, `error` becomes
// "Can't convert \"<value>\"\n" and the result is false; otherwise `error` is
// left as it was.  A float variable with only a maximum has the lower bound
// 1.17549435e-38: it rejects zero and negatives.
bool checkMinMax(uint32_t memory, uint32_t variable, const std::string& value, std::string& error);

// The typed facts of the variable (catalogue.h).
const VariableType& typeOf(uint32_t memory, uint32_t variable);
// The name of a kind's base type in BASE_TYPE_NAME_ARRAY; a buffer's is "string".
const char* baseTypeName(ValueKind kind);

// The index of the variable of memory `memory` with exactly this name (the
// lowest such index), or nullopt.  A binary search in the memory's name order,
// which the catalogue holds as data.
std::optional<uint32_t> findVarIndex(uint32_t memory, std::string_view name);

// The struct type of that name, null when the catalogue has none.
const StructTypeInfo* findStructType(std::string_view name);

} // namespace Introspection
