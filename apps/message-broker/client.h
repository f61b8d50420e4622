// One connected client of the broker: its socket, its subscriptions, the
// tail of a record it has not finished sending and the records queued for it.
// The broker does the work; a client only hands its poll events over.
#pragma once

#include "eventpoll.h"
#include "outputbuffer.h"
#include "recordreader.h"
#include "subscriptionset.h"

class Broker;

class Client : public EventPoll::Callback {
public:
    Client(Broker& broker, int fd) : broker(broker), fd(fd) {}
    Client(const Client&) = delete;
    Client& operator=(const Client&) = delete;

    void event(EventType type) override;

    Broker& broker;
    const int fd;
    bool open = true;     // false once closed; the broker forgets it after the wake-up
    bool watched = false; // waiting in the write watch for room in its socket
    SubscriptionSet subscriptions;
    RecordReader reader;
    OutputBuffer output;
};
