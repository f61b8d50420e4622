#include "brokerendpoint.h"

#include "serverconnection.h"

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
    ::unlink(ServerConnection::SOCKET_PATH);
    sem_unlink(ServerConnection::READY_SEMAPHORE);
    if (listen) {
        listener = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
        if (listener < 0) {
            fail("socket");
        }
        sockaddr_un address{};
        address.sun_family = AF_UNIX;
        std::strncpy(address.sun_path, ServerConnection::SOCKET_PATH, sizeof address.sun_path - 1);
        if (::bind(listener, reinterpret_cast<const sockaddr*>(&address), sizeof address) < 0) {
            fail("bind");
        }
        if (::listen(listener, BACKLOG) < 0) {
            fail("listen");
        }
    }
    ready = sem_open(ServerConnection::READY_SEMAPHORE, O_CREAT | O_EXCL, 0666, semaphoreCount);
    if (ready == SEM_FAILED) {
        fail("sem_open");
    }
}

BrokerEndpoint::~BrokerEndpoint() {
    if (listener >= 0) {
        ::close(listener);
    }
    sem_close(ready);
    sem_unlink(ServerConnection::READY_SEMAPHORE);
    ::unlink(ServerConnection::SOCKET_PATH);
}

int BrokerEndpoint::semaphoreValue() const {
    int value = -1;
    sem_getvalue(ready, &value);
    return value;
}
