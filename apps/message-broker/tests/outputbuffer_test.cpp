#include "outputbuffer.h"

#include <gtest/gtest.h>

#include <sys/socket.h>
#include <unistd.h>
#include <vector>

namespace {

constexpr size_t RECORDS_IN_LIMIT = OutputBuffer::LIMIT / sizeof(Notify);

Notify record(uint32_t index) {
    return {static_cast<EventId>(167), 0, index};
}

TEST(OutputBuffer, HoldsUpToTheLimitAndNoMore) {
    OutputBuffer buffer;
    for (uint32_t i = 0; i < RECORDS_IN_LIMIT; ++i) {
        ASSERT_TRUE(buffer.append(record(i))) << i;
    }
    EXPECT_EQ(buffer.pending(), RECORDS_IN_LIMIT * sizeof(Notify));
    EXPECT_FALSE(buffer.append(record(0)));
    EXPECT_EQ(buffer.pending(), RECORDS_IN_LIMIT * sizeof(Notify));
}

TEST(OutputBuffer, KeepsWhatTheSocketDoesNotTakeInOrder) {
    int fds[2];
    ASSERT_EQ(socketpair(AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK, 0, fds), 0);
    OutputBuffer buffer;
    std::vector<uint32_t> received;
    auto drain = [&] {
        Notify in[512];
        ssize_t got;
        while ((got = ::read(fds[1], in, sizeof in)) > 0) {
            ASSERT_EQ(got % sizeof(Notify), 0u);
            for (size_t i = 0; i < got / sizeof(Notify); ++i) {
                received.push_back(in[i].index);
            }
        }
    };
    uint32_t next = 0;
    int partialWrites = 0;
    for (int round = 0; round < 5; ++round) {
        for (int i = 0; i < 40000; ++i) {
            ASSERT_TRUE(buffer.append(record(next++)));
        }
        while (!buffer.empty()) {
            size_t before = buffer.pending();
            ASSERT_GT(buffer.flush(fds[0]), 0);
            partialWrites += buffer.pending() > 0 && buffer.pending() < before;
            drain();
        }
    }
    EXPECT_GT(partialWrites, 0);
    ASSERT_EQ(received.size(), next);
    for (uint32_t i = 0; i < next; ++i) {
        ASSERT_EQ(received[i], i);
    }
    ::close(fds[0]);
    ::close(fds[1]);
}

} // namespace
