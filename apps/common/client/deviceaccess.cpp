#include "settings-service/deviceaccess.h"

#include "settings-service/brokerlink.h"
#include "settings-service/brokerprotocol.h"
#include "settings-service/catalogue.h"
#include "settings-service/mappedmemories.h"

#include <cerrno>
#include <cstring>
#include <unistd.h>

namespace DeviceAccess {

std::vector<std::string> brokerPaths() {
    return {BrokerLink::semaphorePath(), BrokerProtocol::SOCKET_PATH};
}

std::vector<std::string> objectPaths() {
    std::vector<std::string> paths = brokerPaths();
    for (uint32_t memory = 0; memory < MEMORY_ARRAY_SIZE; ++memory) {
        paths.push_back(MappedMemories::objectPath(memory));
    }
    return paths;
}

AccessRefused refusal(const std::string& path) {
    return AccessRefused(path + ": " + std::strerror(EACCES) +
                         ": this user is not allowed to use the device's memories and broker "
                         "(run it as a member of the daemons' group, or as root)");
}

void require(const std::vector<std::string>& paths, int mode) {
    for (const std::string& path : paths) {
        if (::access(path.c_str(), mode) != 0 && errno == EACCES) {
            throw refusal(path);
        }
    }
}

void require(int mode) {
    require(objectPaths(), mode);
}

} // namespace DeviceAccess
