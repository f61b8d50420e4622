#include "brokerpeer.h"

#include <cerrno>
#include <cstring>
#include <stdexcept>
#include <string>
#include <sys/socket.h>
#include <unistd.h>

namespace {

[[noreturn]] void fail(const std::string& what) {
    throw std::runtime_error("broker peer: " + what + ": " + std::strerror(errno));
}

} // namespace

BrokerPeer::BrokerPeer() = default;

BrokerPeer::~BrokerPeer() {
    if (clientFd >= 0) {
        ::close(clientFd);
    }
}

std::vector<Notify> BrokerPeer::received() {
    if (clientFd < 0) {
        clientFd = ::accept4(endpoint.listenFd(), nullptr, nullptr, SOCK_CLOEXEC);
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
