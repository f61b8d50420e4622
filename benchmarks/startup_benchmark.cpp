// Start-up of the settings service: from exec to the SIGUSR1 that tells its
// parent it is ready, beside the floor, a program that sends SIGUSR1 to its
// parent at once (built twice: as the linker makes it, with the C library
// only, and with the C++ runtime's libraries that the service loads).
//
// Each iteration forks and execs the program and waits for its SIGUSR1
// (sigtimedwait); the time runs from just before the fork to the signal's
// arrival.  The program is then stopped with SIGTERM and reaped, outside the
// measured time.  One iteration is one start: with --benchmark_repetitions=20
// the median is the median of 20 starts.  The counter cpu_us is the started
// program's own CPU time up to its signal (the service's in the paired case),
// which a busy machine inflates far less than the time.
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
#include "servicelaunch.h"

#include <benchmark/benchmark.h>

#include <cstdlib>
#include <memory>
#include <optional>
#include <string>

namespace {

using servicelaunch::stop;
using servicelaunch::timeStart;

std::unique_ptr<brokertest::BrokerProcess> broker;

// The service program: this build's, or the one that --service=PATH names (to
// compare two builds on the same machine).
std::string serviceProgram = SERVICE_PROGRAM;

// One measured start of `program` with its stop; nullopt (the benchmark
// skipped with the reason) when it failed.
// The counter `cpu_us` is the program's CPU time up to its signal.
std::optional<double> measuredStart(benchmark::State& state, const char* program) {
    pid_t child = -1;
    std::string error;
    double cpuSeconds = -1;
    const std::optional<double> seconds = timeStart(program, child, error, &cpuSeconds);
    stop(child);
    if (!seconds) {
        state.SkipWithError(error.c_str());
    } else {
        state.counters["cpu_us"] = cpuSeconds * 1e6;
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
    servicelaunch::blockReadySignals();
    benchmark::Initialize(&argc, argv);
    if (!servicelaunch::readServiceOption(argc, argv, "startup_benchmark", serviceProgram)) {
        return EXIT_FAILURE;
    }
    if (broker->running() && !prepareService()) {
        broker.reset();
    }
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    broker.reset();
    return EXIT_SUCCESS;
}
