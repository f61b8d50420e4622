#include "brokerstandin.h"

#include <cerrno>
#include <chrono>
#include <cstring>
#include <poll.h>
#include <stdexcept>
#include <string>
#include <sys/socket.h>
#include <unistd.h>

namespace {

[[noreturn]] void fail(const std::string& what) {
    throw std::runtime_error("broker stand-in: " + what + ": " + std::strerror(errno));
}

} // namespace

BrokerStandIn::BrokerStandIn() = default;

BrokerStandIn::~BrokerStandIn() {
    closeConnection();
}

void BrokerStandIn::closeConnection() {
    if (clientFd >= 0) {
        ::shutdown(clientFd, SHUT_RDWR);
    }
    if (reader.joinable()) {
        reader.join();
    }
    if (clientFd >= 0) {
        ::close(clientFd);
        clientFd = -1;
    }
    std::lock_guard<std::mutex> guard(lock);
    bytes.clear();
}

void BrokerStandIn::accept() {
    closeConnection();
    pollfd waiting{endpoint.listenFd(), POLLIN, 0};
    if (::poll(&waiting, 1, 10000) != 1) {
        fail("no connection");
    }
    clientFd = ::accept4(endpoint.listenFd(), nullptr, nullptr, SOCK_CLOEXEC);
    if (clientFd < 0) {
        fail("accept");
    }
    reader = std::thread([this, fd = clientFd] { read(fd); });
}

void BrokerStandIn::read(int fd) {
    for (;;) {
        unsigned char buffer[4096];
        const ssize_t got = ::recv(fd, buffer, sizeof buffer, 0);
        if (got < 0 && errno == EINTR) {
            continue;
        }
        if (got <= 0) {
            return;
        }
        std::lock_guard<std::mutex> guard(lock);
        bytes.insert(bytes.end(), buffer, buffer + got);
        arrived.notify_all();
    }
}

std::vector<Notify> BrokerStandIn::received() {
    constexpr std::chrono::milliseconds QUIET{50};
    std::unique_lock<std::mutex> guard(lock);
    for (std::size_t seen = bytes.size();; seen = bytes.size()) {
        if (!arrived.wait_for(guard, QUIET, [&] { return bytes.size() != seen; })) {
            break;
        }
    }
    return takeRecords();
}

std::vector<Notify> BrokerStandIn::takeRecords() {
    std::vector<Notify> records(bytes.size() / sizeof(Notify));
    const std::size_t used = records.size() * sizeof(Notify);
    if (used > 0) {
        std::memcpy(records.data(), bytes.data(), used);
    }
    bytes.erase(bytes.begin(), bytes.begin() + static_cast<long>(used));
    return records;
}

std::vector<Notify> BrokerStandIn::receive(std::size_t count, int milliseconds) {
    std::unique_lock<std::mutex> guard(lock);
    arrived.wait_for(guard, std::chrono::milliseconds(milliseconds),
                     [&] { return bytes.size() / sizeof(Notify) >= count; });
    return takeRecords();
}

void BrokerStandIn::send(const Notify& notify) {
    if (::write(clientFd, &notify, sizeof notify) != static_cast<ssize_t>(sizeof notify)) {
        fail("write");
    }
}

bool isSubscriptionSequence(const std::vector<Notify>& records) {
    if (records.size() != 2 * SUBSCRIPTION_COUNT ||
        records[1].id != VarUserSetupAcceptLoadFileNameChanged ||
        records.back().id != VarCinefadeDisplayModeValueChanged) {
        return false;
    }
    for (std::size_t i = 0; i < records.size(); i += 2) {
        if (records[i].id != Subscribe || records[i + 1].id <= CalibAllMotor) {
            return false;
        }
    }
    return true;
}
