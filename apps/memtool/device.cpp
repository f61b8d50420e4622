#include "device.h"

#include "settings-service/brokerlink.h"
#include "settings-service/clienterror.h"
#include "settings-service/deviceaccess.h"
#include "settings-service/eventpoll.h"
#include "settings-service/mappedmemories.h"

#include <cerrno>

bool Device::memoryExists(uint32_t memory) const {
    return MappedMemories::exists(memory);
}

Result<void> Device::openMemory(uint32_t memory) {
    try {
        memories.open(memory);
    } catch (const ClientError& error) {
        return failure(error.what());
    }
    return {};
}

void Device::mapMemoriesReadOnly(bool readOnly) {
    memories.setReadOnly(readOnly);
}

bool Device::refreshMemories() {
    return memories.refresh();
}

Result<ServerConnection*> Device::connectBroker() {
    try {
        return &BrokerLink::connect(poll);
    } catch (const ClientError& error) {
        return failure(error.what());
    }
}

bool Device::brokerConnected() const {
    return gServerConnection != nullptr && gServerConnection->isConnected();
}

Result<void> requireDeviceAccess(int mode) {
    try {
        DeviceAccess::require(mode);
    } catch (const AccessRefused& refused) {
        return failure(refused.what(), EACCES);
    }
    return {};
}
