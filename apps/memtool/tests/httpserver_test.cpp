// The HTTP server on the event loop, with real sockets on the loopback
// interface: requests in order, refusals, event streams and a client that
// does not read.
#include "httpserver.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <chrono>
#include <functional>
#include <memory>
#include <sys/socket.h>
#include <unistd.h>

namespace {

using Clock = std::chrono::steady_clock;

class Server : public testing::Test {
protected:
    void SetUp() override {
        Result<std::unique_ptr<HttpServer>> listening = HttpServer::listen(
            poll, parseListenAddress("127.0.0.1:0").value(), [](const HttpRequest& request) {
                if (request.segments == std::vector<std::string>{"events"}) {
                    HttpResponse stream{200, "text/event-stream", "retry: 1000\n\n"};
                    stream.eventStream = true;
                    return stream;
                }
                return HttpResponse{200, "text/plain", "hello " + request.target + request.body};
            });
        ASSERT_TRUE(listening.ok()) << listening.error().text;
        server = std::move(listening).take();
    }

    void TearDown() override {
        for (const int fd : clients) {
            ::close(fd);
        }
        server.reset();
    }

    // A client socket connected to the server; `receiveBuffer` > 0 makes its
    // receive buffer that small.
    int connectClient(int receiveBuffer = 0) {
        const int fd = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
        if (receiveBuffer > 0) {
            setsockopt(fd, SOL_SOCKET, SO_RCVBUF, &receiveBuffer, sizeof receiveBuffer);
        }
        const ListenAddress& address = server->address();
        EXPECT_EQ(
            ::connect(fd, reinterpret_cast<const sockaddr*>(&address.address), address.length), 0);
        clients.push_back(fd);
        return fd;
    }

    void send(int fd, const std::string& bytes) {
        ASSERT_EQ(::send(fd, bytes.data(), bytes.size(), MSG_NOSIGNAL),
                  static_cast<ssize_t>(bytes.size()));
    }

    // Runs the server and reads from `fd` until `done` holds for what was read,
    // the other side closed (closed is then set) or two seconds passed.
    std::string readUntil(int fd, const std::function<bool(const std::string&)>& done,
                          bool* closed = nullptr) {
        std::string got;
        const auto end = Clock::now() + std::chrono::seconds(2);
        while (!done(got) && Clock::now() < end) {
            poll.wait(10);
            char buffer[65536];
            for (;;) {
                const ssize_t n = ::recv(fd, buffer, sizeof buffer, MSG_DONTWAIT);
                if (n > 0) {
                    got.append(buffer, static_cast<size_t>(n));
                    continue;
                }
                if (n == 0 && closed != nullptr) {
                    *closed = true;
                    return got;
                }
                break;
            }
        }
        return got;
    }

    static std::function<bool(const std::string&)> holds(const std::string& text,
                                                         size_t times = 1) {
        return [text, times](const std::string& got) {
            size_t count = 0;
            for (size_t at = got.find(text); at != std::string::npos; at = got.find(text, at + 1)) {
                ++count;
            }
            return count >= times;
        };
    }

    void pumpUntil(const std::function<bool()>& done) {
        const auto end = Clock::now() + std::chrono::seconds(2);
        while (!done() && Clock::now() < end) {
            poll.wait(10);
        }
    }

    EventPoll& poll = gen::getEventPoll();
    std::unique_ptr<HttpServer> server;
    std::vector<int> clients;
};

TEST_F(Server, AnAddressInUseIsAnErrorWithTheSystemsReason) {
    const Result<std::unique_ptr<HttpServer>> second = HttpServer::listen(
        poll, server->address(), [](const HttpRequest&) { return HttpResponse{}; });
    ASSERT_FALSE(second.ok());
    EXPECT_EQ(second.error().code, EADDRINUSE);
    EXPECT_EQ(second.error().text,
              "cannot listen on " + server->address().text() + ": Address already in use");
}

TEST_F(Server, AnswersPipelinedRequestsInOrderOnOneConnection) {
    const int fd = connectClient();
    send(fd, "GET /one HTTP/1.1\r\nHost: h\r\n\r\nPOST /two HTTP/1.1\r\nHost: h\r\n"
             "Content-Length: 4\r\n\r\nbody");
    const std::string got = readUntil(fd, holds("HTTP/1.1 200 OK", 2));
    const size_t first = got.find("hello /one");
    const size_t second = got.find("hello /twobody");
    ASSERT_NE(first, std::string::npos) << got;
    ASSERT_NE(second, std::string::npos) << got;
    EXPECT_LT(first, second);
    EXPECT_NE(got.find("Content-Length: 10\r\n"), std::string::npos) << got;
    EXPECT_NE(got.find("Connection: keep-alive"), std::string::npos);
}

TEST_F(Server, ClosesAfterConnectionClose) {
    const int fd = connectClient();
    send(fd, "GET /x HTTP/1.1\r\nConnection: close\r\n\r\n");
    bool closed = false;
    const std::string got = readUntil(
        fd, [](const std::string&) { return false; }, &closed);
    EXPECT_TRUE(closed);
    EXPECT_NE(got.find("Connection: close\r\n\r\nhello /x"), std::string::npos) << got;
}

TEST_F(Server, RefusesABadRequestAndCloses) {
    const int fd = connectClient();
    send(fd, "GET / HTTP/1.1\r\nX: " + std::string(MAX_HEAD_BYTES, 'a') + "\r\n\r\n");
    bool closed = false;
    const std::string got = readUntil(
        fd, [](const std::string&) { return false; }, &closed);
    EXPECT_TRUE(closed);
    EXPECT_EQ(got.rfind("HTTP/1.1 431 ", 0), 0u) << got.substr(0, 200);
}

TEST_F(Server, AnswersTheConnectionsBeyondTheLimitWith503) {
    for (size_t i = 0; i < HttpServer::MAX_CONNECTIONS; ++i) {
        connectClient();
        poll.wait(0); // takes it, so that the listening queue never fills
    }
    const int first = clients.front();
    send(first, "GET /still HTTP/1.1\r\n\r\n");
    EXPECT_TRUE(holds("hello /still")(readUntil(first, holds("hello /still"))));
    const int extra = connectClient();
    bool closed = false;
    const std::string got = readUntil(
        extra, [](const std::string&) { return false; }, &closed);
    EXPECT_TRUE(closed);
    EXPECT_EQ(got.rfind("HTTP/1.1 503 ", 0), 0u) << got;
}

TEST_F(Server, StreamsGetEveryBroadcastAndEndWhenAsked) {
    const int fd = connectClient();
    send(fd, "GET /events HTTP/1.1\r\n\r\n");
    std::string got = readUntil(fd, holds("retry: 1000\n\n"));
    ASSERT_NE(got.find("Content-Type: text/event-stream"), std::string::npos) << got;
    EXPECT_EQ(server->streamCount(), 1u);
    server->broadcast("data: 1\n\n");
    server->broadcast("data: 2\n\n");
    got += readUntil(fd, holds("data: 2\n\n"));
    EXPECT_NE(got.find("data: 1\n\ndata: 2\n\n"), std::string::npos);
    server->endStreams();
    EXPECT_EQ(server->streamCount(), 0u);
    bool closed = false;
    readUntil(
        fd, [](const std::string&) { return false; }, &closed);
    EXPECT_TRUE(closed);
}

TEST_F(Server, DropsAStreamWhoseClientDoesNotReadAndKeepsServingTheOthers) {
    const int slow = connectClient(4096);
    send(slow, "GET /events HTTP/1.1\r\n\r\n");
    const int reader = connectClient();
    send(reader, "GET /events HTTP/1.1\r\n\r\n");
    std::string read = readUntil(reader, holds("retry: 1000\n\n"));
    pumpUntil([&] { return server->streamCount() == 2; });
    ASSERT_EQ(server->streamCount(), 2u);

    const std::string event = "data: " + std::string(4000, 'x') + "\n\n";
    size_t sent = 0;
    const size_t bound = 8 * HttpServer::STREAM_BACKLOG_BYTES;
    while (server->streamCount() == 2 && sent < bound) {
        const auto start = Clock::now();
        server->broadcast(event);
        EXPECT_LT(Clock::now() - start, std::chrono::milliseconds(500)) << "a broadcast waited";
        sent += event.size();
        read += readUntil(reader,
                          [&](const std::string& got) { return read.size() + got.size() >= sent; });
    }
    EXPECT_EQ(server->streamCount(), 1u) << "the stream that is not read stays after " << sent;
    EXPECT_LT(sent, bound);
    const size_t header = read.find("retry: 1000\n\n") + 13;
    EXPECT_EQ(read.size() - header, sent) << "the reading stream lost bytes";

    bool closed = false;
    const std::string rest = readUntil(
        slow, [](const std::string&) { return false; }, &closed);
    EXPECT_TRUE(closed) << "the dropped stream was not closed";
    EXPECT_LT(rest.size(), sent);
}

} // namespace
