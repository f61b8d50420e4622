// The broker protocol's framing: reassembly of records split across reads,
// writes completed after short writes and signals, and the broker's address.
#include "settings-service/brokerprotocol.h"
#include "writefully.h"

#include <gtest/gtest.h>

#include <atomic>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstring>
#include <pthread.h>
#include <sys/socket.h>
#include <thread>
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

TEST_F(RecordReaderTest, TheHalvesWorkOnBytesInHand) {
    const Notify sent[2] = {{static_cast<EventId>(20), 1, 7}, {static_cast<EventId>(21), 0, 8}};
    const auto* bytes = reinterpret_cast<const uint8_t*>(sent);
    std::span<uint8_t> room = reader.prepare(scratch);
    ASSERT_EQ(room.size(), scratch.size() * sizeof(Notify));
    std::memcpy(room.data(), bytes, 17);
    ASSERT_EQ(reader.complete(scratch, 17), 1u);
    EXPECT_TRUE(same(scratch[0], sent[0]));
    EXPECT_TRUE(reader.partial());
    room = reader.prepare(scratch);
    ASSERT_EQ(room.size(), scratch.size() * sizeof(Notify) - 5);
    std::memcpy(room.data(), bytes + 17, 7);
    ASSERT_EQ(reader.complete(scratch, 7), 1u);
    EXPECT_TRUE(same(scratch[0], sent[1]));
    EXPECT_FALSE(reader.partial());
}

void ignoreSignal(int) {}

// Interrupts `thread` with SIGUSR2 (installed without SA_RESTART, as the
// event loop installs its handlers) every millisecond until destroyed.
class Interrupter {
public:
    explicit Interrupter(pthread_t thread) {
        struct sigaction action {};
        action.sa_handler = ignoreSignal;
        sigaction(SIGUSR2, &action, &saved);
        worker = std::thread([this, thread] {
            while (!done) {
                pthread_kill(thread, SIGUSR2);
                ++sent;
                std::this_thread::sleep_for(std::chrono::milliseconds(1));
            }
        });
    }
    ~Interrupter() {
        done = true;
        worker.join();
        sigaction(SIGUSR2, &saved, nullptr);
    }
    std::atomic<int> sent{0};

private:
    struct sigaction saved {};
    std::atomic<bool> done{false};
    std::thread worker;
};

TEST(RecordReader, AReadInterruptedBySignalsIsRepeated) {
    int fds[2];
    ASSERT_EQ(socketpair(AF_UNIX, SOCK_STREAM, 0, fds), 0);
    const Notify record{static_cast<EventId>(30), 1, 9};
    std::vector<Notify> scratch(2);
    RecordReader reader;
    size_t records = 0;
    ssize_t got = 0;
    {
        Interrupter interrupter(pthread_self());
        std::thread late([&] {
            std::this_thread::sleep_for(std::chrono::milliseconds(200));
            ASSERT_EQ(::write(fds[1], &record, sizeof record), 12);
        });
        got = reader.readFrom(fds[0], scratch, records);
        late.join();
        EXPECT_GT(interrupter.sent, 10);
    }
    EXPECT_EQ(got, 12);
    ASSERT_EQ(records, 1u);
    EXPECT_TRUE(same(scratch[0], record));
    ::close(fds[0]);
    ::close(fds[1]);
}

TEST(WriteFully, CompletesShortWritesAndInterruptedWrites) {
    int fds[2];
    ASSERT_EQ(socketpair(AF_UNIX, SOCK_STREAM, 0, fds), 0);
    int small = 4096;
    ASSERT_EQ(setsockopt(fds[0], SOL_SOCKET, SO_SNDBUF, &small, sizeof small), 0);
    std::vector<Notify> sent(50000);
    for (uint32_t i = 0; i < sent.size(); ++i) {
        sent[i] = {static_cast<EventId>(40), i % 2, i};
    }
    // A slow reader: the writer blocks again and again and is interrupted
    // while blocked, after some bytes went (a short write) or before any (EINTR).
    std::vector<uint8_t> received;
    std::thread reader([&] {
        uint8_t buffer[1000];
        ssize_t got;
        while ((got = ::read(fds[1], buffer, sizeof buffer)) > 0) {
            received.insert(received.end(), buffer, buffer + got);
            std::this_thread::sleep_for(std::chrono::microseconds(200));
        }
    });
    size_t written = 0;
    {
        Interrupter interrupter(pthread_self());
        written = writeFully(fds[0], sent.data(), sent.size() * sizeof(Notify));
    }
    ::shutdown(fds[0], SHUT_WR);
    reader.join();
    EXPECT_EQ(written, sent.size() * sizeof(Notify));
    ASSERT_EQ(received.size(), sent.size() * sizeof(Notify));
    EXPECT_EQ(std::memcmp(received.data(), sent.data(), received.size()), 0);
    ::close(fds[0]);
    ::close(fds[1]);
}

TEST(WriteFully, StopsWhereANonBlockingSocketIsFull) {
    int fds[2];
    ASSERT_EQ(socketpair(AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK, 0, fds), 0);
    std::vector<uint8_t> bytes(4 * 1024 * 1024, 0x5A);
    size_t written = writeFully(fds[0], bytes.data(), bytes.size());
    int error = errno;
    EXPECT_GT(written, 0u);
    EXPECT_LT(written, bytes.size());
    EXPECT_EQ(error, EAGAIN);
    ::close(fds[0]);
    ::close(fds[1]);
}

TEST(WriteFully, ReportsAFailedWriteAsNothingWritten) {
    int fds[2];
    ASSERT_EQ(socketpair(AF_UNIX, SOCK_STREAM, 0, fds), 0);
    ::close(fds[1]);
    signal(SIGPIPE, SIG_IGN);
    const Notify record{static_cast<EventId>(50), 0, 0};
    EXPECT_EQ(writeFully(fds[0], &record, sizeof record), 0u);
    EXPECT_EQ(errno, EPIPE);
    ::close(fds[0]);
}

TEST(BrokerAddress, IsTheSocketPathWithTheRestZeroed) {
    const sockaddr_un address = BrokerProtocol::address();
    EXPECT_EQ(address.sun_family, AF_UNIX);
    EXPECT_STREQ(address.sun_path, "/var/volatile/message-broker.socket");
    for (size_t i = std::strlen(address.sun_path); i < sizeof address.sun_path; ++i) {
        EXPECT_EQ(address.sun_path[i], 0) << i;
    }
    EXPECT_STREQ(BrokerProtocol::READY_SEMAPHORE, "/message-broker-ready");
}

} // namespace
