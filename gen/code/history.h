// How the catalogue changed since earlier releases, as the model declares it: the names variables
// had before (`formerly`), the variables whose loaded values outside their range become the
// nearest bound (`out_of_range = "clamp"`), enum entries of earlier releases with the entries
// they are now, and the variables retired on purpose.  The generator writes the tables into
// history.cpp; the loading of settings documents of other releases reads them
// (apps/common/migration).
#pragma once

#include <cstdint>

namespace gen {

// A name that variable `variable` of memory `memory` had in an earlier release.
struct FormerName {
    uint32_t memory;
    uint32_t variable;
    const char* name;
};

// A variable whose loaded values outside its range are stored as the nearest bound.
struct ClampedVariable {
    uint32_t memory;
    uint32_t variable;
};

// An entry name that enum `enumIndex` had in an earlier release, and the entry it is now.
struct FormerEntry {
    uint32_t enumIndex;
    const char* name;
    uint32_t entry;
};

// A variable removed from memory `memory` on purpose; its name and event id stay taken.
struct RetiredVariable {
    uint32_t memory;
    const char* name;
    uint32_t event;
    const char* reason;
};

extern const FormerName FORMER_NAMES[];
extern const uint32_t FORMER_NAME_COUNT;
extern const ClampedVariable CLAMPED_VARIABLES[];
extern const uint32_t CLAMPED_VARIABLE_COUNT;
extern const FormerEntry FORMER_ENTRIES[];
extern const uint32_t FORMER_ENTRY_COUNT;
extern const RetiredVariable RETIRED_VARIABLES[];
extern const uint32_t RETIRED_VARIABLE_COUNT;

} // namespace gen
