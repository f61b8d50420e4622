#include "brokerdouble.h"

#include "settings-service/brokerprotocol.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <chrono>
#include <cstring>
#include <fcntl.h>
#include <poll.h>
#include <stdexcept>
#include <string>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

namespace {

constexpr int BACKLOG = 8;

[[noreturn]] void fail(const std::string& what) {
    throw std::runtime_error("broker double: " + what + ": " + std::strerror(errno));
}

} // namespace

BrokerDouble::BrokerDouble(unsigned semaphoreCount, bool listen) {
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

BrokerDouble::~BrokerDouble() {
    closePeer();
    if (listener >= 0) {
        ::close(listener);
    }
    sem_close(ready);
    sem_unlink(BrokerProtocol::READY_SEMAPHORE);
    ::unlink(BrokerProtocol::SOCKET_PATH);
}

int BrokerDouble::accept(int milliseconds, Reading reading) {
    closePeer();
    pollfd waiting{listener, POLLIN, 0};
    if (listener < 0 || ::poll(&waiting, 1, milliseconds) != 1) {
        return -1;
    }
    peerFd = ::accept4(listener, nullptr, nullptr, SOCK_NONBLOCK | SOCK_CLOEXEC);
    if (peerFd < 0) {
        fail("accept");
    }
    if (reading != Reading::OnRequest) {
        if (::pipe2(stopFds, O_CLOEXEC) < 0) {
            fail("pipe");
        }
        reader = std::thread([this, keep = reading == Reading::InBackground] { collect(keep); });
    }
    return peerFd;
}

void BrokerDouble::collect(bool keep) {
    pollfd waiting[2] = {{peerFd, POLLIN, 0}, {stopFds[0], POLLIN, 0}};
    for (;;) {
        if (::poll(waiting, 2, -1) < 0) {
            if (errno == EINTR) {
                continue;
            }
            return;
        }
        if (waiting[1].revents != 0) {
            return;
        }
        std::lock_guard<std::mutex> guard(lock);
        const bool open = drain();
        if (!keep) {
            bytes.clear();
        }
        arrived.notify_all();
        if (!open) {
            return;
        }
    }
}

bool BrokerDouble::drain() {
    for (;;) {
        unsigned char buffer[4096];
        const ssize_t got = ::recv(peerFd, buffer, sizeof buffer, MSG_DONTWAIT);
        if (got > 0) {
            bytes.insert(bytes.end(), buffer, buffer + got);
            continue;
        }
        if (got < 0 && errno == EINTR) {
            continue;
        }
        return got < 0 && (errno == EAGAIN || errno == EWOULDBLOCK);
    }
}

void BrokerDouble::stopReading() {
    if (reader.joinable()) {
        const char stop = 1;
        if (::write(stopFds[1], &stop, 1) != 1) {
            fail("write");
        }
        reader.join();
    }
    for (int& fd : stopFds) {
        if (fd >= 0) {
            ::close(fd);
            fd = -1;
        }
    }
}

int BrokerDouble::releasePeer() {
    stopReading();
    const int fd = peerFd;
    peerFd = -1;
    return fd;
}

void BrokerDouble::closePeer() {
    const int fd = releasePeer();
    if (fd >= 0) {
        ::close(fd);
    }
    std::lock_guard<std::mutex> guard(lock);
    bytes.clear();
}

int BrokerDouble::semaphoreValue() const {
    int value = -1;
    sem_getvalue(ready, &value);
    return value;
}

void BrokerDouble::send(const void* data, std::size_t size) {
    ASSERT_EQ(::send(peerFd, data, size, MSG_NOSIGNAL), static_cast<ssize_t>(size));
}

void BrokerDouble::send(const Notify& notify) {
    send(&notify, sizeof notify);
}

std::vector<Notify> BrokerDouble::takeRecords() {
    std::vector<Notify> records(bytes.size() / sizeof(Notify));
    const std::size_t used = records.size() * sizeof(Notify);
    if (used > 0) {
        std::memcpy(records.data(), bytes.data(), used);
    }
    bytes.erase(bytes.begin(), bytes.begin() + static_cast<long>(used));
    return records;
}

std::vector<Notify> BrokerDouble::received() {
    if (peerFd < 0 && accept(0) < 0) {
        fail("no connection");
    }
    std::lock_guard<std::mutex> guard(lock);
    drain();
    return takeRecords();
}

bool BrokerDouble::waitForMore(std::unique_lock<std::mutex>& guard,
                               std::chrono::milliseconds time) {
    if (reader.joinable()) {
        const std::size_t seen = bytes.size();
        return arrived.wait_for(guard, time, [&] { return bytes.size() != seen; });
    }
    guard.unlock();
    pollfd input{peerFd, POLLIN, 0};
    const bool more = ::poll(&input, 1, static_cast<int>(time.count())) == 1;
    guard.lock();
    return more;
}

std::vector<Notify> BrokerDouble::receivedOnceQuiet() {
    constexpr std::chrono::milliseconds QUIET{50};
    std::unique_lock<std::mutex> guard(lock);
    while (drain() && waitForMore(guard, QUIET)) {
    }
    return takeRecords();
}

std::vector<Notify> BrokerDouble::receive(std::size_t count, int milliseconds) {
    const auto end = std::chrono::steady_clock::now() + std::chrono::milliseconds(milliseconds);
    std::unique_lock<std::mutex> guard(lock);
    while (drain() && bytes.size() / sizeof(Notify) < count) {
        const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(
            end - std::chrono::steady_clock::now());
        if (left.count() <= 0) {
            break;
        }
        waitForMore(guard, left);
    }
    return takeRecords();
}

std::vector<uint32_t> BrokerDouble::receivedWords() {
    std::lock_guard<std::mutex> guard(lock);
    drain();
    EXPECT_EQ(bytes.size() % sizeof(uint32_t), 0u);
    std::vector<uint32_t> words(bytes.size() / sizeof(uint32_t));
    if (!words.empty()) {
        std::memcpy(words.data(), bytes.data(), words.size() * sizeof(uint32_t));
    }
    bytes.clear();
    return words;
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
