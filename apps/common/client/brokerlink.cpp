#include "settings-service/brokerlink.h"

#include "settings-service/brokerprotocol.h"
#include "settings-service/clienterror.h"
#include "settings-service/deviceaccess.h"
#include "settings-service/log.h"

#include <exception>
#include <string>
#include <sys/stat.h>
#include <unistd.h>

namespace BrokerLink {

std::string semaphorePath() {
    // A named semaphore "/NAME" is the file /dev/shm/sem.NAME.
    return std::string("/dev/shm/sem.") + (BrokerProtocol::READY_SEMAPHORE + 1);
}

bool brokerPresent() {
    struct stat status {};
    return ::stat(semaphorePath().c_str(), &status) == 0 &&
           ::stat(BrokerProtocol::SOCKET_PATH, &status) == 0;
}

ServerConnection& connect(EventPoll& poll) {
    if (gServerConnection == nullptr) {
        try {
            gServerConnection = new ServerConnection(poll);
        } catch (const std::exception& error) {
            DeviceAccess::require(DeviceAccess::brokerPaths(), R_OK | W_OK);
            throw ClientError("cannot connect to the message broker: " + errorMessage(error) +
                              " (is the message broker running?)");
        }
    }
    return *gServerConnection;
}

bool keepConnected(EventPoll& poll, ServerConnection::EventHandler* handler,
                   const std::function<void(ServerConnection&)>& subscribe) {
    if (gServerConnection != nullptr && gServerConnection->isConnected()) {
        return false;
    }
    if (!brokerPresent()) {
        return false;
    }
    if (gServerConnection == nullptr) {
        connect(poll);
    } else if (!gServerConnection->reconnect()) {
        DeviceAccess::require(DeviceAccess::brokerPaths(), R_OK | W_OK);
        return false;
    }
    gServerConnection->setEventHandler(handler);
    subscribe(*gServerConnection);
    return true;
}

} // namespace BrokerLink
