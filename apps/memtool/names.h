// Resolving the names on memtool's command line.  A memory, variable or
// event may be given by name (exact, case-sensitive) or by its number; an
// unknown one throws UsageError naming the closest valid names.
#pragma once

#include "eventid.h"

#include <cstdint>
#include <string>

uint32_t findMemory(const std::string& text);
uint32_t findVariable(uint32_t memory, const std::string& text);
EventId findEvent(const std::string& text);
