#include "settings-service/serverconnection.h"

#include "settings-service/log.h"
#include "writefully.h"

#include <cerrno>
#include <cstring>
#include <ctime>
#include <exception>
#include <fcntl.h>
#include <memory>
#include <poll.h>
#include <sched.h>
#include <semaphore.h>
#include <sys/epoll.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>
#include <vector>

ServerConnection* gServerConnection = nullptr;

namespace {

constexpr int DRAIN_CHUNK = 256;

// Opens the broker's readiness semaphore, yielding the processor between
// failed attempts; `failures` counts them.
sem_t* openReadySemaphore(int& failures) {
    sem_t* ready;
    while ((ready = sem_open(BrokerProtocol::READY_SEMAPHORE, 0)) == SEM_FAILED) {
        ++failures;
        int openError = errno;
        sched_yield();
        errno = openError;
        if (failures == ServerConnection::MAX_OPEN_ATTEMPTS) {
            THROW_ERROR_NUMBER("sem_open");
        }
    }
    return ready;
}

// Takes the readiness semaphore, waiting at most READY_WAIT_MS; false (and a
// Warn line) when the time ran out.
bool takeReadySemaphore(sem_t* ready) {
    constexpr long NANOSECONDS = 1000000000L;
    constexpr int MILLISECONDS = 1000;
    timespec deadline{};
    clock_gettime(CLOCK_MONOTONIC, &deadline);
    deadline.tv_sec += ServerConnection::READY_WAIT_MS / MILLISECONDS;
    deadline.tv_nsec +=
        ServerConnection::READY_WAIT_MS % MILLISECONDS * (NANOSECONDS / MILLISECONDS);
    if (deadline.tv_nsec >= NANOSECONDS) {
        deadline.tv_sec += 1;
        deadline.tv_nsec -= NANOSECONDS;
    }
    if (sem_clockwait(ready, CLOCK_MONOTONIC, &deadline) == 0) {
        return true;
    }
    if (errno != ETIMEDOUT) {
        THROW_ERROR_NUMBER("sem_wait");
    }
    LOG(Warn, "%s not free after %i ms, connecting without it", BrokerProtocol::READY_SEMAPHORE,
        ServerConnection::READY_WAIT_MS);
    return false;
}

void sendAll(int fd, const void* data, size_t size) {
    if (writeFully(fd, data, size) != size) {
        THROW_ERROR("Could not send message to server");
    }
}

} // namespace

ServerConnection::ServerConnection(EventPoll& poll) : poll(poll), fd(-1), handler(nullptr) {
    LOG(LogLight, "Waiting for server");
    int failures = 0;
    connectThrough(openReadySemaphore(failures));
    LOG(LogLight, "Connected after %i attempts", failures);
}

void ServerConnection::connectThrough(sem_t* ready) {
    const std::unique_ptr<sem_t, int (*)(sem_t*)> handle(ready, sem_close);
    const bool taken = takeReadySemaphore(ready);
    try {
        connect();
    } catch (...) {
        if (taken) {
            sem_post(ready);
        }
        throw;
    }
    if (taken && sem_post(ready) < 0) {
        THROW_ERROR_NUMBER("sem_post");
    }
}

bool ServerConnection::reconnect() {
    if (isConnected()) {
        return true;
    }
    sem_t* ready = sem_open(BrokerProtocol::READY_SEMAPHORE, 0);
    if (ready == SEM_FAILED) {
        return false;
    }
    try {
        connectThrough(ready);
    } catch (const std::exception&) {
        return false;
    }
    LOG(LogLight, "Connected again");
    return true;
}

ServerConnection::~ServerConnection() {
    close();
}

void ServerConnection::connect() {
    const int created = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (created < 0) {
        THROW_ERROR_NUMBER("socket");
    }
    fd = created;
    const sockaddr_un broker = BrokerProtocol::address();
    poll.add(fd, this, EPOLLIN);
    if (::connect(fd, reinterpret_cast<const sockaddr*>(&broker), sizeof broker) < 0) {
        int connectError = errno;
        close();
        errno = connectError;
        THROW_ERROR_NUMBER("connect");
    }
}

void ServerConnection::close() {
    if (fd == -1) {
        return;
    }
    poll.remove(fd);
    ::shutdown(fd, SHUT_WR);
    pollfd input{fd, POLLIN, 0};
    char discard[DRAIN_CHUNK];
    while (::poll(&input, 1, DRAIN_TIMEOUT_MS) > 0 && ::read(fd, discard, sizeof discard) > 0) {
    }
    ::close(fd);
    fd = -1;
    reader = RecordReader();
}

void ServerConnection::lose() {
    close();
    if (handler != nullptr) {
        handler->connectionLost();
    }
}

void ServerConnection::event(EventType type) {
    switch (type) {
    case Readable: {
        Notify batch[READ_BATCH];
        std::memset(batch, 0, sizeof batch);
        size_t count = 0;
        if (reader.readFrom(fd, batch, count) < 0) {
            LOG(Error, "Read error");
            lose();
            break;
        }
        for (size_t i = 0; i < count; ++i) {
            if (handler != nullptr) {
                handler->handleEvent(batch[i]);
            } else {
                LOG(Warn, "Unhandled event: %s", eventName(batch[i]));
            }
        }
        break;
    }
    case Hangup:
        lose();
        break;
    case Priority:
        break;
    }
}

void ServerConnection::postEvent(const Notify& notify) {
    sendAll(fd, &notify, sizeof notify);
}

void ServerConnection::subscribe(const Notify& notify) {
    const Notify request[2] = {{Subscribe, 0, 0}, notify};
    sendAll(fd, request, sizeof request);
}

void ServerConnection::subscribeEach(std::span<const EventId> events) {
    std::vector<Notify> requests;
    requests.reserve(2 * events.size());
    for (const EventId event : events) {
        requests.push_back({Subscribe, 0, 0});
        requests.push_back({event, 0, 0});
    }
    sendAll(fd, requests.data(), requests.size() * sizeof(Notify));
}

void ServerConnection::subscribeAll() {
    postEvent({SubscribeAll, 0, 0});
}

namespace {

// The PostingSuspended objects that exist.
int postingSuspensions = 0;

} // namespace

PostingSuspended::PostingSuspended() {
    ++postingSuspensions;
}

PostingSuspended::~PostingSuspended() {
    --postingSuspensions;
}

void postEvent(Notify notify) {
    if (postingSuspensions > 0) {
        return;
    }
    if (gServerConnection == nullptr) {
        THROW_ERROR("Trying to post event without server connection");
    }
    gServerConnection->postEvent(notify);
}

int readEvents(int fd, Notify* buffer, int maxCount) {
    ssize_t bytes = ::read(fd, buffer, sizeof(Notify) * maxCount);
    if (bytes < 0) {
        THROW_ERROR("Read error");
    }
    return static_cast<int>(bytes / static_cast<ssize_t>(sizeof(Notify)));
}

const char* eventName(Notify notify) {
    return notify.id < EVENT_ID_COUNT ? EVENT_NAME[notify.id] : EVENT_NAME[Invalid];
}

namespace gen {

ServerConnection* getServerConnection() {
    return gServerConnection;
}

void closeServerConnection() {
    delete gServerConnection;
    gServerConnection = nullptr;
}

} // namespace gen
