// The records waiting to be written to one client.
//
// The broker never blocks on a client: what the client's socket does not take
// at once waits here, up to LIMIT bytes.  A client whose backlog would pass
// LIMIT is not reading and is closed by the broker.  1 MiB holds 87381
// records, minutes of the device's ordinary traffic.  A queue that was
// written out gives back its memory when it had grown past KEEP_CAPACITY, so
// that a burst long past does not stay in the broker.
#pragma once

#include "settings-service/notify.h"

#include <cstddef>
#include <cstdint>
#include <span>
#include <sys/types.h>
#include <vector>

class OutputBuffer {
public:
    static constexpr size_t LIMIT = 1024 * 1024;
    static constexpr size_t KEEP_CAPACITY = 64 * 1024;

    // Queues one record; false (and nothing queued) when that would pass LIMIT.
    bool append(const Notify& record);
    // Writes what the socket takes of everything queued (continuing after
    // short writes and EINTR, writeFully); returns the bytes
    // written, or -1 with errno set when a write failed before any byte was
    // written.  Written bytes leave the queue.
    ssize_t flush(int fd);
    // The bytes waiting, oldest first.
    std::span<const uint8_t> queued() const { return {data.data() + head, pending()}; }
    size_t pending() const { return data.size() - head; }
    bool empty() const { return pending() == 0; }

private:
    std::vector<uint8_t> data;
    size_t head = 0; // first byte not yet written
};
