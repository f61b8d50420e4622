// memtool's access to the device: the memories, opened as they are (never
// created or re-initialised), and the broker connection, made only by the
// commands that post or listen.
#pragma once

#include "serverconnection.h"

#include <cstdint>

// True when the memory's shared-memory object exists.
bool memoryExists(uint32_t memory);
// Maps an existing memory and points its gMem<Name> at it; throws Failure
// when it does not exist or was made for another layout.
void openMemory(uint32_t memory);
// Connects gServerConnection to the broker; throws Failure when there is none.
ServerConnection& connectBroker();
