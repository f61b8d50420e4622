// One connected client of the broker: its socket and its routing state
// (Peer).  The broker does the work; a client only hands its poll events over.
#pragma once

#include "eventpoll.h"
#include "peer.h"

class Broker;

class Client : public EventPoll::Callback, public Peer {
public:
    Client(Broker& broker, int fd) : broker(broker), fd(fd) {}
    Client(const Client&) = delete;
    Client& operator=(const Client&) = delete;

    void event(EventType type) override;

    Broker& broker;
    const int fd;
    bool watched = false; // waiting in the write watch for room in its socket
};
