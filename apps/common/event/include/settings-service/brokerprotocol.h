// The broker protocol as both sides speak it: where the broker is found, and
// the framing of the record stream.  The message broker and its clients
// (ServerConnection) use this one module.
//
// Endpoint: the broker listens on the UNIX-domain stream socket SOCKET_PATH
// and, once it listens, creates the named semaphore READY_SEMAPHORE with count
// 1; clients take it around their connection set-up.
//
// Framing: the stream carries bare 12-byte Notify records, nothing else.  A
// stream socket may hand a record over in pieces (a write to a slow reader
// can be partial), so RecordReader keeps the bytes of an incomplete record
// and puts them in front of the next read's bytes: records are delivered
// whole, in order, and the stream never loses its alignment.  Reads
// interrupted by a signal (EINTR) are repeated; writes go through writeFully()
// (writefully.h), which continues after EINTR and short writes until
// everything is written or the socket refuses more.
//
// Choice made here: the reassembly is kept beside, not instead of, the
// one-read readEvents() of the client's interface, which still counts whole
// records and drops a trailing part; the client's connection reads through a
// RecordReader.
#pragma once

#include "settings-service/notify.h"

#include <cstddef>
#include <cstdint>
#include <span>
#include <sys/types.h>
#include <sys/un.h>

namespace BrokerProtocol {

constexpr const char* SOCKET_PATH = "/var/volatile/message-broker.socket";
constexpr const char* READY_SEMAPHORE = "/message-broker-ready";

// The broker's address: SOCKET_PATH, the rest of the path field zeroed.
sockaddr_un address();

} // namespace BrokerProtocol

// Reassembles a byte stream into whole Notify records.
//
// The caller supplies the scratch buffer of each read (the client keeps its
// batch on the stack, the broker a buffer of its own): the kept bytes of an
// incomplete record are copied to its start and the read fills the rest, so
// one read takes at most the scratch buffer's size minus the kept bytes.
// The whole records then lie at the start of the scratch buffer.
class RecordReader {
public:
    // One read from fd (repeated after EINTR).  Returns the read's result
    // (bytes read, 0 at the end of the stream, -1 with errno set); `records`
    // receives the number of whole records now at the start of `scratch`,
    // which must hold at least two records.
    ssize_t readFrom(int fd, std::span<Notify> scratch, size_t& records);

    // The two halves of readFrom(), for bytes that do not come from a
    // descriptor: prepare() puts the kept bytes at the start of `scratch` and
    // returns the room behind them; complete() takes `got` bytes placed at
    // the start of that room and returns the number of whole records at the
    // start of `scratch`, keeping the bytes of an incomplete last record.
    std::span<uint8_t> prepare(std::span<Notify> scratch) const;
    size_t complete(std::span<Notify> scratch, size_t got);

    // True while part of a record is waiting for the rest.
    bool partial() const { return tailSize != 0; }

private:
    uint8_t tail[sizeof(Notify)];
    size_t tailSize = 0;
};
