// The message broker: accepts clients, keeps their subscriptions and forwards
// every record that is not a command to each client subscribed to its id, the
// sender included.
//
// Batching: a client's input is read with one read per wake-up (up to
// READ_RECORDS records); the records for one destination are queued and
// written with one write after the wake-up (afterWakeUp).  A destination whose
// socket is full keeps the rest queued and is flushed again as soon as its
// socket has room (WriteWatch); when its queue would pass OutputBuffer::LIMIT
// it is closed and the broker logs it at Warn.  A client that hangs up has its
// last records forwarded, then it is forgotten; an incomplete record or a
// command without its operand at that point is dropped.  When the process
// runs out of descriptors, a new connection is accepted on a descriptor kept
// in reserve and closed at once (the client sees the end of the stream), so
// that a pending connection never keeps the loop spinning.
#pragma once

#include "client.h"
#include "endpoint.h"
#include "eventpoll.h"
#include "writewatch.h"

#include <memory>
#include <vector>

class Broker {
public:
    static constexpr size_t READ_RECORDS = 4096;

    explicit Broker(EventPoll& poll);
    ~Broker();
    Broker(const Broker&) = delete;
    Broker& operator=(const Broker&) = delete;

    // Called by the loop after each wait: writes what the wake-up queued and
    // forgets the clients that were closed.
    void afterWakeUp();
    void serve(Client& client, EventPoll::Callback::EventType type);

private:
    void accept();
    void refuseOne();
    // One read from the client and the handling of its records; false when
    // the client has no more input now (would block, ended or failed).
    bool receive(Client& client);
    void flush(Client& client);
    void flushWritable();
    void closeClient(Client& client);

    EventPoll& poll;
    Endpoint endpoint;
    WriteWatch writeWatch;
    EventPoll::FunctionCallback listenCallback;
    EventPoll::FunctionCallback writeCallback;
    std::vector<std::unique_ptr<Client>> clients;
    std::vector<Notify> scratch;
    int spareFd;
};
