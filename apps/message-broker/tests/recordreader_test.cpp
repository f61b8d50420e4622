#include "recordreader.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <cstring>
#include <sys/socket.h>
#include <unistd.h>
#include <vector>

namespace {

class RecordReaderTest : public ::testing::Test {
protected:
    void SetUp() override {
        ASSERT_EQ(socketpair(AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK, 0, fds), 0);
    }
    void TearDown() override {
        ::close(fds[0]);
        ::close(fds[1]);
    }
    void send(const void* data, size_t size) {
        ASSERT_EQ(::write(fds[1], data, size), static_cast<ssize_t>(size));
    }
    // One readFrom; the whole records it produced.
    std::vector<Notify> readOnce(ssize_t& result) {
        size_t count = 0;
        result = reader.readFrom(fds[0], scratch, count);
        return {scratch.begin(), scratch.begin() + static_cast<ptrdiff_t>(count)};
    }

    int fds[2];
    RecordReader reader;
    std::vector<Notify> scratch = std::vector<Notify>(4);
};

bool same(const Notify& a, const Notify& b) {
    return a.id == b.id && a.indexed == b.indexed && a.index == b.index;
}

TEST_F(RecordReaderTest, ARecordInTwoPiecesIsDeliveredWhole) {
    const Notify record{static_cast<EventId>(167), 1, 0x01020304};
    const auto* bytes = reinterpret_cast<const uint8_t*>(&record);
    ssize_t result = 0;
    send(bytes, 5);
    EXPECT_TRUE(readOnce(result).empty());
    EXPECT_EQ(result, 5);
    EXPECT_TRUE(reader.partial());
    send(bytes + 5, 7);
    auto records = readOnce(result);
    EXPECT_EQ(result, 7);
    ASSERT_EQ(records.size(), 1u);
    EXPECT_TRUE(same(records[0], record));
    EXPECT_FALSE(reader.partial());
}

TEST_F(RecordReaderTest, TheTailOfAReadStartsTheNextRecord) {
    const Notify sent[3] = {{static_cast<EventId>(10), 0, 1},
                            {static_cast<EventId>(11), 1, 2},
                            {static_cast<EventId>(12), 0, 3}};
    const auto* bytes = reinterpret_cast<const uint8_t*>(sent);
    ssize_t result = 0;
    send(bytes, 30);
    auto first = readOnce(result);
    ASSERT_EQ(first.size(), 2u);
    EXPECT_TRUE(same(first[0], sent[0]));
    EXPECT_TRUE(same(first[1], sent[1]));
    send(bytes + 30, 6);
    auto second = readOnce(result);
    ASSERT_EQ(second.size(), 1u);
    EXPECT_TRUE(same(second[0], sent[2]));
}

TEST_F(RecordReaderTest, AReadIsLimitedToTheScratchBuffer) {
    std::vector<Notify> sent(10);
    for (uint32_t i = 0; i < sent.size(); ++i) {
        sent[i] = {static_cast<EventId>(100 + i), 0, i};
    }
    send(sent.data(), sent.size() * sizeof(Notify));
    std::vector<Notify> received;
    ssize_t result = 0;
    for (int reads = 0; reads < 3; ++reads) {
        auto part = readOnce(result);
        EXPECT_EQ(part.size(), 4u);
        received.insert(received.end(), part.begin(), part.end());
        if (received.size() >= 8) {
            break;
        }
    }
    auto last = readOnce(result);
    received.insert(received.end(), last.begin(), last.end());
    ASSERT_EQ(received.size(), sent.size());
    for (size_t i = 0; i < sent.size(); ++i) {
        EXPECT_TRUE(same(received[i], sent[i])) << i;
    }
}

TEST_F(RecordReaderTest, ReportsTheEndAndWouldBlock) {
    ssize_t result = 0;
    EXPECT_TRUE(readOnce(result).empty());
    EXPECT_EQ(result, -1);
    EXPECT_EQ(errno, EAGAIN);
    ::shutdown(fds[1], SHUT_WR);
    EXPECT_TRUE(readOnce(result).empty());
    EXPECT_EQ(result, 0);
}

} // namespace
