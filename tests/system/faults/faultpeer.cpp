// faultpeer: the well-behaved and the dying broker clients of the "broker
// clients" fault group, built for the target so that they share the broker's
// semaphore (its layout differs between x86-64 and 32-bit ARM).
//
//   faultpeer exchange --seconds S [--window W] [--stall T]
//       Two ServerConnections of this process: a subscriber subscribes to
//       STREAMS ids (events of the table that belong to MemGuiLocal variables,
//       which nothing else in the group posts or subscribes to: the broker
//       takes subscriptions to ids of its table only), a publisher posts records
//       on them for S seconds, each id's `index` counting up from 0 and
//       `indexed` a check word derived from both, never more than W records
//       ahead of what the subscriber has received.  The subscriber checks
//       that every record arrives whole, once and in order.  Prints one line
//         exchange: connect-ms A B sent N received R bad B stalled X
//       and exits 0 when R equals N, B is 0 and it never waited T seconds
//       (default 10) for the next record.
//   faultpeer hold-semaphore
//       Takes the broker's readiness semaphore and dies of SIGKILL holding it.
//   faultpeer (no arguments, FAULT_PEER_THEN_EXEC set)
//       Does what hold-semaphore does in a child, then replaces itself with
//       the command line in FAULT_PEER_THEN_EXEC (words separated by blanks):
//       a service started by the device root's supervisor in this way starts
//       after a client died holding the semaphore, as the supervisor's child.
#include "settings-service/brokerprotocol.h"
#include "settings-service/eventpoll.h"
#include "settings-service/log.h"
#include "settings-service/serverconnection.h"

#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <exception>
#include <fcntl.h>
#include <semaphore.h>
#include <sstream>
#include <string>
#include <sys/wait.h>
#include <unistd.h>
#include <vector>

namespace {

using Clock = std::chrono::steady_clock;

gen::LogLevel peerLogLevel = gen::LogLight;

constexpr uint32_t STREAM_BASE = 600;
constexpr uint32_t STREAMS = 3;
constexpr uint32_t SYNC_ID = STREAM_BASE + STREAMS;
constexpr uint32_t CHECK_WORD = 0x5EED1234;
constexpr int HOLD_WAIT_SECONDS = 10;
constexpr int USAGE_ERROR = 2;

uint32_t checkWord(uint32_t stream, uint32_t index) {
    return (index * 2654435761u) ^ (stream << 24) ^ CHECK_WORD;
}

double millisecondsSince(Clock::time_point start) {
    return std::chrono::duration<double, std::milli>(Clock::now() - start).count();
}

// Counts what the subscriber receives and checks each record.
class Counter : public ServerConnection::EventHandler {
public:
    void handleEvent(const Notify& notify) override {
        if (notify.id == SYNC_ID) {
            synced = true;
            return;
        }
        uint32_t stream = notify.id - STREAM_BASE;
        if (stream >= STREAMS || notify.index != next[stream] ||
            notify.indexed != checkWord(stream, notify.index)) {
            ++bad;
            std::fprintf(stderr, "faultpeer: unexpected record %u %u %u\n",
                         static_cast<unsigned>(notify.id), notify.indexed, notify.index);
        }
        if (stream < STREAMS) {
            next[stream] = notify.index + 1;
        }
        ++received;
        lastArrival = Clock::now();
    }

    bool synced = false;
    uint64_t received = 0;
    uint64_t bad = 0;
    uint32_t next[STREAMS] = {};
    Clock::time_point lastArrival = Clock::now();
};

struct ExchangeOptions {
    double seconds = 10;
    uint64_t window = 2000;
    double stall = 10;
};

int exchange(const ExchangeOptions& options) {
    EventPoll& poll = gen::getEventPoll();
    auto start = Clock::now();
    ServerConnection subscriber(poll);
    double subscriberMs = millisecondsSince(start);
    start = Clock::now();
    ServerConnection publisher(poll);
    double publisherMs = millisecondsSince(start);

    Counter counter;
    subscriber.setEventHandler(&counter);
    for (uint32_t stream = 0; stream <= STREAMS; ++stream) {
        subscriber.subscribe({static_cast<EventId>(STREAM_BASE + stream), 0, 0});
    }
    // The subscriptions are in effect once the subscriber hears its own record.
    subscriber.postEvent({static_cast<EventId>(SYNC_ID), 0, 0});
    auto stallLimit = std::chrono::duration<double>(options.stall);
    counter.lastArrival = Clock::now();
    while (!counter.synced && Clock::now() - counter.lastArrival < stallLimit) {
        poll.wait(100, true);
    }

    uint64_t sent = 0;
    uint32_t index[STREAMS] = {};
    bool stalled = !counter.synced;
    auto end = Clock::now() + std::chrono::duration<double>(options.seconds);
    bool terminate = false;
    while (!stalled && !terminate && (Clock::now() < end || counter.received < sent)) {
        while (Clock::now() < end && sent - counter.received < options.window) {
            uint32_t stream = static_cast<uint32_t>(sent % STREAMS);
            publisher.postEvent({static_cast<EventId>(STREAM_BASE + stream),
                                 checkWord(stream, index[stream]), index[stream]});
            ++index[stream];
            ++sent;
        }
        terminate = poll.wait(20) == EventPoll::Terminate;
        stalled = counter.received < sent && Clock::now() - counter.lastArrival > stallLimit;
    }
    std::printf("exchange: connect-ms %.0f %.0f sent %llu received %llu bad %llu stalled %d\n",
                subscriberMs, publisherMs, static_cast<unsigned long long>(sent),
                static_cast<unsigned long long>(counter.received),
                static_cast<unsigned long long>(counter.bad), stalled ? 1 : 0);
    return counter.received == sent && counter.bad == 0 && !stalled ? 0 : 1;
}

// Takes the semaphore (bounded, so that a test never hangs here) and dies.
[[noreturn]] void holdSemaphoreAndDie() {
    sem_t* ready = sem_open(BrokerProtocol::READY_SEMAPHORE, 0);
    if (ready == SEM_FAILED) {
        std::perror("faultpeer: sem_open");
        _exit(1);
    }
    timespec deadline{};
    clock_gettime(CLOCK_MONOTONIC, &deadline);
    deadline.tv_sec += HOLD_WAIT_SECONDS;
    if (sem_clockwait(ready, CLOCK_MONOTONIC, &deadline) != 0) {
        std::perror("faultpeer: sem_clockwait");
        _exit(1);
    }
    std::printf("held\n");
    std::fflush(stdout);
    raise(SIGKILL);
    _exit(1);
}

int holdThenExec(const char* commandLine) {
    pid_t holder = fork();
    if (holder == 0) {
        holdSemaphoreAndDie();
    }
    int status = 0;
    if (holder < 0 || waitpid(holder, &status, 0) != holder || !WIFSIGNALED(status)) {
        std::fprintf(stderr, "faultpeer: the holder did not die holding the semaphore\n");
        return 1;
    }
    std::istringstream words(commandLine);
    std::vector<std::string> argvWords;
    for (std::string word; words >> word;) {
        argvWords.push_back(word);
    }
    std::vector<char*> argv;
    for (auto& word : argvWords) {
        argv.push_back(word.data());
    }
    argv.push_back(nullptr);
    if (argv.size() > 1) {
        execvp(argv[0], argv.data());
    }
    std::perror("faultpeer: exec");
    return 1;
}

int usage() {
    std::fprintf(stderr, "usage: faultpeer exchange --seconds S [--window W] [--stall T]\n"
                         "       faultpeer hold-semaphore\n");
    return USAGE_ERROR;
}

} // namespace

int main(int argc, char** argv) {
    gComponentLogLevel = &peerLogLevel;
    const char* thenExec = std::getenv("FAULT_PEER_THEN_EXEC");
    if (argc == 1 && thenExec != nullptr) {
        return holdThenExec(thenExec);
    }
    if (argc == 2 && std::strcmp(argv[1], "hold-semaphore") == 0) {
        holdSemaphoreAndDie();
    }
    if (argc < 2 || std::strcmp(argv[1], "exchange") != 0 || argc % 2 != 0) {
        return usage();
    }
    ExchangeOptions options;
    for (int i = 2; i + 1 < argc; i += 2) {
        if (std::strcmp(argv[i], "--seconds") == 0) {
            options.seconds = std::atof(argv[i + 1]);
        } else if (std::strcmp(argv[i], "--window") == 0) {
            options.window = std::strtoull(argv[i + 1], nullptr, 10);
        } else if (std::strcmp(argv[i], "--stall") == 0) {
            options.stall = std::atof(argv[i + 1]);
        } else {
            return usage();
        }
    }
    try {
        return exchange(options);
    } catch (const std::exception& error) {
        std::fprintf(stderr, "faultpeer: %s\n", error.what());
        return 1;
    }
}
