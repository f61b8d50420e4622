// Reading HTTP requests, writing responses and reading listening addresses.
#include "httprequest.h"
#include "httpserver.h"

#include <gtest/gtest.h>

namespace {

TEST(ParseRequest, ReadsTheLineTheHeadersAndTheTarget) {
    const std::string bytes =
        "GET /api/get/MemPersistent/UserSetup%5B3%5D?token=a%2Bb&index=2&x=1+2"
        " HTTP/1.1\r\nHost: 127.0.0.1:8765\r\nX-Thing:  spaced value \t\r\n\r\n";
    const RequestParse parse = parseRequest(bytes);
    ASSERT_EQ(parse.outcome, RequestParse::Complete);
    EXPECT_EQ(parse.consumed, bytes.size());
    const HttpRequest& request = parse.request;
    EXPECT_EQ(request.method, "GET");
    EXPECT_EQ(request.segments,
              (std::vector<std::string>{"api", "get", "MemPersistent", "UserSetup[3]"}));
    EXPECT_EQ(request.parameter("token"), "a+b");
    EXPECT_EQ(request.parameter("index"), "2");
    EXPECT_EQ(request.parameter("x"), "1 2");
    EXPECT_EQ(request.parameter("missing"), std::nullopt);
    EXPECT_EQ(request.header("host"), "127.0.0.1:8765");
    EXPECT_EQ(request.header("x-thing"), "spaced value");
    EXPECT_TRUE(request.keepAlive);
    EXPECT_EQ(request.body, "");
}

TEST(ParseRequest, TheRootIsNoSegment) {
    const RequestParse parse = parseRequest("GET /?token=t HTTP/1.1\r\nHost: h\r\n\r\n");
    ASSERT_EQ(parse.outcome, RequestParse::Complete);
    EXPECT_TRUE(parse.request.segments.empty());
    EXPECT_EQ(parseRequest("GET /api/ HTTP/1.1\r\n\r\n").request.segments,
              (std::vector<std::string>{"api"}))
        << "a trailing slash names no segment";
}

TEST(ParseRequest, WaitsForTheWholeHeadAndBody) {
    EXPECT_EQ(parseRequest("GET / HTTP/1.1\r\nHost: h\r\n").outcome, RequestParse::Incomplete);
    const std::string head = "POST /api/set/MemPersistent/AUXTorque HTTP/1.1\r\n"
                             "Content-Length: 5\r\n\r\n";
    EXPECT_EQ(parseRequest(head + "12").outcome, RequestParse::Incomplete);
    const RequestParse whole = parseRequest(head + "12345GET / HTTP/1.1\r\n\r\n");
    ASSERT_EQ(whole.outcome, RequestParse::Complete);
    EXPECT_EQ(whole.request.body, "12345");
    EXPECT_EQ(whole.consumed, head.size() + 5) << "a pipelined request after it stays";
}

TEST(ParseRequest, KeepAliveFollowsTheVersionAndConnection) {
    EXPECT_FALSE(parseRequest("GET / HTTP/1.1\r\nConnection: close\r\n\r\n").request.keepAlive);
    EXPECT_FALSE(parseRequest("GET / HTTP/1.0\r\n\r\n").request.keepAlive);
    EXPECT_TRUE(parseRequest("GET / HTTP/1.0\r\nConnection: Keep-Alive\r\n\r\n").request.keepAlive);
}

void expectRefused(const std::string& bytes, int status) {
    const RequestParse parse = parseRequest(bytes);
    EXPECT_EQ(parse.outcome, RequestParse::Refused) << bytes;
    EXPECT_EQ(parse.refusal.status, status) << bytes;
    EXPECT_FALSE(parse.refusal.reason.empty());
}

TEST(ParseRequest, RefusesWhatItDoesNotTake) {
    expectRefused("GET /\r\n\r\n", 400);
    expectRefused("GET / HTTP/2\r\n\r\n", 400);
    expectRefused("G(T / HTTP/1.1\r\n\r\n", 400);
    expectRefused("GET api HTTP/1.1\r\n\r\n", 400);
    expectRefused("GET /a%zz HTTP/1.1\r\n\r\n", 400);
    expectRefused("GET /a%2 HTTP/1.1\r\n\r\n", 400);
    expectRefused("GET / HTTP/1.1\r\nno colon here\r\n\r\n", 400);
    expectRefused("GET / HTTP/1.1\r\n folded: line\r\n\r\n", 400);
    expectRefused("GET / HTTP/1.1\r\nHost: a\r\nHost: b\r\n\r\n", 400);
    expectRefused("POST / HTTP/1.1\r\nContent-Length: 1\r\nContent-Length: 1\r\n\r\nx", 400);
    expectRefused("POST / HTTP/1.1\r\nContent-Length: x1\r\n\r\n", 400);
    expectRefused("POST / HTTP/1.1\r\nTransfer-Encoding: chunked\r\n\r\n", 400);
    expectRefused("POST / HTTP/1.1\r\nContent-Length: " + std::to_string(MAX_BODY_BYTES + 1) +
                      "\r\n\r\n",
                  413);
}

TEST(ParseRequest, RefusesAHeadBeyondTheLimit) {
    const std::string big = "GET / HTTP/1.1\r\nX: " + std::string(MAX_HEAD_BYTES, 'a');
    expectRefused(big, 431);
    expectRefused(big + "\r\n\r\n", 431);
    EXPECT_EQ(parseRequest(big.substr(0, MAX_HEAD_BYTES - 1)).outcome, RequestParse::Incomplete);
}

TEST(PercentDecode, DecodesEscapesAndPlus) {
    EXPECT_EQ(percentDecode("a%20b%2fc+d", false), "a b/c+d");
    EXPECT_EQ(percentDecode("a+b", true), "a b");
    EXPECT_EQ(percentDecode("%", false), std::nullopt);
    EXPECT_EQ(percentDecode("%4", false), std::nullopt);
    EXPECT_EQ(percentDecode("%g0", false), std::nullopt);
}

TEST(ResponseBytes, WritesTheHeadAndBody) {
    HttpResponse response{404, "text/plain; charset=utf-8", "no such page"};
    response.headers.emplace_back("Allow", "GET");
    EXPECT_EQ(responseBytes(response, false),
              "HTTP/1.1 404 Not Found\r\nContent-Type: text/plain; charset=utf-8\r\n"
              "Content-Length: 12\r\nCache-Control: no-store\r\nX-Content-Type-Options: "
              "nosniff\r\nAllow: GET\r\nConnection: close\r\n\r\nno such page");
    HttpResponse stream{200, "text/event-stream", "retry: 1000\n\n"};
    stream.eventStream = true;
    const std::string bytes = responseBytes(stream, true);
    EXPECT_EQ(bytes.find("Content-Length"), std::string::npos);
    EXPECT_NE(bytes.find("Connection: keep-alive\r\n\r\nretry: 1000\n\n"), std::string::npos);
}

TEST(ListenAddress, ReadsAddressAndPort) {
    const auto v4 = parseListenAddress("127.0.0.1:8765");
    ASSERT_TRUE(v4);
    EXPECT_EQ(v4->text(), "127.0.0.1:8765");
    EXPECT_TRUE(v4->isLoopback());
    EXPECT_FALSE(v4->isWildcard());
    const auto v6 = parseListenAddress("[::1]:0");
    ASSERT_TRUE(v6);
    EXPECT_EQ(v6->text(), "[::1]:0");
    EXPECT_TRUE(v6->isLoopback());
    EXPECT_EQ(parseListenAddress("localhost:80")->text(), "127.0.0.1:80");
    EXPECT_TRUE(parseListenAddress("0.0.0.0:1")->isWildcard());
    EXPECT_TRUE(parseListenAddress("[::]:1")->isWildcard());
    EXPECT_FALSE(parseListenAddress("192.0.2.7:1")->isLoopback());
    for (const char* bad : {"8765", "1.2.3:80", "127.0.0.1:70000", "127.0.0.1:", "unit:80",
                            "127.0.0.1:8a", "[::1:80", "::1:80"}) {
        EXPECT_FALSE(parseListenAddress(bad)) << bad;
    }
}

} // namespace
