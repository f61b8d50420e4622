// The start-up over the generated data of the memories (memorydata.h): creating or opening the
// memories and writing their start values, the broker connection and the service's subscriptions.
#include "memorydata.h"
#include "settings-service/catalogue.h"
#include "settings-service/eventpoll.h"
#include "settings-service/log.h"
#include "settings-service/memories.h"
#include "settings-service/serverconnection.h"

#include <bit>
#include <cstring>
#include <span>

static_assert(std::endian::native == std::endian::little,
              "the default records are stored little-endian");

namespace gen {

namespace {

// Writes the default pieces of a memory over `data`, which holds zeros.
void writeDefaultPieces(const DefaultPiece* pieces, uint8_t* data) {
    for (const DefaultPiece* piece = pieces; piece->bytes; ++piece) {
        std::memcpy(data + piece->offset, piece->bytes, piece->length);
    }
}

// Writes the start values of one memory into its mapped data.  A fresh
// object (one that did not exist before) reads as zeros already: only its
// default pieces are written there, so that pages that stay zero are never
// touched.  An object left from an earlier run is overwritten whole.
void writeStartValues(uint32_t memory, uint8_t* data, bool fresh) {
    const MemoryData& entry = MEMORY_DATA[memory];
    const uint32_t size = entry.segment->getSize();
    switch (entry.start) {
    case MemoryStart::Zeroed:
        if (!fresh) {
            std::memset(data, 0, size);
        }
        break;
    case MemoryStart::Fill:
        for (uint32_t offset = 0; offset < size; offset += sizeof entry.fill) {
            std::memcpy(data + offset, &entry.fill, sizeof entry.fill);
        }
        break;
    case MemoryStart::Defaults:
        if (fresh) {
            writeDefaultPieces(entry.defaults, data);
        } else {
            const std::vector<uint8_t> image = defaultImage(memory);
            std::memcpy(data, image.data(), size);
        }
        break;
    }
}

SharedMemory& fingerprintSegment() {
    static SharedMemory segment(CATALOGUE_FINGERPRINT_OBJECT, CATALOGUE_FINGERPRINT_LENGTH);
    return segment;
}

} // namespace

const char* catalogueFingerprint() {
    return CATALOGUE_FINGERPRINT;
}

void publishCatalogueFingerprint() {
    SharedMemory& segment = fingerprintSegment();
    segment.create();
    std::memcpy(segment.address(), CATALOGUE_FINGERPRINT, CATALOGUE_FINGERPRINT_LENGTH);
}

SharedMemory& getSharedMemory(uint32_t memory) {
    return *MEMORY_DATA[memory].segment;
}

std::vector<uint8_t> defaultImage(uint32_t memory) {
    std::vector<uint8_t> image(MEMORY_DATA[memory].segment->getSize(), 0);
    writeDefaultPieces(MEMORY_DATA[memory].defaults, image.data());
    return image;
}

void initMemories() {
    for (uint32_t memory = 0; memory < MEMORY_ARRAY_SIZE; ++memory) {
        SharedMemory& segment = *MEMORY_DATA[memory].segment;
        const bool existed = segment.create();
        uint8_t* data = segment.address();
        *MEMORY_DATA[memory].base = data;
        writeStartValues(memory, data, !existed);
    }
}

void openMemory(uint32_t memory) {
    MEMORY_DATA[memory].segment->open();
    *MEMORY_DATA[memory].base = MEMORY_DATA[memory].segment->address();
}

void setMemoryBase(uint32_t memory, uint8_t* data) {
    *MEMORY_DATA[memory].base = data;
}

void openMemories() {
    for (uint32_t memory = 0; memory < MEMORY_ARRAY_SIZE; ++memory) {
        openMemory(memory);
    }
}

void init() {
    processPreInit();
    initMemories();
    publishCatalogueFingerprint();
    gServerConnection = new ServerConnection(getEventPoll());
    subscribeNotifications();
    const VariablePlace level = SERVICE_LOG_LEVEL;
    gComponentLogLevel =
        reinterpret_cast<LogLevel*>(*MEMORY_DATA[level.memory].base + level.offset);
    processPostInit();
}

// Subscribes, in this order, the change events that the service handles, with
// one write to the broker.
void subscribeNotifications() {
    ServerConnection* connection = getServerConnection();
    if (connection == nullptr) {
        THROW_ERROR("Trying to subscribe without server connection");
    }
    subscribeNotifications(*connection);
}

void subscribeNotifications(ServerConnection& connection) {
    connection.subscribeEach(std::span(SUBSCRIPTIONS, SUBSCRIPTION_COUNT));
}

} // namespace gen
