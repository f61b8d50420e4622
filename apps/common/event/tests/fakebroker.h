// The broker's side of a connection, played by a test: the listening socket
// and the readiness semaphore, with the accepted connection read and written
// directly, so that a test sees the exact bytes a client sends.
#pragma once

#include "brokerendpoint.h"

#include <cstddef>
#include <cstdint>
#include <vector>

class FakeBroker {
public:
    // Replaces any socket file and semaphore; listens (unless `listen` is
    // false) and creates the semaphore with `semaphoreCount`.
    explicit FakeBroker(unsigned semaphoreCount = 1, bool listen = true);
    // Removes both again.
    ~FakeBroker();
    FakeBroker(const FakeBroker&) = delete;
    FakeBroker& operator=(const FakeBroker&) = delete;

    // Takes the next connection without waiting; -1 when there is none.
    int accept();
    int semaphoreValue();
    void send(const void* data, size_t size);
    // Everything the client has sent so far, read as 32-bit words.
    std::vector<uint32_t> received();
    void closePeer();

    BrokerEndpoint endpoint;
    int peerFd = -1; // the accepted connection, non-blocking
};
