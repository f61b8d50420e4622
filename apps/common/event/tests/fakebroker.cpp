#include "fakebroker.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <cstring>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

FakeBroker::FakeBroker(unsigned semaphoreCount, bool listen) : endpoint(semaphoreCount, listen) {}

FakeBroker::~FakeBroker() {
    if (peerFd >= 0) {
        ::close(peerFd);
    }
}

int FakeBroker::accept() {
    pollfd waiting{endpoint.listenFd(), POLLIN, 0};
    if (::poll(&waiting, 1, 0) != 1) {
        return -1;
    }
    peerFd = ::accept4(endpoint.listenFd(), nullptr, nullptr, SOCK_NONBLOCK | SOCK_CLOEXEC);
    return peerFd;
}

int FakeBroker::semaphoreValue() {
    return endpoint.semaphoreValue();
}

void FakeBroker::send(const void* data, size_t size) {
    ASSERT_EQ(::send(peerFd, data, size, 0), static_cast<ssize_t>(size));
}

std::vector<uint32_t> FakeBroker::received() {
    std::vector<uint32_t> words;
    uint32_t buffer[64];
    ssize_t got;
    while ((got = ::recv(peerFd, buffer, sizeof buffer, 0)) > 0) {
        EXPECT_EQ(got % 4, 0);
        words.insert(words.end(), buffer, buffer + got / 4);
    }
    return words;
}

void FakeBroker::closePeer() {
    ::close(peerFd);
    peerFd = -1;
}
