#include "endpoint.h"

#include "brokerprotocol.h"
#include "log.h"

#include <cerrno>
#include <fcntl.h>
#include <filesystem>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <system_error>
#include <unistd.h>

namespace {

constexpr int BACKLOG = 64;
constexpr mode_t SEMAPHORE_MODE = 0666;

bool anotherBrokerAnswers(const sockaddr_un& address) {
    int probe = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (probe < 0) {
        THROW_ERROR_NUMBER("socket");
    }
    bool answers =
        ::connect(probe, reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0;
    ::close(probe);
    return answers;
}

void createFolder() {
    std::error_code error;
    auto folder = std::filesystem::path(BrokerProtocol::SOCKET_PATH).parent_path();
    std::filesystem::create_directories(folder, error);
    if (error) {
        THROW_ERROR("Cannot create %s: %s", folder.c_str(), error.message().c_str());
    }
}

[[noreturn]] void closeAndThrow(int fd, const char* what) {
    int error = errno;
    ::close(fd);
    errno = error;
    THROW_ERROR_NUMBER(what);
}

int listenOn(const sockaddr_un& address) {
    if (::unlink(BrokerProtocol::SOCKET_PATH) == 0) {
        LOG(LogLight, "Removed stale %s", BrokerProtocol::SOCKET_PATH);
    }
    int fd = ::socket(AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0);
    if (fd < 0) {
        THROW_ERROR_NUMBER("socket");
    }
    if (::bind(fd, reinterpret_cast<const sockaddr*>(&address), sizeof address) < 0) {
        closeAndThrow(fd, "bind");
    }
    if (::listen(fd, BACKLOG) < 0) {
        closeAndThrow(fd, "listen");
    }
    return fd;
}

sem_t* createReadySemaphore() {
    if (sem_unlink(BrokerProtocol::READY_SEMAPHORE) == 0) {
        LOG(LogLight, "Removed stale semaphore %s", BrokerProtocol::READY_SEMAPHORE);
    }
    sem_t* ready = sem_open(BrokerProtocol::READY_SEMAPHORE, O_CREAT | O_EXCL, SEMAPHORE_MODE, 1);
    if (ready == SEM_FAILED) {
        THROW_ERROR_NUMBER("sem_open");
    }
    return ready;
}

} // namespace

Endpoint::Endpoint() : listenFd(-1), ready(nullptr) {
    const sockaddr_un address = BrokerProtocol::address();
    if (anotherBrokerAnswers(address)) {
        THROW_ERROR("Another message broker is already listening on %s",
                    BrokerProtocol::SOCKET_PATH);
    }
    createFolder();
    listenFd = listenOn(address);
    try {
        ready = createReadySemaphore();
    } catch (...) {
        ::close(listenFd);
        ::unlink(BrokerProtocol::SOCKET_PATH);
        throw;
    }
}

Endpoint::~Endpoint() {
    sem_close(ready);
    sem_unlink(BrokerProtocol::READY_SEMAPHORE);
    ::close(listenFd);
    ::unlink(BrokerProtocol::SOCKET_PATH);
}
