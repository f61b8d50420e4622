// Forwarding throughput of the message broker.
//
// One publisher posts 12-byte records as fast as it can, one postEvent (one
// write) per record, while 1 or 10 subscribers read them in threads of their
// own in batches of 256 records, as ServerConnection does.  The raw limit
// beside it: the same records through one UNIX stream socket pair, no broker.
//
// Run inside a device root (the broker needs /var/volatile and /dev/shm):
//   tools/devroot/devroot exec --bind-ro $PWD/build/native --
//       build/native/benchmarks/broker_benchmark
#include "brokerprocess.h"
#include "rawclient.h"
#include "settings-service/eventpoll.h"
#include "settings-service/log.h"
#include "settings-service/serverconnection.h"

#include <benchmark/benchmark.h>

#include <csignal>
#include <fstream>
#include <memory>
#include <sstream>
#include <string>
#include <sys/resource.h>
#include <sys/socket.h>
#include <thread>
#include <unistd.h>
#include <utility>
#include <vector>

namespace {

constexpr uint32_t RECORDS = 100000; // per iteration
constexpr uint32_t FOCUS = VarFocusTorqueChanged;

// Reads until `bytes` have arrived; false when the stream ends first.
bool readAll(int fd, size_t bytes) {
    Notify batch[256];
    while (bytes > 0) {
        ssize_t got = ::read(fd, batch, sizeof batch);
        if (got <= 0) {
            return false;
        }
        bytes -= static_cast<size_t>(got);
    }
    return true;
}

// CPU seconds (user + system) that a process has used.
double processCpuSeconds(pid_t pid) {
    std::ifstream stat("/proc/" + std::to_string(pid) + "/stat");
    std::string text((std::istreambuf_iterator<char>(stat)), {});
    std::istringstream fields(text.substr(text.rfind(')') + 2));
    std::string field;
    for (int i = 3; i < 14; ++i) {
        fields >> field;
    }
    double user = 0;
    double system = 0;
    fields >> user >> system;
    return (user + system) / static_cast<double>(sysconf(_SC_CLK_TCK));
}

// The read and write system calls a process has made ("syscr", "syscw").
std::pair<double, double> processCalls(pid_t pid) {
    std::ifstream io("/proc/" + std::to_string(pid) + "/io");
    double reads = 0;
    double writes = 0;
    for (std::string key, value; io >> key >> value;) {
        if (key == "syscr:") {
            reads = std::stod(value);
        } else if (key == "syscw:") {
            writes = std::stod(value);
        }
    }
    return {reads, writes};
}

double ownCpuSeconds() {
    rusage usage{};
    getrusage(RUSAGE_SELF, &usage);
    return static_cast<double>(usage.ru_utime.tv_sec + usage.ru_stime.tv_sec) +
           static_cast<double>(usage.ru_utime.tv_usec + usage.ru_stime.tv_usec) / 1e6;
}

void BM_ThroughBroker(benchmark::State& state) {
    gen::LogLevel quiet = gen::Warn;
    gComponentLogLevel = &quiet;
    const int subscriberCount = static_cast<int>(state.range(0));
    brokertest::BrokerProcess broker;
    if (!broker.running()) {
        state.SkipWithError("the broker did not start");
        return;
    }
    std::vector<std::unique_ptr<brokertest::RawClient>> subscribers;
    for (int i = 0; i < subscriberCount; ++i) {
        subscribers.push_back(std::make_unique<brokertest::RawClient>());
        subscribers.back()->subscribe(FOCUS);
        subscribers.back()->sync();
    }
    ServerConnection publisher(gen::getEventPoll());
    double brokerCpu = processCpuSeconds(broker.id());
    auto brokerCalls = processCalls(broker.id());
    double ownCpu = ownCpuSeconds();
    bool complete = true;
    for (auto _ : state) {
        std::vector<std::thread> readers;
        std::vector<char> done(subscribers.size(), 0);
        for (size_t i = 0; i < subscribers.size(); ++i) {
            readers.emplace_back(
                [&, i] { done[i] = readAll(subscribers[i]->socket(), RECORDS * sizeof(Notify)); });
        }
        for (uint32_t i = 0; i < RECORDS; ++i) {
            publisher.postEvent({EventId(FOCUS), 0, i});
        }
        for (auto& reader : readers) {
            reader.join();
        }
        for (char ok : done) {
            complete = complete && ok;
        }
    }
    double records = static_cast<double>(state.iterations()) * RECORDS;
    state.counters["records/s"] = benchmark::Counter(records, benchmark::Counter::kIsRate);
    state.counters["broker_cpu_ns/record"] =
        (processCpuSeconds(broker.id()) - brokerCpu) * 1e9 / records;
    state.counters["clients_cpu_ns/record"] = (ownCpuSeconds() - ownCpu) * 1e9 / records;
    auto calls = processCalls(broker.id());
    state.counters["broker_reads/1000records"] = (calls.first - brokerCalls.first) * 1000 / records;
    state.counters["broker_writes/1000records"] =
        (calls.second - brokerCalls.second) * 1000 / records;
    if (!complete) {
        state.SkipWithError("a subscriber was closed by the broker");
    }
    publisher.close();
    broker.stop(SIGTERM);
    gComponentLogLevel = nullptr;
}
BENCHMARK(BM_ThroughBroker)->Arg(1)->Arg(10)->UseRealTime()->Unit(benchmark::kMillisecond);

void BM_RawSocketPair(benchmark::State& state) {
    int fds[2];
    if (socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, fds) != 0) {
        state.SkipWithError("socketpair");
        return;
    }
    double ownCpu = ownCpuSeconds();
    for (auto _ : state) {
        std::thread reader([&] { readAll(fds[1], RECORDS * sizeof(Notify)); });
        for (uint32_t i = 0; i < RECORDS; ++i) {
            const Notify record{EventId(FOCUS), 0, i};
            if (::write(fds[0], &record, sizeof record) != sizeof record) {
                state.SkipWithError("write");
            }
        }
        reader.join();
    }
    double records = static_cast<double>(state.iterations()) * RECORDS;
    state.counters["records/s"] = benchmark::Counter(records, benchmark::Counter::kIsRate);
    state.counters["clients_cpu_ns/record"] = (ownCpuSeconds() - ownCpu) * 1e9 / records;
    ::close(fds[0]);
    ::close(fds[1]);
}
BENCHMARK(BM_RawSocketPair)->UseRealTime()->Unit(benchmark::kMillisecond);

} // namespace

BENCHMARK_MAIN();
