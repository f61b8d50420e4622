#include "rawclient.h"

#include "settings-service/brokerprotocol.h"

#include <chrono>
#include <cstring>
#include <gtest/gtest.h>
#include <linux/sockios.h>
#include <poll.h>
#include <stdexcept>
#include <string>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <thread>
#include <unistd.h>

namespace brokertest {

uint32_t RawClient::syncs = 0;

namespace {

constexpr uint32_t FIRST_SYNC_ID = TEST_ID_BASE + 140;
constexpr uint32_t SYNC_IDS = TEST_ID_COUNT - 140;

} // namespace

RawClient::RawClient() : fd(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
    const sockaddr_un address = BrokerProtocol::address();
    if (::connect(fd, reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0) {
        std::string reason = std::strerror(errno);
        ::close(fd);
        throw std::runtime_error("cannot connect to the broker: " + reason);
    }
}

RawClient::~RawClient() {
    close();
}

void RawClient::close() {
    if (fd >= 0) {
        ::close(fd);
        fd = -1;
    }
}

void RawClient::send(const std::vector<Notify>& records) {
    sendBytes(records.data(), records.size() * sizeof(Notify));
}

void RawClient::sendBytes(const void* data, size_t size) {
    const auto* next = static_cast<const uint8_t*>(data);
    while (size > 0) {
        ssize_t written = ::send(fd, next, size, MSG_NOSIGNAL);
        if (written <= 0) {
            throw std::runtime_error(std::string("send failed: ") + std::strerror(errno));
        }
        next += written;
        size -= static_cast<size_t>(written);
    }
}

void RawClient::waitUntilTaken() {
    auto end = std::chrono::steady_clock::now() + std::chrono::seconds(10);
    int queued = 0;
    for (;;) {
        ASSERT_EQ(::ioctl(fd, SIOCOUTQ, &queued), 0) << std::strerror(errno);
        if (queued == 0 || std::chrono::steady_clock::now() > end) {
            break;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    EXPECT_EQ(queued, 0) << "the broker did not read";
}

void RawClient::subscribe(uint32_t id) {
    send({{Subscribe, 0, 0}, {EventId(id), 0, 0}});
}

void RawClient::unsubscribe(uint32_t id) {
    send({{Unsubscribe, 0, 0}, {EventId(id), 0, 0}});
}

void RawClient::subscribeAll() {
    send({{SubscribeAll, 0, 0}});
}

void RawClient::unsubscribeAll() {
    send({{UnsubscribeAll, 0, 0}});
}

void RawClient::sync() {
    uint32_t id = FIRST_SYNC_ID + syncs++ % SYNC_IDS;
    subscribe(id);
    send({{EventId(id), 0, 0}});
    std::vector<Notify> before = receiveUntil(id);
    kept.insert(kept.begin(), before.begin(), before.end());
}

bool RawClient::readSome(int timeoutMs) {
    pollfd input{fd, POLLIN, 0};
    if (::poll(&input, 1, timeoutMs) <= 0) {
        return false;
    }
    uint8_t buffer[65536];
    ssize_t got = ::read(fd, buffer, sizeof buffer);
    if (got <= 0) {
        ended = true;
        return false;
    }
    bytes.insert(bytes.end(), buffer, buffer + got);
    size_t whole = bytes.size() / sizeof(Notify) * sizeof(Notify);
    for (size_t offset = 0; offset < whole; offset += sizeof(Notify)) {
        Notify record;
        std::memcpy(&record, bytes.data() + offset, sizeof record);
        kept.push_back(record);
    }
    bytes.erase(bytes.begin(), bytes.begin() + static_cast<ptrdiff_t>(whole));
    return true;
}

bool RawClient::take(Notify& record) {
    if (kept.empty()) {
        return false;
    }
    record = kept.front();
    kept.pop_front();
    return true;
}

std::vector<Notify> RawClient::receive(size_t count, int timeoutMs) {
    std::vector<Notify> records;
    Notify record;
    while (records.size() < count) {
        if (take(record)) {
            records.push_back(record);
        } else if (!readSome(timeoutMs)) {
            break;
        }
    }
    return records;
}

std::vector<Notify> RawClient::receiveUntil(uint32_t id, int timeoutMs) {
    std::vector<Notify> records;
    Notify record;
    for (;;) {
        if (take(record)) {
            if (record.id == id) {
                return records;
            }
            records.push_back(record);
        } else if (!readSome(timeoutMs)) {
            ADD_FAILURE() << "record " << id << " did not arrive";
            return records;
        }
    }
}

} // namespace brokertest
