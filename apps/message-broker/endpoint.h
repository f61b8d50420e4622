// Where clients find the broker: the listening socket and the readiness
// semaphore.
//
// The constructor refuses to start when another broker answers on the socket
// (leaving that broker's socket file and semaphore alone); otherwise it
// creates the socket's folder if needed, replaces a stale socket file, listens,
// and only then replaces a stale semaphore by a new one with count 1, so that
// a client which gets past the semaphore always finds the socket listening.
// The destructor removes both names.
//
// Access (ownership.h): the socket and the semaphore are made with mode 0660
// and the broker's group, whatever the umask.  A socket path or semaphore that
// another user made (or a link in its place) is removed with a Warn line
// naming its owner; one that cannot be removed refuses the start.
#pragma once

#include <semaphore.h>

class Endpoint {
public:
    Endpoint();
    ~Endpoint();
    Endpoint(const Endpoint&) = delete;
    Endpoint& operator=(const Endpoint&) = delete;

    // The listening socket, non-blocking.
    int fd() const { return listenFd; }

private:
    int listenFd;
    sem_t* ready;
};
