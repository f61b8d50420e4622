// Generated from gen/model by gen/generator. Do not edit.
// How the catalogue changed since earlier releases, as the model declares it (see history.h).
// The last row of each table only ends it, so that no table is empty.
#include "history.h"

namespace gen {

constinit const FormerName FORMER_NAMES[] = {
    {0, 0, "Luminance"},
    {0, 0, nullptr},
};
const uint32_t FORMER_NAME_COUNT = 1;

constinit const ClampedVariable CLAMPED_VARIABLES[] = {
    {0, 0},
    {0, 0},
};
const uint32_t CLAMPED_VARIABLE_COUNT = 1;

constinit const FormerEntry FORMER_ENTRIES[] = {
    {1, "Crimson", 0},
    {0, nullptr, 0},
};
const uint32_t FORMER_ENTRY_COUNT = 1;

constinit const RetiredVariable RETIRED_VARIABLES[] = {
    {0, "Contrast", 19, "the display sets its contrast itself"},
    {0, nullptr, 0, nullptr},
};
const uint32_t RETIRED_VARIABLE_COUNT = 1;

} // namespace gen
