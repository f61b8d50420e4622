// A stand-in for the message broker inside a test process: it listens on the
// broker's socket and opens the readiness semaphore with count 1, so that the
// catalogue's start-up connects to it.  Whatever the process posts can then
// be read back in order, without a second process and without waiting: a
// record written by the process is in the peer's socket as soon as the write
// returns.
#pragma once

#include "brokerendpoint.h"
#include "settings-service/notify.h"

#include <vector>

class BrokerPeer {
public:
    BrokerPeer();
    ~BrokerPeer();
    BrokerPeer(const BrokerPeer&) = delete;
    BrokerPeer& operator=(const BrokerPeer&) = delete;

    // Every whole record received since the last call (accepting the
    // process's connection on the first call).
    std::vector<Notify> received();

private:
    BrokerEndpoint endpoint;
    int clientFd = -1;
};
