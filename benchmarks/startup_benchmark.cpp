// Start-up of the settings service: from exec to the SIGUSR1 that tells its
// parent it is ready, beside the floor, a program that sends SIGUSR1 to its
// parent at once (built twice: as the linker makes it, with the C library
// only, and with the C++ runtime's libraries that the service loads).
//
// Each iteration forks and execs the program and waits for its SIGUSR1
// (sigtimedwait); the time runs from just before the fork to the signal's
// arrival.  The program is then stopped with SIGTERM and reaped, outside the
// measured time.  One iteration is one start: with --benchmark_repetitions=20
// the median is the median of 20 starts.
//
// The service starts as on a normal boot: the broker runs (started once, as
// a child of this program), ".current.stp" holds the settings that the
// previous start wrote when it stopped, and no memory is left over (a clean
// stop removes them).  One start before the measured ones writes the first
// ".current.stp".
//
// Run inside a device root, with the build bound in:
//   tools/devroot/devroot exec --bind-ro $PWD/build/native --
//       build/native/benchmarks/startup_benchmark --benchmark_repetitions=20
// --service=PATH starts another build's service instead (bind it in too).
#include "brokerprocess.h"

#include <benchmark/benchmark.h>

#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <memory>
#include <optional>
#include <string>
#include <sys/wait.h>
#include <unistd.h>

namespace {

constexpr std::chrono::seconds READY_PATIENCE{10};

// The signals this program waits for; blocked from the start, and unblocked
// again in each child before its exec.
sigset_t waitedSignals;
sigset_t originalMask;

std::unique_ptr<brokertest::BrokerProcess> broker;

// The service program: this build's, or the one that --service=PATH names (to
// compare two builds on the same machine).
std::string serviceProgram = SERVICE_PROGRAM;

// Takes signals left pending by earlier starts (SIGCHLD of a reaped child).
void drainPendingSignals() {
    const timespec now{0, 0};
    siginfo_t info;
    while (sigtimedwait(&waitedSignals, &info, &now) > 0) {
    }
}

timespec remaining(std::chrono::steady_clock::time_point end) {
    const auto left = std::chrono::duration_cast<std::chrono::nanoseconds>(
        end - std::chrono::steady_clock::now());
    if (left.count() <= 0) {
        return {0, 0};
    }
    return {static_cast<time_t>(left.count() / 1'000'000'000),
            static_cast<long>(left.count() % 1'000'000'000)};
}

// One start of `program`: the seconds from fork to its SIGUSR1, or nullopt
// with the reason in `error` when it ended first or was not ready in time.
// `child` is the started process, -1 when it has ended and was reaped.
std::optional<double> timeStart(const char* program, pid_t& child, std::string& error) {
    drainPendingSignals();
    const auto begin = std::chrono::steady_clock::now();
    child = fork();
    if (child < 0) {
        error = "fork failed";
        return std::nullopt;
    }
    if (child == 0) {
        sigprocmask(SIG_SETMASK, &originalMask, nullptr);
        unsetenv("NOTIFY_SOCKET");
        execl(program, program, static_cast<char*>(nullptr));
        _exit(127);
    }
    const auto end = begin + READY_PATIENCE;
    for (;;) {
        siginfo_t info{};
        const timespec timeout = remaining(end);
        const int signal = sigtimedwait(&waitedSignals, &info, &timeout);
        if (signal == SIGUSR1 && info.si_pid == child) {
            const std::chrono::duration<double> took = std::chrono::steady_clock::now() - begin;
            return took.count();
        }
        if (signal == SIGCHLD && waitpid(child, nullptr, WNOHANG) == child) {
            child = -1;
            error = std::string(program) + " ended before it was ready";
            return std::nullopt;
        }
        if (signal < 0 && errno != EINTR) {
            error = std::string(program) + " was not ready within 10 s";
            return std::nullopt;
        }
    }
}

void stop(pid_t child) {
    if (child > 0) {
        kill(child, SIGTERM);
        waitpid(child, nullptr, 0);
    }
}

// One measured start of `program` with its stop; nullopt (the benchmark
// skipped with the reason) when it failed.
std::optional<double> measuredStart(benchmark::State& state, const char* program) {
    pid_t child = -1;
    std::string error;
    const std::optional<double> seconds = timeStart(program, child, error);
    stop(child);
    if (!seconds) {
        state.SkipWithError(error.c_str());
    }
    return seconds;
}

void measureStarts(benchmark::State& state, const char* program) {
    for (auto _ : state) {
        const std::optional<double> seconds = measuredStart(state, program);
        if (!seconds) {
            return;
        }
        state.SetIterationTime(*seconds);
    }
}

bool brokerRunning(benchmark::State& state) {
    if (!broker || !broker->running()) {
        state.SkipWithError("the broker is not running");
        return false;
    }
    return true;
}

void BM_Floor(benchmark::State& state) {
    measureStarts(state, FLOOR_PROGRAM);
}
BENCHMARK(BM_Floor)->Iterations(1)->UseManualTime()->Unit(benchmark::kMicrosecond);

// The same program with the libraries of the C++ runtime loaded, as the
// service loads them: the part of the service's start that is the runtime's.
void BM_FloorWithCxxRuntime(benchmark::State& state) {
    measureStarts(state, FLOOR_CXX_PROGRAM);
}
BENCHMARK(BM_FloorWithCxxRuntime)->Iterations(1)->UseManualTime()->Unit(benchmark::kMicrosecond);

void BM_SettingsService(benchmark::State& state) {
    if (brokerRunning(state)) {
        measureStarts(state, serviceProgram.c_str());
    }
}
BENCHMARK(BM_SettingsService)->Iterations(1)->UseManualTime()->Unit(benchmark::kMicrosecond);

// The floor and the service started one right after the other, so that both
// meet the same load of the machine: the time is the service's, the counters
// are the floor's time (floor_us) and the service's time over it (ratio).
void BM_SettingsServiceAfterFloor(benchmark::State& state) {
    if (!brokerRunning(state)) {
        return;
    }
    for (auto _ : state) {
        const std::optional<double> floor = measuredStart(state, FLOOR_PROGRAM);
        const std::optional<double> service =
            floor ? measuredStart(state, serviceProgram.c_str()) : std::nullopt;
        if (!service) {
            return;
        }
        state.SetIterationTime(*service);
        state.counters["floor_us"] = *floor * 1e6;
        state.counters["ratio"] = *service / *floor;
    }
}
BENCHMARK(BM_SettingsServiceAfterFloor)
    ->Iterations(1)
    ->UseManualTime()
    ->Unit(benchmark::kMicrosecond);

// The first start of the service writes ".current.stp" (when the root has
// none yet), so that every measured start loads one.
bool prepareService() {
    pid_t child = -1;
    std::string error;
    const bool ready = timeStart(serviceProgram.c_str(), child, error).has_value();
    stop(child);
    return ready;
}

} // namespace

int main(int argc, char** argv) {
    broker = std::make_unique<brokertest::BrokerProcess>();
    sigemptyset(&waitedSignals);
    sigaddset(&waitedSignals, SIGUSR1);
    sigaddset(&waitedSignals, SIGCHLD);
    sigprocmask(SIG_BLOCK, &waitedSignals, &originalMask);
    benchmark::Initialize(&argc, argv);
    const std::string serviceOption = "--service=";
    for (int i = 1; i < argc; ++i) {
        const std::string argument = argv[i];
        if (argument.rfind(serviceOption, 0) != 0) {
            std::fprintf(stderr, "startup_benchmark: unknown argument %s\n", argv[i]);
            return EXIT_FAILURE;
        }
        serviceProgram = argument.substr(serviceOption.size());
    }
    if (broker->running() && !prepareService()) {
        broker.reset();
    }
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    broker.reset();
    return EXIT_SUCCESS;
}
