// Cost of the memories' start-up: gen::initMemories() creates, maps and fills all 20 memories.
//
// Each iteration runs in a fresh child process, as the start-up runs once per process; the child
// measures the call itself and reports the time through a pipe. "Fresh" removes the objects
// before each iteration (first start of the device), "Existing" leaves them (a restart).
// Run inside a device root:
//   tools/devroot/devroot exec --bind-ro $PWD -- build/native/benchmarks/catalogue_benchmark
#include "settings-service/catalogue.h"
#include "settings-service/memories.h"

#include <benchmark/benchmark.h>
#include <chrono>
#include <string>
#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

namespace {

void removeObjects() {
    for (uint32_t m = 0; m < MEMORY_ARRAY_SIZE; ++m) {
        shm_unlink((std::string("/") + MEMORY_ARRAY[m].name).c_str());
    }
}

// The duration of one gen::initMemories() in a child process, in seconds.
double timeInitInChild() {
    int channel[2];
    if (pipe(channel) != 0) {
        return -1;
    }
    const pid_t pid = fork();
    if (pid == 0) {
        const auto start = std::chrono::steady_clock::now();
        gen::initMemories();
        const std::chrono::duration<double> took = std::chrono::steady_clock::now() - start;
        const double seconds = took.count();
        (void)!write(channel[1], &seconds, sizeof seconds);
        _exit(0);
    }
    close(channel[1]);
    double seconds = -1;
    (void)!read(channel[0], &seconds, sizeof seconds);
    close(channel[0]);
    waitpid(pid, nullptr, 0);
    return seconds;
}

void BM_InitMemoriesFresh(benchmark::State& state) {
    for (auto _ : state) {
        removeObjects();
        state.SetIterationTime(timeInitInChild());
    }
    removeObjects();
}
BENCHMARK(BM_InitMemoriesFresh)->UseManualTime()->Unit(benchmark::kMicrosecond);

void BM_InitMemoriesExisting(benchmark::State& state) {
    removeObjects();
    timeInitInChild();
    for (auto _ : state) {
        state.SetIterationTime(timeInitInChild());
    }
    removeObjects();
}
BENCHMARK(BM_InitMemoriesExisting)->UseManualTime()->Unit(benchmark::kMicrosecond);

void BM_DefaultImagesOfAllMemories(benchmark::State& state) {
    for (auto _ : state) {
        for (uint32_t m = 0; m < MEMORY_ARRAY_SIZE; ++m) {
            benchmark::DoNotOptimize(gen::defaultImage(m));
        }
    }
}
BENCHMARK(BM_DefaultImagesOfAllMemories)->Unit(benchmark::kMicrosecond);

} // namespace

BENCHMARK_MAIN();
