// The message broker played by the test process: it listens on the broker's
// socket and holds the readiness semaphore (count 1), so that the service's
// start-up connects to it.  Every connection the process opens is taken over
// by accept(); a reader thread collects what the service posts (so that the
// service never blocks on a full socket), and records can be sent to it as
// the broker would forward them.
#pragma once

#include "brokerendpoint.h"
#include "settings-service/notify.h"

#include <condition_variable>
#include <mutex>
#include <thread>
#include <vector>

class BrokerStandIn {
public:
    BrokerStandIn();
    ~BrokerStandIn();
    BrokerStandIn(const BrokerStandIn&) = delete;
    BrokerStandIn& operator=(const BrokerStandIn&) = delete;

    // Takes over the next connection (waiting up to 10 s); the previous one is closed.
    void accept();
    // Every whole record received since the last call, once nothing has come
    // in for 50 ms.
    std::vector<Notify> received();
    // Waits up to `milliseconds` until at least `count` records are there; returns them all.
    std::vector<Notify> receive(std::size_t count, int milliseconds);
    // Sends one record to the service.
    void send(const Notify& notify);

private:
    void closeConnection();
    void read(int fd);
    // The whole records collected so far; the caller holds the lock.
    std::vector<Notify> takeRecords();

    BrokerEndpoint endpoint;
    int clientFd = -1;
    std::thread reader;
    std::mutex lock;
    std::condition_variable arrived;
    std::vector<unsigned char> bytes;
};

// The number of subscriptions of the service (each one a {Subscribe} record
// followed by the event's record).
constexpr unsigned SUBSCRIPTION_COUNT = 148;

// True when `records` is exactly the service's subscription sequence.
bool isSubscriptionSequence(const std::vector<Notify>& records);
