// The message broker played inside a test process, the one double of the
// broker that every test uses.  It replaces any stale socket file and
// readiness semaphore, listens on the broker's socket (unless told not to)
// and creates the semaphore, and removes both again at the end.
//
// A test takes the client's connection with accept() and then reads what the
// client posted and sends records to it as the broker would forward them.
// Reading is exact: a record that the client's write has returned for is
// among what received() gives, without waiting.  A test whose client may post
// more than a socket holds before the test reads (a whole service) lets the
// double collect in the background; one that wants to see every system call
// of the client's side (the connection's own tests) reads on request only, so
// that no thread of the double runs beside it.
//
// Set-up failures throw std::runtime_error.
#pragma once

#include "settings-service/notify.h"

#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <mutex>
#include <semaphore.h>
#include <thread>
#include <vector>

class BrokerDouble {
public:
    // What happens to the bytes the client sends while the test does not read.
    enum class Reading {
        // They stay in the socket until the test reads.
        OnRequest,
        // A thread of the double takes them out and keeps them for the test.
        InBackground,
        // A thread of the double takes them out and drops them.
        Discarding,
    };

    // Listens unless `listen` is false; the semaphore starts at `semaphoreCount`.
    explicit BrokerDouble(unsigned semaphoreCount = 1, bool listen = true);
    ~BrokerDouble();
    BrokerDouble(const BrokerDouble&) = delete;
    BrokerDouble& operator=(const BrokerDouble&) = delete;

    // Takes over the next connection, waiting up to `milliseconds` for one;
    // the previous one is closed first.  The connection's descriptor (not
    // blocking), or -1 when none came.
    int accept(int milliseconds = 0, Reading reading = Reading::OnRequest);
    // The accepted connection, -1 when there is none.
    int peer() const { return peerFd; }
    // Hands the accepted connection over to the test, which then closes it.
    int releasePeer();
    // Closes the accepted connection (after stopping the background reading).
    void closePeer();

    int semaphoreValue() const;
    sem_t* semaphore() const { return ready; }

    // Sends bytes or one record to the client; a short send fails the test.
    void send(const void* data, std::size_t size);
    void send(const Notify& notify);

    // Every whole record the client sent since the last read, accepting its
    // connection first when none was taken yet.
    std::vector<Notify> received();
    // Every record that comes in until nothing has come for 50 ms.
    std::vector<Notify> receivedOnceQuiet();
    // Waits up to `milliseconds` until at least `count` records are there; all of them.
    std::vector<Notify> receive(std::size_t count, int milliseconds);
    // Everything the client sent since the last read, as 32-bit words.
    std::vector<uint32_t> receivedWords();

private:
    // Moves what the socket holds now into `bytes`; false once the client
    // closed.  The caller holds the lock.
    bool drain();
    // Waits up to `time` for more bytes; true when some came.  The caller
    // holds the lock through `guard`.
    bool waitForMore(std::unique_lock<std::mutex>& guard, std::chrono::milliseconds time);
    void collect(bool keep);
    void stopReading();
    std::vector<Notify> takeRecords();

    int listener = -1;
    sem_t* ready = SEM_FAILED;
    int peerFd = -1;
    // Wakes the background reader when the connection goes.
    int stopFds[2] = {-1, -1};
    std::thread reader;
    mutable std::mutex lock;
    std::condition_variable arrived;
    std::vector<unsigned char> bytes;
};

// The number of subscriptions of the service (each one a {Subscribe} record
// followed by the event's record).
constexpr unsigned SUBSCRIPTION_COUNT = 148;

// True when `records` is exactly the service's subscription sequence.
bool isSubscriptionSequence(const std::vector<Notify>& records);
