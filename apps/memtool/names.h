// Resolving the names on memtool's command line.  A memory, variable or
// event may be given by name (exact, case-sensitive) or by its number; an
// unknown one is a usage error naming the closest valid names.
#pragma once

#include "result.h"
#include "settings-service/eventid.h"

#include <cstdint>
#include <optional>
#include <string>

Result<uint32_t> findMemory(const std::string& text);
Result<uint32_t> findVariable(uint32_t memory, const std::string& text);
// The element INDEX of an array variable; a usage error when the variable is
// no array or the index is not one of its elements.
Result<uint32_t> elementIndex(uint32_t memory, uint32_t variable, const std::string& text);

// A variable given as "NAME" or "NAME[INDEX]" (an element of an array).
struct VariableRef {
    uint32_t variable;
    std::optional<uint32_t> index;
};
Result<VariableRef> findElement(uint32_t memory, const std::string& text);
// "NAME", or "NAME[INDEX]" for an element.
std::string targetName(uint32_t memory, uint32_t variable, std::optional<uint32_t> index);
Result<EventId> findEvent(const std::string& text);
