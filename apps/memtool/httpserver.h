// A small HTTP/1.1 server on the process's event loop, for `memtool serve`.
//
// It runs in memtool's one thread, on the same EventPoll as the broker
// connection: the catalogue's lookups and the memories are read without locks,
// and no client can hold the loop up.  Every socket is non-blocking; the
// server keeps its own epoll instance for its sockets (it needs to know when a
// socket can take more bytes, which the process's poll does not report) and
// registers that instance with the process's poll.
//
// Connections: at most MAX_CONNECTIONS at once (one more is answered 503 and
// closed).  A connection reads one request at a time and reads the next only
// when the response before it is written, so a client that sends and does not
// read holds one response at most.  A connection without traffic for
// IDLE_SECONDS is closed.
//
// Event streams (server-sent events): a response marked eventStream keeps its
// connection open; broadcast() appends to every stream.  A stream whose client
// does not read is dropped as soon as its unsent bytes would pass
// STREAM_BACKLOG_BYTES beyond the socket's own buffer (STREAM_SEND_BUFFER): the
// events are never waited for, and memory stays bounded.  A stream without
// events for HEARTBEAT_SECONDS gets a comment line, so that a client that went
// away is noticed.
#pragma once

#include "httprequest.h"
#include "result.h"
#include "settings-service/eventpoll.h"

#include <chrono>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <netinet/in.h>
#include <string>
#include <string_view>

// Where the server listens: an IPv4 or IPv6 address and a port.
struct ListenAddress {
    sockaddr_storage address{};
    socklen_t length = 0;

    bool isWildcard() const;
    bool isLoopback() const;
    // "127.0.0.1:8765" or "[::1]:8765".
    std::string text() const;
    // The address alone: "127.0.0.1", "[::1]".
    std::string hostText() const;
    uint16_t port() const;
};

// Reads "ADDRESS:PORT": a dotted IPv4 address, "[IPv6]" or "localhost"
// (127.0.0.1), and a port from 0 to 65535 (0: one the kernel picks).
// Nullopt when the text is none of these.
std::optional<ListenAddress> parseListenAddress(const std::string& text);

class HttpServer : public EventPoll::Callback {
public:
    // Answers a request; runs in the event loop.
    using Handler = std::function<HttpResponse(const HttpRequest&)>;

    static constexpr size_t MAX_CONNECTIONS = 64;
    static constexpr size_t STREAM_BACKLOG_BYTES = 1024 * 1024;
    static constexpr int STREAM_SEND_BUFFER = 64 * 1024;
    static constexpr int IDLE_SECONDS = 60;
    static constexpr int HEARTBEAT_SECONDS = 15;

    // Listens on `address` and registers with `poll`; an error (with the
    // system's errno) when the address cannot be bound.
    static Result<std::unique_ptr<HttpServer>> listen(EventPoll& poll, const ListenAddress& address,
                                                      Handler handler);
    ~HttpServer();
    HttpServer(const HttpServer&) = delete;
    HttpServer& operator=(const HttpServer&) = delete;

    // The address as bound (with the kernel's port when 0 was asked for).
    const ListenAddress& address() const { return bound; }
    // Appends `bytes` to every event stream.
    void broadcast(std::string_view bytes);
    // Ends every event stream; their clients connect again.
    void endStreams();
    // Once a second: heartbeats, idle connections closed.
    void tick();
    size_t streamCount() const;

    void event(EventType type) override;

private:
    using Clock = std::chrono::steady_clock;

    HttpServer(EventPoll& poll, const ListenAddress& address, Handler handler);
    // Opens the listening socket and registers it; on an error nothing stays open.
    Result<void> start();

    struct Connection {
        int fd;
        std::string input;
        std::string output;
        size_t sent = 0;
        bool stream = false;
        bool closing = false;    // close once the output is written
        bool peerClosed = false; // the client sent its last byte
        unsigned interest = 0;   // the epoll events asked for
        bool registered = false; // with the server's epoll instance
        Clock::time_point lastTraffic;
    };

    void accept();
    void onReadable(Connection& connection);
    // Answers the requests that the input holds, one at a time.
    void serveInput(Connection& connection);
    // Writes what the socket takes; closes a connection that is done or
    // broken.  False when the connection was closed.
    bool flush(Connection& connection);
    void updateInterest(Connection& connection);
    void close(int fd);
    size_t pending(const Connection& connection) const;

    EventPoll& poll;
    Handler handler;
    ListenAddress bound;
    int listener = -1;
    int epollFd = -1;
    std::map<int, std::unique_ptr<Connection>> connections;
};
