#include "device.h"

#include "cli.h"
#include "settings-service/brokerlink.h"
#include "settings-service/brokerprotocol.h"
#include "settings-service/catalogue.h"
#include "settings-service/clienterror.h"
#include "settings-service/deviceaccess.h"
#include "settings-service/eventpoll.h"
#include "settings-service/mappedmemories.h"

#include <cerrno>
#include <cstring>
#include <string>
#include <unistd.h>
#include <vector>

namespace {

// memtool's mappings, made on first use.
MappedMemories& mappings() {
    static MappedMemories memories;
    return memories;
}

} // namespace

bool memoryExists(uint32_t memory) {
    return MappedMemories::exists(memory);
}

void openMemory(uint32_t memory) {
    try {
        mappings().open(memory);
    } catch (const ClientError& error) {
        throw Failure(error.what());
    }
}

void mapMemoriesReadOnly(bool readOnly) {
    mappings().setReadOnly(readOnly);
}

bool refreshMemories() {
    return mappings().refresh();
}

ServerConnection& connectBroker() {
    try {
        return BrokerLink::connect(gen::getEventPoll());
    } catch (const ClientError& error) {
        throw Failure(error.what());
    }
}

void requireDeviceAccess(int mode) {
    DeviceAccess::require(mode);
}
