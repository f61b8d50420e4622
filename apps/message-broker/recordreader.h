// Reassembles a client's byte stream into whole Notify records.
//
// Each call reads once into a caller-supplied scratch buffer, behind the
// bytes of an incomplete record kept from the previous call, so that a record
// split across reads is delivered whole and the stream never loses its
// alignment.  The whole records lie at the start of the scratch buffer.
#pragma once

#include "notify.h"

#include <cstddef>
#include <cstdint>
#include <span>
#include <sys/types.h>

class RecordReader {
public:
    // One read from fd.  Returns the read's result (bytes read, 0 at the end
    // of the stream, -1 with errno set); `records` receives the number of
    // whole records now at the start of `scratch`, which must hold at least
    // two records.
    ssize_t readFrom(int fd, std::span<Notify> scratch, size_t& records);
    // True while part of a record is waiting for the rest.
    bool partial() const { return tailSize != 0; }

private:
    uint8_t tail[sizeof(Notify)];
    size_t tailSize = 0;
};
