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
//
// Limits (clientlimits.h, routing.h, subscriptionset.h): a cap on clients
// with room kept for the broker's own user and root, fixed-size
// subscriptions, and a cap on the queued bytes of every client together; a
// client past a limit is closed.  Lines about clients name their credentials
// (SO_PEERCRED); those about misbehaving clients (refused, closed for their
// queues, refused subscriptions) are rate-limited (misbehaviourlog.h).
#pragma once

#include "client.h"
#include "clientlimits.h"
#include "endpoint.h"
#include "misbehaviourlog.h"
#include "routing.h"
#include "settings-service/eventpoll.h"
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

    // The open clients and the bytes queued for all of them (for tests).
    size_t clientCount() const { return openClients; }
    size_t queuedBytes() const { return total.bytes; }

private:
    void accept();
    // Takes a new connection unless the client limits say no; false when it was closed.
    bool admit(int fd);
    void refuseOne();
    // Closes a client that passed a queue limit, with a rate-limited line.
    void closeForQueue(Client& client, QueueLimit limit);
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
    ClientLimits limits;
    size_t openClients = 0;
    QueueTotal total;
    MisbehaviourLog misbehaviour;
};
