// The catalogue as memtool prints it in JSON, for `memories`, `vars` and
// `describe --json` and for the inspector's API, which answers the same.
#pragma once

#include "device.h"
#include "jsonvalue.h"

#include <cstdint>

// Index, name, number of variables and presence of every memory.
Ordered memoriesJson(const Device& device);
// One row per variable: index, name, type, array length, capacity, range,
// enum names and change event.
Ordered variablesJson(uint32_t memory);
// Type, base type, range, default, array length, capacity, enum names, event.
Ordered describeJson(uint32_t memory, uint32_t variable);
