// One connected client of the broker: its socket and its routing state
// (Peer), and who connected: the peer's credentials (SO_PEERCRED) as the
// kernel gave them at connect, named in every log line about the client.  The
// broker does the work; a client only hands its poll events over.
#pragma once

#include "peer.h"
#include "settings-service/eventpoll.h"

#include <string>
#include <sys/socket.h>

class Broker;

class Client : public EventPoll::Callback, public Peer {
public:
    Client(Broker& broker, int fd, const ucred& credentials);
    Client(const Client&) = delete;
    Client& operator=(const Client&) = delete;

    void event(EventType type) override;

    Broker& broker;
    const int fd;
    const ucred credentials;
    // "12 (pid 345, uid 0, gid 990)", for log lines ("Client 12 (pid ...").
    const std::string name;
    bool watched = false; // waiting in the write watch for room in its socket
};
