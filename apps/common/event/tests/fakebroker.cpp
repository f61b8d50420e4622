#include "fakebroker.h"

#include "serverconnection.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

FakeBroker::FakeBroker(unsigned semaphoreCount, bool listen) {
    ::unlink(ServerConnection::SOCKET_PATH);
    sem_unlink(ServerConnection::READY_SEMAPHORE);
    if (listen) {
        listenFd = ::socket(AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0);
        sockaddr_un address{};
        address.sun_family = AF_UNIX;
        std::strcpy(address.sun_path, ServerConnection::SOCKET_PATH);
        EXPECT_EQ(::bind(listenFd, reinterpret_cast<sockaddr*>(&address), sizeof address), 0)
            << std::strerror(errno);
        EXPECT_EQ(::listen(listenFd, 8), 0);
    }
    ready = sem_open(ServerConnection::READY_SEMAPHORE, O_CREAT | O_EXCL, 0600, semaphoreCount);
    EXPECT_NE(ready, SEM_FAILED);
}

FakeBroker::~FakeBroker() {
    if (peerFd >= 0) {
        ::close(peerFd);
    }
    if (listenFd >= 0) {
        ::close(listenFd);
    }
    sem_close(ready);
    sem_unlink(ServerConnection::READY_SEMAPHORE);
    ::unlink(ServerConnection::SOCKET_PATH);
}

int FakeBroker::accept() {
    peerFd = ::accept4(listenFd, nullptr, nullptr, SOCK_NONBLOCK | SOCK_CLOEXEC);
    return peerFd;
}

int FakeBroker::semaphoreValue() {
    int value = -1;
    sem_getvalue(ready, &value);
    return value;
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
