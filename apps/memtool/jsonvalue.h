// Values as typed JSON: ints and floats as numbers, bools as booleans,
// strings and enum names as strings, structs as the objects their getters
// print, arrays as JSON arrays of their elements.
#pragma once

#include <nlohmann/json.hpp>

#include <cstdint>
#include <functional>
#include <optional>
#include <string>

using Ordered = nlohmann::ordered_json;

// One element's text as typed JSON.
Ordered typedValue(uint32_t memory, uint32_t variable, const std::string& text);
// The whole variable from the texts of its elements: one value, or an array.
Ordered variableJson(uint32_t memory, uint32_t variable,
                     const std::function<std::string(uint32_t index)>& elementText);
// The variable as its memory holds it now (the memory must be open).
Ordered currentJson(uint32_t memory, uint32_t variable);
// Element `index` as its memory holds it now, or with no index the whole
// variable (currentJson), as `get --json` prints it.
Ordered valueJson(uint32_t memory, uint32_t variable, std::optional<uint32_t> index);
// The variable as the memory's default record holds it.
Ordered defaultJson(uint32_t memory, uint32_t variable);
