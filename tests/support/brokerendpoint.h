// The broker's listening side, for tests that play the message broker in
// their own process: replaces any stale socket file and readiness semaphore,
// listens on the broker's socket and creates the semaphore, and removes both
// again at the end.  Failures throw std::runtime_error.
#pragma once

#include <semaphore.h>

class BrokerEndpoint {
public:
    // Listens unless `listen` is false; the semaphore starts at `semaphoreCount`.
    explicit BrokerEndpoint(unsigned semaphoreCount = 1, bool listen = true);
    ~BrokerEndpoint();
    BrokerEndpoint(const BrokerEndpoint&) = delete;
    BrokerEndpoint& operator=(const BrokerEndpoint&) = delete;

    // The listening socket (blocking), -1 when not listening.
    int listenFd() const { return listener; }
    sem_t* semaphore() const { return ready; }
    int semaphoreValue() const;

private:
    int listener = -1;
    sem_t* ready = SEM_FAILED;
};
