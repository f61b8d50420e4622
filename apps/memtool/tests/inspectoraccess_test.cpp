// Who may use the inspector: its own host names, its own origin, the token.
#include "inspectoraccess.h"

#include <gtest/gtest.h>

namespace {

ListenAddress listening(const std::string& text) {
    return parseListenAddress(text).value();
}

TEST(OwnHost, ALoopbackServerIsItsLoopbackNamesUnderAnyPort) {
    const ListenAddress server = listening("127.0.0.1:8765");
    for (const char* host : {"127.0.0.1:8765", "127.0.0.1", "localhost:9000", "LOCALHOST",
                             "[::1]:9000", "127.0.0.2:1"}) {
        EXPECT_TRUE(isOwnHost(host, server)) << host;
    }
    for (const char* host : {"", "evil.example:8765", "192.0.2.5:8765", "localhost:", "localhost:x",
                             "127.0.0.1.evil.example", "[::1", "unit.local:8765"}) {
        EXPECT_FALSE(isOwnHost(host, server)) << host;
    }
}

TEST(OwnHost, AServerOnOneAddressIsThatAddressOnly) {
    const ListenAddress server = listening("192.0.2.10:8765");
    EXPECT_TRUE(isOwnHost("192.0.2.10:8765", server));
    EXPECT_FALSE(isOwnHost("192.0.2.11:8765", server));
    EXPECT_FALSE(isOwnHost("localhost:8765", server));
    EXPECT_FALSE(isOwnHost("127.0.0.1:8765", server));
}

TEST(OwnHost, AServerOnEveryAddressIsEveryLiteral) {
    const ListenAddress server = listening("0.0.0.0:8765");
    EXPECT_TRUE(isOwnHost("10.1.2.3:8765", server));
    EXPECT_TRUE(isOwnHost("localhost:8765", server));
    EXPECT_TRUE(isOwnHost("[fe80::1]:8765", server));
    EXPECT_FALSE(isOwnHost("unit.local:8765", server));
}

TEST(OwnOrigin, NoneOrTheRequestsOwn) {
    EXPECT_TRUE(isOwnOrigin(std::nullopt, "127.0.0.1:8765"));
    EXPECT_TRUE(isOwnOrigin("http://127.0.0.1:8765", "127.0.0.1:8765"));
    EXPECT_TRUE(isOwnOrigin("http://LocalHost:9000", "localhost:9000"));
    EXPECT_FALSE(isOwnOrigin("http://evil.example", "127.0.0.1:8765"));
    EXPECT_FALSE(isOwnOrigin("http://127.0.0.1:8766", "127.0.0.1:8765"));
    EXPECT_FALSE(isOwnOrigin("https://127.0.0.1:8765", "127.0.0.1:8765"));
    EXPECT_FALSE(isOwnOrigin("null", "127.0.0.1:8765"));
}

HttpRequest request(const std::string& bytes) {
    return parseRequest(bytes).request;
}

TEST(Token, InTheHeaderOrTheQuery) {
    const std::string token = "0123456789abcdef";
    EXPECT_TRUE(carriesToken(request("GET / HTTP/1.1\r\nAuthorization: Bearer 0123456789abcdef"
                                     "\r\n\r\n"),
                             token));
    EXPECT_TRUE(carriesToken(request("GET / HTTP/1.1\r\nAuthorization: bearer 0123456789abcdef"
                                     "\r\n\r\n"),
                             token));
    EXPECT_TRUE(carriesToken(request("GET /?token=0123456789abcdef HTTP/1.1\r\n\r\n"), token));
    EXPECT_FALSE(carriesToken(request("GET / HTTP/1.1\r\n\r\n"), token));
    EXPECT_FALSE(carriesToken(request("GET /?token=0123456789abcde HTTP/1.1\r\n\r\n"), token));
    EXPECT_FALSE(carriesToken(request("GET /?token=0123456789abcdef0 HTTP/1.1\r\n\r\n"), token));
    EXPECT_FALSE(carriesToken(request("GET / HTTP/1.1\r\nAuthorization: Basic 0123456789abcdef"
                                      "\r\n\r\n"),
                              token));
    EXPECT_FALSE(carriesToken(request("GET /?token= HTTP/1.1\r\n\r\n"), token));
    EXPECT_FALSE(carriesToken(request("GET /?token= HTTP/1.1\r\n\r\n"), ""));
}

TEST(Token, MadeAtRandom) {
    const Result<std::string> made = randomToken();
    ASSERT_TRUE(made.ok()) << made.error().text;
    const std::string& first = *made;
    EXPECT_EQ(first.size(), 32u);
    EXPECT_EQ(first.find_first_not_of("0123456789abcdef"), std::string::npos);
    const Result<std::string> second = randomToken();
    ASSERT_TRUE(second.ok());
    EXPECT_NE(first, *second);
}

} // namespace
