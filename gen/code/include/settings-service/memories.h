// The memories of the device: their segments, default records and start-up.
#pragma once

#include "settings-service/records.h"
#include "settings-service/sharedmemory.h"

#include <cstdint>
#include <vector>

namespace gen {

// The segment of memory `memory` (table order).
SharedMemory& getSharedMemory(uint32_t memory);
// The record that the start-up writes into memory `memory` when it starts from its defaults.
std::vector<uint8_t> defaultImage(uint32_t memory);

// The owner's start-up of the memories: creates and maps every memory, stores its base
// pointer and writes its start values, whether or not the memory existed before.
void initMemories();
// For clients of memories that the owner has set up: opens and maps memory `memory`
// and stores its base pointer; writes nothing.
void openMemory(uint32_t memory);
// openMemory of every memory.
void openMemories();
// Points memory `memory`'s gMem<Name> at `data`: for clients that map the memories
// themselves, or a private record of the memory's size that no other process sees (a dry
// run); null makes readers answer "n/a". Nothing is opened or written.
void setMemoryBase(uint32_t memory, uint8_t* data);
// The owner's whole start-up: processPreInit, initMemories, the broker connection and its
// subscriptions, the component log level (this service's entry of MemApp), processPostInit.
void init();

} // namespace gen
