#include "brokerpeer.h"

#include "serverconnection.h"

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <semaphore.h>
#include <stdexcept>
#include <string>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

namespace {

[[noreturn]] void fail(const std::string& what) {
    throw std::runtime_error("broker peer: " + what + ": " + std::strerror(errno));
}

} // namespace

BrokerPeer::BrokerPeer() : listenFd(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
    if (listenFd < 0) {
        fail("socket");
    }
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    std::strncpy(address.sun_path, ServerConnection::SOCKET_PATH, sizeof address.sun_path - 1);
    ::unlink(ServerConnection::SOCKET_PATH);
    if (::bind(listenFd, reinterpret_cast<const sockaddr*>(&address), sizeof address) < 0) {
        fail("bind");
    }
    if (::listen(listenFd, 4) < 0) {
        fail("listen");
    }
    sem_unlink(ServerConnection::READY_SEMAPHORE);
    sem_t* ready = sem_open(ServerConnection::READY_SEMAPHORE, O_CREAT | O_EXCL, 0666, 1);
    if (ready == SEM_FAILED) {
        fail("sem_open");
    }
    sem_close(ready);
}

BrokerPeer::~BrokerPeer() {
    if (clientFd >= 0) {
        ::close(clientFd);
    }
    ::close(listenFd);
    ::unlink(ServerConnection::SOCKET_PATH);
    sem_unlink(ServerConnection::READY_SEMAPHORE);
}

std::vector<Notify> BrokerPeer::received() {
    if (clientFd < 0) {
        clientFd = ::accept4(listenFd, nullptr, nullptr, SOCK_CLOEXEC);
        if (clientFd < 0) {
            fail("accept");
        }
    }
    std::vector<Notify> records;
    std::vector<uint8_t> bytes;
    uint8_t buffer[4096];
    for (;;) {
        const ssize_t count = ::recv(clientFd, buffer, sizeof buffer, MSG_DONTWAIT);
        if (count > 0) {
            bytes.insert(bytes.end(), buffer, buffer + count);
            continue;
        }
        if (count < 0 && errno != EAGAIN && errno != EWOULDBLOCK) {
            fail("recv");
        }
        // A record is written whole; only a closed connection leaves a part.
        if (count == 0 || bytes.size() % sizeof(Notify) == 0) {
            break;
        }
    }
    records.resize(bytes.size() / sizeof(Notify));
    if (!records.empty()) {
        std::memcpy(records.data(), bytes.data(), records.size() * sizeof(Notify));
    }
    return records;
}
