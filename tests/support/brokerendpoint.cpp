#include "brokerendpoint.h"

#include "settings-service/brokerprotocol.h"

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <stdexcept>
#include <string>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

namespace {

constexpr int BACKLOG = 8;

[[noreturn]] void fail(const std::string& what) {
    throw std::runtime_error("broker endpoint: " + what + ": " + std::strerror(errno));
}

} // namespace

BrokerEndpoint::BrokerEndpoint(unsigned semaphoreCount, bool listen) {
    ::unlink(BrokerProtocol::SOCKET_PATH);
    sem_unlink(BrokerProtocol::READY_SEMAPHORE);
    if (listen) {
        listener = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
        if (listener < 0) {
            fail("socket");
        }
        const sockaddr_un address = BrokerProtocol::address();
        if (::bind(listener, reinterpret_cast<const sockaddr*>(&address), sizeof address) < 0) {
            fail("bind");
        }
        if (::listen(listener, BACKLOG) < 0) {
            fail("listen");
        }
    }
    ready = sem_open(BrokerProtocol::READY_SEMAPHORE, O_CREAT | O_EXCL, 0666, semaphoreCount);
    if (ready == SEM_FAILED) {
        fail("sem_open");
    }
}

BrokerEndpoint::~BrokerEndpoint() {
    if (listener >= 0) {
        ::close(listener);
    }
    sem_close(ready);
    sem_unlink(BrokerProtocol::READY_SEMAPHORE);
    ::unlink(BrokerProtocol::SOCKET_PATH);
}

int BrokerEndpoint::semaphoreValue() const {
    int value = -1;
    sem_getvalue(ready, &value);
    return value;
}
