// The broker connection against a peer played by the test: the test listens
// on the broker's socket and owns the readiness semaphore, so the bytes on the
// wire and the system calls (recorded by syscallspy) can be checked exactly.
#include "settings-service/serverconnection.h"

#include "brokerdouble.h"
#include "kmsgcapture.h"
#include "logline.h"
#include "pipes.h"
#include "syscallspy.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <csignal>
#include <cstring>
#include <fcntl.h>
#include <poll.h>
#include <pthread.h>
#include <semaphore.h>
#include <sys/epoll.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

namespace {

using ::testing::ElementsAre;

const std::string SOURCE = "serverconnection.cpp";

struct Expected {
    gen::LogLevel level;
    std::string message;
};

// The log holds exactly these lines of the connection's source file, in order.
testing::AssertionResult loggedExactly(const testsupport::KmsgCapture& log,
                                       const std::vector<Expected>& expected) {
    auto lines = log.lines();
    if (lines.size() != expected.size()) {
        auto failure = testing::AssertionFailure();
        failure << lines.size() << " lines instead of " << expected.size() << ":";
        for (const auto& line : lines) {
            failure << "\n" << line;
        }
        return failure;
    }
    for (size_t i = 0; i < lines.size(); ++i) {
        auto result =
            testsupport::isLogLine(lines[i], expected[i].level, SOURCE, expected[i].message);
        if (!result) {
            return result;
        }
    }
    return testing::AssertionSuccess();
}

class Recorder : public ServerConnection::EventHandler {
public:
    void handleEvent(const Notify& notify) override { records.push_back(notify); }
    void connectionLost() override { ++losses; }
    std::vector<Notify> records;
    int losses = 0;
};

MATCHER_P3(IsNotify, id, indexed, index, "") {
    return arg.id == static_cast<uint32_t>(id) && arg.indexed == static_cast<uint32_t>(indexed) &&
           arg.index == static_cast<uint32_t>(index);
}

// `count` records of VarFocusTorqueChanged numbered by their index; `indexed`
// gives each one's second word.
std::vector<Notify> numberedRecords(uint32_t count, uint32_t (*indexed)(uint32_t)) {
    std::vector<Notify> records;
    for (uint32_t i = 0; i < count; ++i) {
        records.push_back({VarFocusTorqueChanged, indexed(i), i});
    }
    return records;
}

class ServerConnectionTest : public ::testing::Test {
protected:
    // The level a service starts with: the event loop's debug lines stay out of the log.
    void SetUp() override { gComponentLogLevel = &level; }
    void TearDown() override { gComponentLogLevel = nullptr; }

    // Connects to the broker double and takes the connection on its side.
    std::unique_ptr<ServerConnection> connect(BrokerDouble& broker) {
        spy::start();
        auto connection = std::make_unique<ServerConnection>(poll);
        auto calls = spy::stop();
        auto connects = spy::only(calls, "connect");
        EXPECT_EQ(connects.size(), 1u);
        clientFd = connects.empty() ? -1 : connects[0].fd;
        EXPECT_GE(broker.accept(), 0);
        return connection;
    }
    // Serves the poll until `done` holds or a second passes.
    template <class Done> void serveUntil(Done done) {
        auto end = std::chrono::steady_clock::now() + std::chrono::seconds(1);
        while (!done() && std::chrono::steady_clock::now() < end) {
            poll.wait(10, true);
        }
    }

    EventPoll& poll = gen::getEventPoll();
    int clientFd = -1;
    gen::LogLevel level = gen::LogAll;
};

TEST_F(ServerConnectionTest, ConnectsThroughTheReadySemaphoreAndLogs) {
    BrokerDouble broker;
    testsupport::KmsgCapture log;
    spy::start();
    ServerConnection connection(poll);
    auto calls = spy::stop();

    EXPECT_GE(broker.accept(), 0);
    EXPECT_EQ(broker.semaphoreValue(), 1);
    EXPECT_TRUE(loggedExactly(log, {{gen::LogLight, "Waiting for server"},
                                    {gen::LogLight, "Connected after 0 attempts"}}));
    auto opens = spy::only(calls, "sem_open");
    ASSERT_EQ(opens.size(), 1u);
    EXPECT_EQ(opens[0].text, BrokerProtocol::READY_SEMAPHORE);
    EXPECT_EQ(opens[0].value, 0) << "opened without O_CREAT";
    EXPECT_TRUE(spy::only(calls, "sched_yield").empty());
}

TEST_F(ServerConnectionTest, RegistersWithThePollBeforeConnectingWithTheFullAddressLength) {
    BrokerDouble broker;
    spy::start();
    ServerConnection connection(poll);
    auto calls = spy::stop();

    std::vector<std::string> order;
    int fd = -1;
    for (const auto& call : calls) {
        if (call.name == "epoll_ctl ADD" || call.name == "connect") {
            order.push_back(call.name);
            EXPECT_TRUE(fd == -1 || fd == call.fd);
            fd = call.fd;
        }
        if (call.name == "epoll_ctl ADD") {
            EXPECT_EQ(call.value, EPOLLIN);
        }
        if (call.name == "connect") {
            EXPECT_EQ(call.value, 110);
            EXPECT_EQ(call.text, "/var/volatile/message-broker.socket");
        }
    }
    EXPECT_THAT(order, ElementsAre("epoll_ctl ADD", "connect"));
    EXPECT_EQ(fcntl(fd, F_GETFD) & FD_CLOEXEC, FD_CLOEXEC);
}

TEST_F(ServerConnectionTest, CountsTheFailedOpensAndYieldsAfterEach) {
    BrokerDouble broker;
    testsupport::KmsgCapture log;
    spy::failSemOpen(3);
    spy::start();
    ServerConnection connection(poll);
    auto calls = spy::stop();

    EXPECT_EQ(spy::only(calls, "sem_open").size(), 4u);
    EXPECT_EQ(spy::only(calls, "sched_yield").size(), 3u);
    EXPECT_TRUE(loggedExactly(log, {{gen::LogLight, "Waiting for server"},
                                    {gen::LogLight, "Connected after 3 attempts"}}));
}

TEST_F(ServerConnectionTest, WithoutTheSemaphoreThrowsAfterTwentyFailedOpens) {
    sem_unlink(BrokerProtocol::READY_SEMAPHORE);
    testsupport::KmsgCapture log;
    spy::start();
    std::string error;
    try {
        ServerConnection connection(poll);
    } catch (const std::runtime_error& e) {
        error = e.what();
    }
    auto calls = spy::stop();

    EXPECT_TRUE(
        testsupport::isLocatedMessage(error, SOURCE, "sem_open: No such file or directory"));
    // Twenty opens, a yield after each, nothing else: no sleep, no socket.
    ASSERT_EQ(calls.size(), 40u);
    for (size_t i = 0; i < calls.size(); ++i) {
        EXPECT_EQ(calls[i].name, i % 2 == 0 ? "sem_open" : "sched_yield") << i;
    }
    EXPECT_TRUE(loggedExactly(log, {{gen::LogLight, "Waiting for server"},
                                    {gen::Error, "sem_open: No such file or directory"}}));
}

TEST_F(ServerConnectionTest, WaitsWhileAnotherClientHoldsTheSemaphore) {
    BrokerDouble broker(0);
    pid_t child = fork();
    ASSERT_GE(child, 0);
    if (child == 0) {
        try {
            // A poll of its own: the process's epoll instance is shared with the parent.
            EventPoll ownPoll;
            ServerConnection connection(ownPoll);
            _exit(0);
        } catch (const std::exception& e) {
            std::fprintf(stderr, "%s\n", e.what());
            _exit(1);
        }
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(300));
    int status = 0;
    EXPECT_EQ(waitpid(child, &status, WNOHANG), 0) << "the client did not wait";
    EXPECT_LT(broker.accept(), 0) << "the client connected without the semaphore";

    ASSERT_EQ(sem_post(broker.semaphore()), 0);
    ASSERT_EQ(waitpid(child, &status, 0), child);
    EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0);
    EXPECT_GE(broker.accept(), 0);
    EXPECT_EQ(broker.semaphoreValue(), 1);
}

TEST_F(ServerConnectionTest, AClientKilledHoldingTheSemaphoreDelaysOthersOnlyForTheBound) {
    BrokerDouble broker;
    pid_t holder = fork();
    ASSERT_GE(holder, 0);
    if (holder == 0) {
        sem_t* ready = sem_open(BrokerProtocol::READY_SEMAPHORE, 0);
        if (ready != SEM_FAILED && sem_wait(ready) == 0) {
            raise(SIGKILL);
        }
        _exit(1);
    }
    int status = 0;
    ASSERT_EQ(waitpid(holder, &status, 0), holder);
    ASSERT_TRUE(WIFSIGNALED(status) && WTERMSIG(status) == SIGKILL);
    ASSERT_EQ(broker.semaphoreValue(), 0) << "the killed client kept the semaphore";

    testsupport::KmsgCapture log;
    auto begin = std::chrono::steady_clock::now();
    ServerConnection connection(poll);
    auto elapsed = std::chrono::steady_clock::now() - begin;

    EXPECT_GE(elapsed, std::chrono::milliseconds(ServerConnection::READY_WAIT_MS));
    EXPECT_LT(elapsed, std::chrono::milliseconds(ServerConnection::READY_WAIT_MS + 2000));
    EXPECT_GE(broker.accept(), 0) << "connected without the semaphore";
    EXPECT_EQ(broker.semaphoreValue(), 0) << "a semaphore it did not take was posted";
    EXPECT_TRUE(loggedExactly(
        log, {{gen::LogLight, "Waiting for server"},
              {gen::Warn, "/message-broker-ready not free after 3000 ms, connecting without it"},
              {gen::LogLight, "Connected after 0 attempts"}}));
}

TEST_F(ServerConnectionTest, AFailedConnectThrowsAndReleasesTheSemaphore) {
    BrokerDouble broker(1, false);
    testsupport::KmsgCapture log;
    std::string error;
    try {
        ServerConnection connection(poll);
    } catch (const std::runtime_error& e) {
        error = e.what();
    }
    EXPECT_TRUE(testsupport::isLocatedMessage(error, SOURCE, "connect: No such file or directory"));
    EXPECT_EQ(broker.semaphoreValue(), 1);
    EXPECT_TRUE(loggedExactly(log, {{gen::LogLight, "Waiting for server"},
                                    {gen::Error, "connect: No such file or directory"}}));
}

void ignoreSignal(int) {}

TEST_F(ServerConnectionTest, AnInterruptedSemaphoreWaitThrowsSemWait) {
    BrokerDouble broker(0);
    testsupport::KmsgCapture log;
    struct sigaction interrupt {};
    struct sigaction saved {};
    interrupt.sa_handler = ignoreSignal;
    ASSERT_EQ(sigaction(SIGUSR2, &interrupt, &saved), 0);
    // Keeps interrupting the test's thread until the constructor gives up.
    std::atomic<bool> done{false};
    pthread_t waiter = pthread_self();
    std::thread interrupter([&] {
        while (!done) {
            std::this_thread::sleep_for(std::chrono::milliseconds(20));
            pthread_kill(waiter, SIGUSR2);
        }
    });
    std::string error;
    try {
        ServerConnection connection(poll);
    } catch (const std::runtime_error& e) {
        error = e.what();
    }
    done = true;
    interrupter.join();
    sigaction(SIGUSR2, &saved, nullptr);

    EXPECT_TRUE(testsupport::isLocatedMessage(error, SOURCE, "sem_wait: Interrupted system call"));
    EXPECT_LT(broker.accept(), 0) << "the client connected without the semaphore";
    EXPECT_TRUE(loggedExactly(log, {{gen::LogLight, "Waiting for server"},
                                    {gen::Error, "sem_wait: Interrupted system call"}}));
}

TEST_F(ServerConnectionTest, ASocketThatCannotBeCreatedFailsWhereItHappens) {
    BrokerDouble broker;
    auto connection = connect(broker);
    connection->close();
    testsupport::KmsgCapture log;
    // No descriptor left: socket() fails, and says so.
    rlimit saved{};
    ASSERT_EQ(getrlimit(RLIMIT_NOFILE, &saved), 0);
    rlimit exhausted = saved;
    exhausted.rlim_cur = static_cast<rlim_t>(lowestFreeDescriptor());
    ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &exhausted), 0);
    std::string error;
    try {
        connection->connect();
    } catch (const std::runtime_error& e) {
        error = e.what();
    }
    setrlimit(RLIMIT_NOFILE, &saved);

    EXPECT_TRUE(testsupport::isLocatedMessage(error, SOURCE, "socket: Too many open files"));
    auto lines = log.lines();
    ASSERT_EQ(lines.size(), 1u);
    EXPECT_TRUE(
        testsupport::isLogLine(lines[0], gen::Error, SOURCE, "socket: Too many open files"));
}

TEST_F(ServerConnectionTest, SubscribeWritesTheCommandAndTheRecordInOneWrite) {
    BrokerDouble broker;
    auto connection = connect(broker);
    spy::start();
    connection->subscribe({VarFocusTorqueChanged, 0, 0});
    connection->subscribe({VarFocusTorqueChanged, 1, 5});
    auto writes = spy::only(spy::stop(), "write");

    ASSERT_EQ(writes.size(), 2u);
    EXPECT_EQ(writes[0].fd, clientFd);
    EXPECT_EQ(writes[0].value, 24);
    const std::vector<uint8_t> expected = {1,   0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0,
                                           167, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0};
    EXPECT_EQ(writes[0].bytes, expected);
    EXPECT_EQ(writes[1].value, 24);
    EXPECT_THAT(broker.receivedWords(), ElementsAre(1, 0, 0, 167, 0, 0, 1, 0, 0, 167, 1, 5));
}

TEST_F(ServerConnectionTest, SubscribeEachWritesEveryPairInOrderInOneWrite) {
    BrokerDouble broker;
    auto connection = connect(broker);
    const EventId events[] = {VarFocusTorqueChanged, VarIrisTorqueChanged, VarFocusTorqueChanged};
    spy::start();
    connection->subscribeEach(events);
    auto writes = spy::only(spy::stop(), "write");

    ASSERT_EQ(writes.size(), 1u);
    EXPECT_EQ(writes[0].fd, clientFd);
    EXPECT_EQ(writes[0].value, 72);
    EXPECT_THAT(broker.receivedWords(),
                ElementsAre(1, 0, 0, VarFocusTorqueChanged, 0, 0, 1, 0, 0, VarIrisTorqueChanged, 0,
                            0, 1, 0, 0, VarFocusTorqueChanged, 0, 0));
}

TEST_F(ServerConnectionTest, SubscribeEachOfNoEventWritesNothing) {
    BrokerDouble broker;
    auto connection = connect(broker);
    spy::start();
    connection->subscribeEach({});
    connection->postEvent({VarFocusTargetValueChanged, 0, 0});
    auto writes = spy::only(spy::stop(), "write");

    ASSERT_EQ(writes.size(), 1u);
    EXPECT_EQ(writes[0].value, 12);
}

TEST_F(ServerConnectionTest, PostEventAndSubscribeAllWriteOneRecordEach) {
    BrokerDouble broker;
    auto connection = connect(broker);
    spy::start();
    connection->postEvent({VarFocusTargetValueChanged, 1, 3});
    connection->subscribeAll();
    auto writes = spy::only(spy::stop(), "write");

    ASSERT_EQ(writes.size(), 2u);
    EXPECT_EQ(writes[0].value, 12);
    EXPECT_EQ(writes[1].value, 12);
    EXPECT_THAT(broker.receivedWords(), ElementsAre(7, 1, 3, 3, 0, 0));
}

// The connection reassembles records split across reads (the free readEvents
// still drops a trailing part, see ReadEvents below).
TEST_F(ServerConnectionTest, ARecordSplitAcrossReadsIsDeliveredWholeAndTheStreamStaysAligned) {
    BrokerDouble broker;
    auto connection = connect(broker);
    Recorder recorder;
    connection->setEventHandler(&recorder);
    const uint32_t words[12] = {7, 0, 0, 167, 1, 4, 6, 0x01020304, 9, 8, 1, 2};
    const auto* bytes = reinterpret_cast<const uint8_t*>(words);
    broker.send(bytes, 30);
    serveUntil([&] { return !recorder.records.empty(); });
    EXPECT_THAT(recorder.records, ElementsAre(IsNotify(7, 0, 0), IsNotify(167, 1, 4)));

    spy::start();
    broker.send(bytes + 30, sizeof words - 30);
    serveUntil([&] { return recorder.records.size() > 3; });
    auto reads = spy::only(spy::stop(), "read");
    ASSERT_FALSE(reads.empty());
    EXPECT_EQ(reads[0].value, 3072 - 6) << "the kept bytes and the read fill one batch";
    EXPECT_THAT(recorder.records, ElementsAre(IsNotify(7, 0, 0), IsNotify(167, 1, 4),
                                              IsNotify(6, 0x01020304, 9), IsNotify(8, 1, 2)));
}

TEST_F(ServerConnectionTest, RecordsSentOneByteAtATimeArriveWholeAndInOrder) {
    BrokerDouble broker;
    auto connection = connect(broker);
    Recorder recorder;
    connection->setEventHandler(&recorder);
    const auto sent = numberedRecords(20, [](uint32_t i) { return i % 2; });
    const auto* bytes = reinterpret_cast<const uint8_t*>(sent.data());
    for (size_t i = 0; i < sent.size() * sizeof(Notify); ++i) {
        broker.send(bytes + i, 1);
        poll.wait(0, true);
    }
    serveUntil([&] { return recorder.records.size() >= sent.size(); });
    ASSERT_EQ(recorder.records.size(), sent.size());
    for (uint32_t i = 0; i < sent.size(); ++i) {
        EXPECT_THAT(recorder.records[i], IsNotify(167, i % 2, i));
    }
}

TEST_F(ServerConnectionTest, ReadsAtMost256RecordsPerWakeUpWithOneRead) {
    BrokerDouble broker;
    auto connection = connect(broker);
    Recorder recorder;
    connection->setEventHandler(&recorder);
    const auto sent = numberedRecords(300, [](uint32_t) { return 1u; });
    broker.send(sent.data(), sent.size() * sizeof(Notify));

    spy::start();
    EXPECT_EQ(poll.wait(1000, true), EventPoll::EventsHandled);
    auto reads = spy::only(spy::stop(), "read");
    ASSERT_EQ(reads.size(), 1u);
    EXPECT_EQ(reads[0].fd, clientFd);
    EXPECT_EQ(reads[0].value, 3072);
    EXPECT_EQ(recorder.records.size(), 256u);
    EXPECT_EQ(poll.wait(1000, true), EventPoll::EventsHandled);
    ASSERT_EQ(recorder.records.size(), 300u);
    for (uint32_t i = 0; i < 300; ++i) {
        EXPECT_THAT(recorder.records[i], IsNotify(167, 1, i));
    }
}

TEST_F(ServerConnectionTest, AnEmptyReadDispatchesNothingAndTheHangupCloses) {
    BrokerDouble broker;
    auto connection = connect(broker);
    Recorder recorder;
    connection->setEventHandler(&recorder);
    ASSERT_EQ(::shutdown(broker.peer(), SHUT_WR), 0);
    spy::start();
    EXPECT_EQ(poll.wait(1000, true), EventPoll::EventsHandled);
    auto calls = spy::stop();
    auto reads = spy::only(calls, "read");
    ASSERT_EQ(reads.size(), 1u);
    EXPECT_EQ(reads[0].result, 0);
    EXPECT_TRUE(spy::only(calls, "shutdown").empty()) << "still connected";
    EXPECT_TRUE(recorder.records.empty());

    broker.closePeer();
    spy::start();
    EXPECT_EQ(poll.wait(1000, true), EventPoll::EventsHandled);
    calls = spy::stop();
    EXPECT_EQ(spy::only(calls, "epoll_ctl DEL").size(), 1u);
    EXPECT_EQ(spy::only(calls, "shutdown").size(), 1u);
    EXPECT_TRUE(recorder.records.empty());
    EXPECT_THROW(connection->postEvent({VarFocusTorqueChanged, 0, 0}), std::runtime_error);
}

TEST_F(ServerConnectionTest, AFailedReadIsLoggedAndClosesTheConnection) {
    BrokerDouble broker;
    auto connection = connect(broker);
    Recorder recorder;
    connection->setEventHandler(&recorder);
    // The broker goes away without reading what the client sent: the
    // client's next read fails with ECONNRESET.
    connection->postEvent({VarFocusTorqueChanged, 0, 0});
    broker.closePeer();
    testsupport::KmsgCapture log;
    spy::start();
    connection->event(EventPoll::Callback::Readable);
    auto calls = spy::stop();
    auto reads = spy::only(calls, "read");
    ASSERT_FALSE(reads.empty());
    EXPECT_EQ(reads[0].result, -1);
    EXPECT_EQ(spy::only(calls, "epoll_ctl DEL").size(), 1u) << "closed";
    EXPECT_TRUE(recorder.records.empty());
    EXPECT_TRUE(loggedExactly(log, {{gen::Error, "Read error"}}));
    EXPECT_THROW(connection->postEvent({VarFocusTorqueChanged, 0, 0}), std::runtime_error);
}

TEST_F(ServerConnectionTest, AHangupAndAFailedReadTellTheHandlerButTheOwnersCloseDoesNot) {
    Recorder recorder;
    {
        BrokerDouble broker;
        auto connection = connect(broker);
        connection->setEventHandler(&recorder);
        broker.closePeer();
        serveUntil([&] { return recorder.losses > 0; });
        EXPECT_EQ(recorder.losses, 1);
        EXPECT_FALSE(connection->isConnected());
    }
    {
        BrokerDouble broker;
        auto connection = connect(broker);
        connection->setEventHandler(&recorder);
        connection->postEvent({VarFocusTorqueChanged, 0, 0});
        broker.closePeer();
        connection->event(EventPoll::Callback::Readable);
        EXPECT_EQ(recorder.losses, 2) << "a failed read";
    }
    BrokerDouble broker;
    auto connection = connect(broker);
    connection->setEventHandler(&recorder);
    EXPECT_TRUE(connection->isConnected());
    connection->close();
    EXPECT_FALSE(connection->isConnected());
    EXPECT_EQ(recorder.losses, 2) << "the owner's close is no loss";
}

TEST_F(ServerConnectionTest, ReconnectWithoutABrokerFailsQuietly) {
    auto broker = std::make_unique<BrokerDouble>();
    auto connection = connect(*broker);
    broker.reset();
    serveUntil([&] { return !connection->isConnected(); });
    ASSERT_FALSE(connection->isConnected());
    testsupport::KmsgCapture log;
    EXPECT_FALSE(connection->reconnect());
    EXPECT_FALSE(connection->isConnected());
    EXPECT_TRUE(log.lines().empty()) << "no line per attempt while the broker is away";
}

TEST_F(ServerConnectionTest, ReconnectReachesARestartedBrokerThroughItsSemaphore) {
    Recorder recorder;
    auto first = std::make_unique<BrokerDouble>();
    auto connection = connect(*first);
    connection->setEventHandler(&recorder);
    first.reset();
    serveUntil([&] { return recorder.losses > 0; });
    ASSERT_EQ(recorder.losses, 1);

    BrokerDouble second;
    testsupport::KmsgCapture log;
    ASSERT_TRUE(connection->reconnect());
    EXPECT_TRUE(connection->isConnected());
    EXPECT_GE(second.accept(), 0);
    EXPECT_EQ(second.semaphoreValue(), 1) << "the semaphore is given back";
    EXPECT_TRUE(loggedExactly(log, {{gen::LogLight, "Connected again"}}));

    connection->postEvent({VarFocusTorqueChanged, 0, 3});
    EXPECT_THAT(second.receivedWords(), ElementsAre(167, 0, 3));
    const uint32_t words[3] = {7, 0, 0};
    second.send(words, sizeof words);
    serveUntil([&] { return !recorder.records.empty(); });
    ASSERT_EQ(recorder.records.size(), 1u);
    EXPECT_THAT(recorder.records[0], IsNotify(7, 0, 0));

    spy::start();
    EXPECT_TRUE(connection->reconnect()) << "already connected";
    EXPECT_TRUE(spy::stop().empty());
}

TEST_F(ServerConnectionTest, WithoutAHandlerARecordIsLoggedAsUnhandled) {
    BrokerDouble broker;
    auto connection = connect(broker);
    testsupport::KmsgCapture log;
    const uint32_t words[3] = {7, 0, 0};
    broker.send(words, sizeof words);
    serveUntil([&] { return !log.lines().empty(); });
    EXPECT_TRUE(loggedExactly(log, {{gen::Warn, "Unhandled event: VarFocusTargetValueChanged"}}));
}

TEST_F(ServerConnectionTest, CloseShutsDownSendingAndDrainsUntilQuiet) {
    BrokerDouble broker;
    auto connection = connect(broker);
    Recorder recorder;
    connection->setEventHandler(&recorder);
    int peer = broker.peer();
    // The peer waits for the end of the client's stream, then sends a little more.
    std::thread peerThread([peer] {
        pollfd input{peer, POLLIN, 0};
        char buffer[64];
        while (::poll(&input, 1, 2000) > 0 && ::recv(peer, buffer, sizeof buffer, 0) > 0) {
        }
        const uint32_t words[6] = {7, 0, 0, 8, 0, 0};
        ::send(peer, words, sizeof words, 0);
        std::this_thread::sleep_for(std::chrono::milliseconds(50));
        ::send(peer, words, 12, 0);
    });
    spy::start();
    auto begin = std::chrono::steady_clock::now();
    connection->close();
    auto elapsed = std::chrono::steady_clock::now() - begin;
    auto calls = spy::stop();
    peerThread.join();

    EXPECT_GE(elapsed, std::chrono::milliseconds(150));
    EXPECT_LT(elapsed, std::chrono::seconds(2));
    std::vector<std::string> names;
    for (const auto& call : calls) {
        names.push_back(call.name);
        if (call.name == "poll") {
            EXPECT_EQ(call.value, 100);
        }
        if (call.name == "read") {
            EXPECT_EQ(call.value, 256);
        }
        if (call.name == "shutdown") {
            EXPECT_EQ(call.value, SHUT_WR);
        }
    }
    ASSERT_GE(names.size(), 3u);
    EXPECT_EQ(names[0], "epoll_ctl DEL");
    EXPECT_EQ(names[1], "shutdown");
    EXPECT_EQ(names.back(), "poll") << "ends on the quiet time-out";
    EXPECT_TRUE(recorder.records.empty()) << "drained bytes are discarded";

    spy::start();
    connection->close();
    EXPECT_TRUE(spy::stop().empty()) << "a second close does nothing";
    EXPECT_THROW(connection->postEvent({VarFocusTorqueChanged, 0, 0}), std::runtime_error);
}

TEST_F(ServerConnectionTest, CloseStopsDrainingWhenThePeerCloses) {
    BrokerDouble broker;
    auto connection = connect(broker);
    int peer = broker.releasePeer();
    std::thread peerThread([peer] {
        pollfd input{peer, POLLIN, 0};
        char buffer[64];
        while (::poll(&input, 1, 2000) > 0 && ::recv(peer, buffer, sizeof buffer, 0) > 0) {
        }
        ::close(peer);
    });
    spy::start();
    connection->close();
    auto calls = spy::stop();
    peerThread.join();
    auto reads = spy::only(calls, "read");
    ASSERT_FALSE(reads.empty());
    EXPECT_EQ(reads.back().result, 0);
    EXPECT_EQ(calls.back().name, "read") << "no further wait after the end of the stream";
}

TEST_F(ServerConnectionTest, SendingAfterTheBrokerWentAwayFails) {
    BrokerDouble broker;
    auto connection = connect(broker);
    broker.closePeer();
    testsupport::KmsgCapture log;
    std::string error;
    try {
        connection->postEvent({VarFocusTorqueChanged, 0, 0});
    } catch (const std::runtime_error& e) {
        error = e.what();
    }
    EXPECT_TRUE(testsupport::isLocatedMessage(error, SOURCE, "Could not send message to server"));
    EXPECT_TRUE(loggedExactly(log, {{gen::Error, "Could not send message to server"}}));
    error.clear();
    try {
        connection->subscribe({VarFocusTorqueChanged, 0, 0});
    } catch (const std::runtime_error& e) {
        error = e.what();
    }
    EXPECT_TRUE(testsupport::isLocatedMessage(error, SOURCE, "Could not send message to server"));
}

TEST_F(ServerConnectionTest, TheProcessConnectionCarriesTheFreePostEvent) {
    BrokerDouble broker;
    testsupport::KmsgCapture log;
    ASSERT_EQ(gen::getServerConnection(), nullptr);
    std::string error;
    try {
        postEvent({VarFocusTorqueChanged, 0, 0});
    } catch (const std::runtime_error& e) {
        error = e.what();
    }
    EXPECT_TRUE(testsupport::isLocatedMessage(error, SOURCE,
                                              "Trying to post event without server connection"));
    EXPECT_TRUE(
        loggedExactly(log, {{gen::Error, "Trying to post event without server connection"}}));

    gServerConnection = connect(broker).release();
    EXPECT_EQ(gen::getServerConnection(), gServerConnection);
    postEvent({VarFocusTorqueChanged, 1, 2});
    EXPECT_THAT(broker.receivedWords(), ElementsAre(167, 1, 2));

    gen::closeServerConnection();
    EXPECT_EQ(gServerConnection, nullptr);
    EXPECT_THROW(postEvent({VarFocusTorqueChanged, 0, 0}), std::runtime_error);
    gen::closeServerConnection();
    EXPECT_EQ(gen::getServerConnection(), nullptr);
}

TEST(ReadEvents, CountsWholeRecordsOfOneRead) {
    int fds[2];
    ASSERT_EQ(socketpair(AF_UNIX, SOCK_STREAM, 0, fds), 0);
    const uint32_t words[9] = {7, 0, 0, 8, 1, 2, 9, 0, 0};
    ASSERT_EQ(::write(fds[1], words, 30), 30);
    Notify buffer[4] = {};
    EXPECT_EQ(readEvents(fds[0], buffer, 4), 2);
    EXPECT_THAT(buffer[1], IsNotify(8, 1, 2));
    // The six bytes after the second record went with that read.
    const uint32_t next[3] = {10, 1, 3};
    ASSERT_EQ(::write(fds[1], next, sizeof next), 12);
    EXPECT_EQ(readEvents(fds[0], buffer, 4), 1);
    EXPECT_THAT(buffer[0], IsNotify(10, 1, 3));
    ::close(fds[0]);
    ::close(fds[1]);
}

TEST(ReadEvents, AFailedReadThrowsReadError) {
    testsupport::KmsgCapture log;
    Notify buffer[1];
    std::string error;
    try {
        readEvents(-1, buffer, 1);
    } catch (const std::runtime_error& e) {
        error = e.what();
    }
    EXPECT_TRUE(testsupport::isLocatedMessage(error, SOURCE, "Read error"));
    EXPECT_TRUE(loggedExactly(log, {{gen::Error, "Read error"}}));
}

TEST(EventName, NamesTheRecordsId) {
    EXPECT_STREQ(eventName({VarFocusTargetValueChanged, 0, 0}), "VarFocusTargetValueChanged");
    EXPECT_STREQ(eventName({Subscribe, 1, 1}), "Subscribe");
    EXPECT_STREQ(eventName({static_cast<EventId>(EVENT_ID_COUNT), 0, 0}), "Invalid");
    EXPECT_STREQ(eventName({static_cast<EventId>(0xFFFFFFFFu), 0, 0}), "Invalid");
}

} // namespace
