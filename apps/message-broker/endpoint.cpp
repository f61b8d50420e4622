#include "endpoint.h"

#include "ownership.h"
#include "settings-service/brokerprotocol.h"
#include "settings-service/log.h"

#include <cerrno>
#include <fcntl.h>
#include <filesystem>
#include <string>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <system_error>
#include <unistd.h>

namespace {

constexpr int BACKLOG = 64;
// The file behind the readiness semaphore.
const std::string SEMAPHORE_FILE =
    std::string(Ownership::SHM_FOLDER) + "/sem." + (BrokerProtocol::READY_SEMAPHORE + 1);

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

// Removes what another user made at `path`; true when something of this
// process's own user is there.
bool clearForeign(const char* what, const std::string& path) {
    struct stat status {};
    if (::lstat(path.c_str(), &status) != 0) {
        return false;
    }
    if (Ownership::isOwn(status)) {
        return true;
    }
    Ownership::removeForeign(what, path, status);
    return false;
}

int listenOn(const sockaddr_un& address) {
    if (::unlink(BrokerProtocol::SOCKET_PATH) == 0) {
        LOG(LogLight, "Removed stale %s", BrokerProtocol::SOCKET_PATH);
    }
    int fd = ::socket(AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0);
    if (fd < 0) {
        THROW_ERROR_NUMBER("socket");
    }
    {
        const Ownership::ExactModes exact(Ownership::SHARED_MODE);
        if (::bind(fd, reinterpret_cast<const sockaddr*>(&address), sizeof address) < 0) {
            closeAndThrow(fd, "bind");
        }
    }
    if (::listen(fd, BACKLOG) < 0) {
        closeAndThrow(fd, "listen");
    }
    return fd;
}

sem_t* createReadySemaphore() {
    if (clearForeign("semaphore", SEMAPHORE_FILE) &&
        sem_unlink(BrokerProtocol::READY_SEMAPHORE) == 0) {
        LOG(LogLight, "Removed stale semaphore %s", BrokerProtocol::READY_SEMAPHORE);
    }
    const Ownership::ExactModes exact(Ownership::SHARED_MODE);
    sem_t* ready =
        sem_open(BrokerProtocol::READY_SEMAPHORE, O_CREAT | O_EXCL, Ownership::SHARED_MODE, 1);
    if (ready == SEM_FAILED) {
        THROW_ERROR_NUMBER("sem_open");
    }
    return ready;
}

} // namespace

Endpoint::Endpoint() : listenFd(-1), ready(nullptr) {
    const sockaddr_un address = BrokerProtocol::address();
    // Only a socket of the broker's own user can be another broker.
    clearForeign("socket", BrokerProtocol::SOCKET_PATH);
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
