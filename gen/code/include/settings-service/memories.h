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
// The owner's whole start-up: processPreInit, initMemories, publishCatalogueFingerprint, the
// broker connection and its subscriptions, the component log level (this service's entry of
// MemApp), processPostInit.
void init();

// The catalogue's fingerprint: the memories' owner publishes the fingerprint of the catalogue it
// was built from, and a client compares it with its own before it trusts the memories, since a
// record size that happens to match says nothing about the variables inside.
//
// The fingerprint is 32 hexadecimal digits, the start of the SHA-256 of the catalogue as JSON
// (every memory, variable, type, offset, size, range, default and event). It is carried by a
// shared-memory object of its own beside the memories, CATALOGUE_FINGERPRINT_OBJECT, made like
// the memories (mode 0660, the owner's group, an object of another user in its place removed)
// and holding the size header and the 32 digits; it is written once, at start, and read only.
inline constexpr const char* CATALOGUE_FINGERPRINT_OBJECT = "CatalogueFingerprint";
inline constexpr unsigned CATALOGUE_FINGERPRINT_LENGTH = 32;
// The fingerprint of the catalogue this program was built with.
const char* catalogueFingerprint();
// The owner's: creates the fingerprint object (or takes over its own from an earlier run) and
// writes this catalogue's fingerprint into it, once, at start; the owner's end removes it, as it
// removes the memories.
void publishCatalogueFingerprint();

} // namespace gen
