#include "device.h"

#include "settings-service/brokerlink.h"
#include "settings-service/brokerprotocol.h"
#include "settings-service/catalogue.h"
#include "settings-service/clienterror.h"

#include <cerrno>
#include <cstring>
#include <string>
#include <unistd.h>
#include <vector>

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
    std::vector<std::string> paths = {BrokerLink::semaphorePath(), BrokerProtocol::SOCKET_PATH};
    for (uint32_t memory = 0; memory < MEMORY_ARRAY_SIZE; ++memory) {
        paths.push_back(MappedMemories::objectPath(memory));
    }
    for (const std::string& path : paths) {
        if (::access(path.c_str(), mode) != 0 && errno == EACCES) {
            return failure(path + ": " + std::strerror(EACCES) +
                               ": this user is not allowed to use the device's memories and "
                               "broker (run it as a member of the daemons' group, or as root)",
                           EACCES);
        }
    }
    return {};
}
