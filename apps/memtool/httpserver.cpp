#include "httpserver.h"

#include <arpa/inet.h>
#include <cerrno>
#include <charconv>
#include <cstring>
#include <fcntl.h>
#include <sys/epoll.h>
#include <sys/socket.h>
#include <unistd.h>
#include <vector>

namespace {

// Input beyond a whole request and its body is not read while a response is
// being written.
constexpr size_t INPUT_LIMIT = MAX_HEAD_BYTES + MAX_BODY_BYTES;
constexpr size_t READ_CHUNK = 16 * 1024;

// The error of the system call that just failed: `what`, the reason and errno.
Error systemError(const std::string& what,
                  std::source_location where = std::source_location::current()) {
    const int code = errno;
    return failure(what + ": " + std::strerror(code), code, where);
}

} // namespace

bool ListenAddress::isWildcard() const {
    if (address.ss_family == AF_INET) {
        return reinterpret_cast<const sockaddr_in&>(address).sin_addr.s_addr == htonl(INADDR_ANY);
    }
    return IN6_IS_ADDR_UNSPECIFIED(&reinterpret_cast<const sockaddr_in6&>(address).sin6_addr);
}

bool ListenAddress::isLoopback() const {
    if (address.ss_family == AF_INET) {
        return (ntohl(reinterpret_cast<const sockaddr_in&>(address).sin_addr.s_addr) >> 24) == 127;
    }
    return IN6_IS_ADDR_LOOPBACK(&reinterpret_cast<const sockaddr_in6&>(address).sin6_addr);
}

std::string ListenAddress::hostText() const {
    char text[INET6_ADDRSTRLEN] = {};
    if (address.ss_family == AF_INET) {
        inet_ntop(AF_INET, &reinterpret_cast<const sockaddr_in&>(address).sin_addr, text,
                  sizeof text);
        return text;
    }
    inet_ntop(AF_INET6, &reinterpret_cast<const sockaddr_in6&>(address).sin6_addr, text,
              sizeof text);
    return std::string("[") + text + "]";
}

uint16_t ListenAddress::port() const {
    return ntohs(address.ss_family == AF_INET
                     ? reinterpret_cast<const sockaddr_in&>(address).sin_port
                     : reinterpret_cast<const sockaddr_in6&>(address).sin6_port);
}

std::string ListenAddress::text() const {
    return hostText() + ":" + std::to_string(port());
}

std::optional<ListenAddress> parseListenAddress(const std::string& text) {
    const size_t colon = text.rfind(':');
    if (colon == std::string::npos) {
        return std::nullopt;
    }
    const std::string portText = text.substr(colon + 1);
    unsigned port = 0;
    const auto [end, error] =
        std::from_chars(portText.data(), portText.data() + portText.size(), port);
    if (portText.empty() || error != std::errc() || end != portText.data() + portText.size() ||
        port > 65535) {
        return std::nullopt;
    }
    std::string host = text.substr(0, colon);
    if (host == "localhost") {
        host = "127.0.0.1";
    }
    ListenAddress result;
    if (host.size() > 2 && host.front() == '[' && host.back() == ']') {
        sockaddr_in6 v6{};
        v6.sin6_family = AF_INET6;
        v6.sin6_port = htons(static_cast<uint16_t>(port));
        if (inet_pton(AF_INET6, host.substr(1, host.size() - 2).c_str(), &v6.sin6_addr) != 1) {
            return std::nullopt;
        }
        std::memcpy(&result.address, &v6, sizeof v6);
        result.length = sizeof v6;
        return result;
    }
    sockaddr_in v4{};
    v4.sin_family = AF_INET;
    v4.sin_port = htons(static_cast<uint16_t>(port));
    if (inet_pton(AF_INET, host.c_str(), &v4.sin_addr) != 1) {
        return std::nullopt;
    }
    std::memcpy(&result.address, &v4, sizeof v4);
    result.length = sizeof v4;
    return result;
}

HttpServer::HttpServer(EventPoll& poll, const ListenAddress& address, Handler handler)
    : poll(poll), handler(std::move(handler)), bound(address) {}

Result<std::unique_ptr<HttpServer>>
HttpServer::listen(EventPoll& poll, const ListenAddress& address, Handler handler) {
    std::unique_ptr<HttpServer> server(new HttpServer(poll, address, std::move(handler)));
    TRY(server->start());
    return server;
}

Result<void> HttpServer::start() {
    const ListenAddress& address = bound;
    listener = ::socket(address.address.ss_family, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0);
    if (listener == -1) {
        return systemError("cannot make a socket");
    }
    const int one = 1;
    setsockopt(listener, SOL_SOCKET, SO_REUSEADDR, &one, sizeof one);
    if (address.address.ss_family == AF_INET6) {
        setsockopt(listener, IPPROTO_IPV6, IPV6_V6ONLY, &one, sizeof one);
    }
    if (::bind(listener, reinterpret_cast<const sockaddr*>(&address.address), address.length) ==
            -1 ||
        ::listen(listener, static_cast<int>(MAX_CONNECTIONS)) == -1) {
        Error error = systemError("cannot listen on " + address.text());
        ::close(listener);
        listener = -1;
        return error;
    }
    getsockname(listener, reinterpret_cast<sockaddr*>(&bound.address), &bound.length);
    epollFd = epoll_create1(EPOLL_CLOEXEC);
    epoll_event interest{};
    interest.events = EPOLLIN;
    interest.data.fd = listener;
    if (epollFd == -1 || epoll_ctl(epollFd, EPOLL_CTL_ADD, listener, &interest) == -1) {
        Error error = systemError("cannot watch the listening socket");
        ::close(listener);
        listener = -1;
        if (epollFd != -1) {
            ::close(epollFd);
            epollFd = -1;
        }
        return error;
    }
    poll.add(epollFd, this, EPOLLIN);
    return {};
}

HttpServer::~HttpServer() {
    while (!connections.empty()) {
        close(connections.begin()->first);
    }
    if (epollFd == -1) {
        // Never started: nothing is open or registered.
        return;
    }
    try {
        poll.remove(epollFd);
    } catch (const std::exception&) {
        // The process's poll is closed already: nothing is registered there.
    }
    ::close(epollFd);
    ::close(listener);
}

void HttpServer::event(EventType type) {
    if (type != Readable) {
        return;
    }
    epoll_event ready[32];
    const int count = epoll_wait(epollFd, ready, 32, 0);
    for (int i = 0; i < count; ++i) {
        const int fd = ready[i].data.fd;
        if (fd == listener) {
            accept();
            continue;
        }
        const auto found = connections.find(fd);
        if (found == connections.end()) {
            continue;
        }
        Connection& connection = *found->second;
        const unsigned events = ready[i].events;
        if ((events & EPOLLERR) != 0) {
            close(fd);
            continue;
        }
        if ((events & EPOLLOUT) != 0 && !flush(connection)) {
            continue;
        }
        if ((events & (EPOLLIN | EPOLLHUP | EPOLLRDHUP)) != 0) {
            onReadable(connection);
        } else {
            serveInput(connection); // the next request, once a response is written
        }
    }
}

void HttpServer::accept() {
    for (;;) {
        const int fd = ::accept4(listener, nullptr, nullptr, SOCK_NONBLOCK | SOCK_CLOEXEC);
        if (fd == -1) {
            return; // EAGAIN, or a connection that went away before it was taken
        }
        if (connections.size() >= MAX_CONNECTIONS) {
            HttpResponse busy{503, "text/plain; charset=utf-8", "too many connections\n"};
            const std::string bytes = responseBytes(busy, false);
            [[maybe_unused]] const ssize_t written =
                ::send(fd, bytes.data(), bytes.size(), MSG_NOSIGNAL);
            ::close(fd);
            continue;
        }
        auto connection = std::make_unique<Connection>();
        connection->fd = fd;
        connection->lastTraffic = Clock::now();
        Connection& added = *connection;
        connections.emplace(fd, std::move(connection));
        updateInterest(added);
    }
}

void HttpServer::onReadable(Connection& connection) {
    const int fd = connection.fd;
    char chunk[READ_CHUNK];
    while (connection.input.size() < INPUT_LIMIT) {
        const ssize_t got = ::recv(fd, chunk, sizeof chunk, 0);
        if (got > 0) {
            connection.lastTraffic = Clock::now();
            if (!connection.stream) {
                connection.input.append(chunk, static_cast<size_t>(got));
            }
            continue;
        }
        if (got == 0) {
            connection.peerClosed = true;
        } else if (errno == EINTR) {
            continue;
        } else if (errno != EAGAIN && errno != EWOULDBLOCK) {
            close(fd);
            return;
        }
        break;
    }
    serveInput(connection);
}

void HttpServer::serveInput(Connection& connection) {
    const int fd = connection.fd;
    while (!connection.stream && !connection.closing && pending(connection) == 0) {
        RequestParse parse = parseRequest(connection.input);
        if (parse.outcome == RequestParse::Incomplete) {
            break;
        }
        if (parse.outcome == RequestParse::Refused) {
            HttpResponse refusal{parse.refusal.status, "text/plain; charset=utf-8",
                                 parse.refusal.reason + "\n"};
            connection.output = responseBytes(refusal, false);
            connection.closing = true;
            break;
        }
        connection.input.erase(0, parse.consumed);
        const HttpResponse response = handler(parse.request);
        if (connections.count(fd) == 0) {
            return; // the handler closed it (endStreams)
        }
        const bool keepAlive = parse.request.keepAlive && !connection.peerClosed;
        connection.output = responseBytes(response, keepAlive || response.eventStream);
        connection.sent = 0;
        if (response.eventStream) {
            connection.stream = true;
            connection.input.clear();
            const int size = STREAM_SEND_BUFFER;
            setsockopt(fd, SOL_SOCKET, SO_SNDBUF, &size, sizeof size);
        } else if (!keepAlive) {
            connection.closing = true;
        }
        if (!flush(connection)) {
            return;
        }
    }
    if (connection.peerClosed && (connection.stream || pending(connection) == 0)) {
        close(fd);
        return;
    }
    updateInterest(connection);
}

bool HttpServer::flush(Connection& connection) {
    while (pending(connection) > 0) {
        const ssize_t written = ::send(connection.fd, connection.output.data() + connection.sent,
                                       pending(connection), MSG_NOSIGNAL);
        if (written > 0) {
            connection.sent += static_cast<size_t>(written);
            connection.lastTraffic = Clock::now();
            continue;
        }
        if (written == -1 && errno == EINTR) {
            continue;
        }
        if (written == -1 && (errno == EAGAIN || errno == EWOULDBLOCK)) {
            break;
        }
        close(connection.fd);
        return false;
    }
    if (pending(connection) == 0) {
        connection.output.clear();
        connection.sent = 0;
        if (connection.closing) {
            close(connection.fd);
            return false;
        }
    } else if (connection.sent > connection.output.size() / 2) {
        connection.output.erase(0, connection.sent);
        connection.sent = 0;
    }
    updateInterest(connection);
    return true;
}

void HttpServer::updateInterest(Connection& connection) {
    unsigned wanted = 0;
    if (connection.input.size() < INPUT_LIMIT && !connection.peerClosed) {
        wanted |= EPOLLIN | EPOLLRDHUP;
    }
    if (pending(connection) > 0) {
        wanted |= EPOLLOUT;
    }
    if (connection.registered && wanted == connection.interest) {
        return;
    }
    epoll_event interest{};
    interest.events = wanted;
    interest.data.fd = connection.fd;
    const int operation = connection.registered ? EPOLL_CTL_MOD : EPOLL_CTL_ADD;
    if (epoll_ctl(epollFd, operation, connection.fd, &interest) == -1) {
        close(connection.fd);
        return;
    }
    connection.registered = true;
    connection.interest = wanted;
}

size_t HttpServer::pending(const Connection& connection) const {
    return connection.output.size() - connection.sent;
}

void HttpServer::close(int fd) {
    const auto found = connections.find(fd);
    if (found == connections.end()) {
        return;
    }
    epoll_ctl(epollFd, EPOLL_CTL_DEL, fd, nullptr);
    ::close(fd);
    connections.erase(found);
}

void HttpServer::broadcast(std::string_view bytes) {
    std::vector<int> streams;
    for (const auto& [fd, connection] : connections) {
        if (connection->stream) {
            streams.push_back(fd);
        }
    }
    for (const int fd : streams) {
        Connection& connection = *connections.at(fd);
        if (pending(connection) + bytes.size() > STREAM_BACKLOG_BYTES) {
            close(fd); // a client that does not read is dropped, never waited for
            continue;
        }
        connection.output.append(bytes);
        flush(connection);
    }
}

void HttpServer::endStreams() {
    std::vector<int> streams;
    for (const auto& [fd, connection] : connections) {
        if (connection->stream) {
            streams.push_back(fd);
        }
    }
    for (const int fd : streams) {
        close(fd);
    }
}

void HttpServer::tick() {
    const Clock::time_point now = Clock::now();
    std::vector<int> idle;
    std::vector<int> quiet;
    for (const auto& [fd, connection] : connections) {
        const auto silence = now - connection->lastTraffic;
        if (connection->stream && silence >= std::chrono::seconds(HEARTBEAT_SECONDS)) {
            quiet.push_back(fd);
        } else if (!connection->stream && silence >= std::chrono::seconds(IDLE_SECONDS)) {
            idle.push_back(fd);
        }
    }
    for (const int fd : idle) {
        close(fd);
    }
    for (const int fd : quiet) {
        Connection& connection = *connections.at(fd);
        connection.output.append(":\n\n");
        connection.lastTraffic = now;
        flush(connection);
    }
}

size_t HttpServer::streamCount() const {
    size_t count = 0;
    for (const auto& [fd, connection] : connections) {
        count += connection->stream ? 1 : 0;
    }
    return count;
}
