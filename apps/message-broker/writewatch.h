// Tells which clients' sockets have room again.
//
// The process's EventPoll reports input only, so the sockets that hold back
// output are watched for EPOLLOUT in an epoll instance of their own, whose
// descriptor the EventPoll watches for input: it becomes readable when one of
// the watched sockets becomes writable or fails.
#pragma once

class Client;

class WriteWatch {
public:
    WriteWatch();
    ~WriteWatch();
    WriteWatch(const WriteWatch&) = delete;
    WriteWatch& operator=(const WriteWatch&) = delete;

    int fd() const { return epollFd; }
    void watch(Client& client);
    void unwatch(Client& client);
    static constexpr int BATCH = 16;
    // Fills `clients` with the clients whose sockets are ready, without
    // waiting; returns their number.
    int ready(Client* (&clients)[BATCH]);

private:
    int epollFd;
};
