// A client of the broker that speaks the record protocol over a plain socket,
// without the semaphore and without the event loop, so that a test controls
// every byte and every read.
#pragma once

#include "settings-service/notify.h"

#include <cstddef>
#include <cstdint>
#include <deque>
#include <vector>

namespace brokertest {

class RawClient {
public:
    // Connects to the broker's socket; throws std::runtime_error on failure.
    RawClient();
    ~RawClient();
    RawClient(const RawClient&) = delete;
    RawClient& operator=(const RawClient&) = delete;

    // The socket, for a caller that reads it itself.
    int socket() const { return fd; }
    void send(const std::vector<Notify>& records);
    void sendBytes(const void* data, size_t size);
    // Waits until the broker has read every byte sent so far.
    void waitUntilTaken();
    void subscribe(uint32_t id);
    void unsubscribe(uint32_t id);
    void subscribeAll();
    void unsubscribeAll();
    // Returns once the broker has handled everything sent so far: subscribes
    // to the next of the sync ids, posts it and waits for it to come back.
    // Records that arrive before it are kept for receive().
    void sync();

    // Reads until `count` records have arrived, the broker closed the
    // connection, or `timeoutMs` passed without a byte.
    std::vector<Notify> receive(size_t count, int timeoutMs = 10000);
    // Reads until a record with id `id` arrives (it is not returned) and
    // returns the records before it; fails the test when it does not come.
    std::vector<Notify> receiveUntil(uint32_t id, int timeoutMs = 10000);
    // True once the broker has closed the connection (reading returned 0).
    bool closedByBroker() const { return ended; }
    void close();

private:
    // One poll and read; false on time-out or end of stream.
    bool readSome(int timeoutMs);
    bool take(Notify& record);

    int fd;
    bool ended = false;
    std::vector<uint8_t> bytes;
    std::deque<Notify> kept;
    static uint32_t syncs;
};

// Ids for records that only tests send: events of the table (the broker takes
// subscriptions to those only) that belong to variables of MemGuiLocal, which
// no test posts and the settings service does not subscribe to.  Sentinels
// take TEST_ID_BASE + 1 to + 139, sync() the TEST_ID_COUNT - 140 after them in
// turn.
constexpr uint32_t TEST_ID_BASE = 560;
constexpr uint32_t TEST_ID_COUNT = 180;

} // namespace brokertest
