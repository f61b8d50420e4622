// The generated data of the memories that the start-up (startup.cpp) reads; the generator writes
// their definitions into memories.cpp from the model.
#pragma once

#include "settings-service/eventid.h"
#include "settings-service/sharedmemory.h"

#include <cstdint>

namespace gen {

// A piece of a default record: bytes to write at an offset over zero. A piece without bytes ends
// a memory's list.
struct DefaultPiece {
    uint32_t offset;
    uint32_t length;
    const char* bytes;
};

// How the start-up writes a memory.
enum class MemoryStart : uint32_t {
    Defaults, // the default record, built and copied whole
    Zeroed,   // zeros, in place
    Fill,     // `fill` in every 32-bit entry, in place
};

struct MemoryData {
    SharedMemory* segment;
    uint8_t** base; // the memory's gMem<Name>
    const DefaultPiece* defaults;
    MemoryStart start;
    uint32_t fill;
};

// One entry per memory, in table order (MEMORY_ARRAY_SIZE of them).
extern const MemoryData MEMORY_DATA[];

// The change events that the service subscribes to, in the order it subscribes them.
extern const EventId SUBSCRIPTIONS[];
extern const uint32_t SUBSCRIPTION_COUNT;

// A variable's place: its memory (table order) and its byte offset in the record.
struct VariablePlace {
    uint32_t memory;
    uint32_t offset;
};

// The service's own log level, which gComponentLogLevel points at once the memories are open.
extern const VariablePlace SERVICE_LOG_LEVEL;

// The catalogue's fingerprint: 32 hexadecimal digits (see memories.h).
extern const char CATALOGUE_FINGERPRINT[];

} // namespace gen
