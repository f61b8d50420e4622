// Cost of the logging path and of one event-loop round trip.
//
// Run inside a device root so that lines go to a private /dev/kmsg:
//   tools/devroot/devroot exec --bind-ro $PWD -- build/native/benchmarks/foundation_benchmark
#include "settings-service/eventpoll.h"
#include "settings-service/log.h"

#include <benchmark/benchmark.h>
#include <sys/epoll.h>
#include <unistd.h>

namespace {

void BM_LogFilteredOut(benchmark::State& state) {
    gen::LogLevel level = gen::Warn;
    for (auto _ : state) {
        logMessage(&level, gen::LogLight, __FILE__, __LINE__, "value %d of %s", 42, "variable");
    }
}
BENCHMARK(BM_LogFilteredOut);

void BM_LogWritten(benchmark::State& state) {
    gen::LogLevel level = gen::LogAll;
    for (auto _ : state) {
        logMessage(&level, gen::LogLight, __FILE__, __LINE__, "value %d of %s", 42, "variable");
    }
}
BENCHMARK(BM_LogWritten);

// One wait() that finds one readable descriptor and dispatches it; the
// callback drains the byte so that the next round waits again.
void BM_EventPollRoundTrip(benchmark::State& state) {
    int pipeFds[2];
    if (::pipe(pipeFds) != 0) {
        state.SkipWithError("pipe");
        return;
    }
    EventPoll poll;
    EventPoll::FunctionCallback drain([&](EventPoll::Callback::EventType) {
        char byte;
        benchmark::DoNotOptimize(::read(pipeFds[0], &byte, 1));
    });
    gen::LogLevel quiet = gen::Error;
    gComponentLogLevel = &quiet;
    poll.add(pipeFds[0], &drain, EPOLLIN);
    const char byte = 'x';
    for (auto _ : state) {
        benchmark::DoNotOptimize(::write(pipeFds[1], &byte, 1));
        benchmark::DoNotOptimize(poll.wait(-1, true));
    }
    poll.remove(pipeFds[0]);
    gComponentLogLevel = nullptr;
    ::close(pipeFds[0]);
    ::close(pipeFds[1]);
}
BENCHMARK(BM_EventPollRoundTrip);

} // namespace

BENCHMARK_MAIN();
