// The settings service's CPU time per change of a persistent variable, saves
// included.
//
// Each iteration starts the service (as the start-up benchmark does), lets its
// start-up settle, then plays another process of the device: it stores 500
// new values of LastKnownFocusValue in MemPersistent, 75 a second, and posts
// the variable's change event to the broker after each.  A second after the
// last change (when the once-a-second save has written it) the service's CPU
// time (its process CPU clock) is read again; the iteration's time is that
// CPU time divided by the changes.  The service is then stopped, outside the
// measured window.
//
// Arguments: 0 runs the service at its start-up log level, so each change
// writes its "%s changed to %s" line; 1 raises the level to Warn first, so the
// line is filtered out.  Counters: `saves`, the times ".current.stp" was
// replaced in the window, and `wall_s`, the window's length.  An iteration
// whose saved ".current.stp" does not hold the last value fails the run.
//
// Run inside a device root, with the build bound in:
//   tools/devroot/devroot exec --bind-ro $PWD/build/native --
//       build/native/benchmarks/change_benchmark --benchmark_repetitions=5
// --service=PATH starts another build's service instead (bind it in too).
#include "brokerprocess.h"
#include "servicelaunch.h"
#include "settings-service/eventpoll.h"
#include "settings-service/introspection.h"
#include "settings-service/log.h"
#include "settings-service/memories.h"
#include "settings-service/records.h"
#include "settings-service/serverconnection.h"
#include "settings-service/sharedmemory.h"

#include <benchmark/benchmark.h>

#include <chrono>
#include <cstddef>
#include <cstdlib>
#include <ctime>
#include <fstream>
#include <memory>
#include <optional>
#include <sstream>
#include <string>
#include <sys/inotify.h>
#include <thread>
#include <unistd.h>

namespace {

constexpr int CHANGES = 500;
constexpr std::chrono::nanoseconds CHANGE_INTERVAL{1'000'000'000 / 75};
// After readiness: the rest of the start-up (user-setup list, folder monitor).
constexpr std::chrono::milliseconds SETTLE{1500};
// After the last change: the once-a-second save that writes it.
constexpr std::chrono::milliseconds LAST_SAVE{1500};
constexpr const char* SETTINGS_FOLDER = "/var//SETUPS/";
constexpr const char* CURRENT_FILE = ".current.stp";

std::unique_ptr<brokertest::BrokerProcess> broker;
std::string serviceProgram = SERVICE_PROGRAM;

// Counts the replacements of ".current.stp" (the rename that ends a save).
class SaveCounter {
public:
    SaveCounter() : fd(inotify_init1(IN_NONBLOCK | IN_CLOEXEC)) {
        inotify_add_watch(fd, SETTINGS_FOLDER, IN_MOVED_TO);
    }
    ~SaveCounter() { ::close(fd); }
    SaveCounter(const SaveCounter&) = delete;
    SaveCounter& operator=(const SaveCounter&) = delete;

    int saves() {
        alignas(inotify_event) char buffer[4096];
        ssize_t length;
        while ((length = ::read(fd, buffer, sizeof buffer)) > 0) {
            for (ssize_t at = 0; at < length;) {
                const auto* event = reinterpret_cast<const inotify_event*>(buffer + at);
                if (event->len > 0 && std::string(event->name) == CURRENT_FILE) {
                    ++count;
                }
                at += static_cast<ssize_t>(sizeof(inotify_event) + event->len);
            }
        }
        return count;
    }

private:
    int fd;
    int count = 0;
};

// True when the saved settings hold `value` for LastKnownFocusValue.
bool savedValueIs(int value) {
    std::ifstream file(std::string(SETTINGS_FOLDER) + CURRENT_FILE);
    std::stringstream text;
    text << file.rdbuf();
    return text.str().find("\"LastKnownFocusValue\": " + std::to_string(value) + ",") !=
           std::string::npos;
}

// The changes, posted as another process of the device posts them; the
// service's CPU seconds and the window's wall seconds, or nullopt with the
// reason in `error`.
struct Window {
    double cpu;
    double wall;
    int saves;
};

std::optional<Window> playChanges(pid_t service, bool quiet, std::string& error) {
    const uint32_t memory = Introspection::getMemIndex("MemPersistent");
    SharedMemory persistent(Introspection::getMemName(memory),
                            gen::getSharedMemory(memory).getSize());
    persistent.open();
    auto& record = *reinterpret_cast<gen::MemPersistentRecord*>(persistent.address());
    const uint32_t app = Introspection::getMemIndex("MemApp");
    SharedMemory appMemory(Introspection::getMemName(app), gen::getSharedMemory(app).getSize());
    appMemory.open();
    if (quiet) {
        reinterpret_cast<gen::MemAppRecord*>(appMemory.address())->AppSettingsManagerLogLevel =
            gen::Warn;
    }
    ServerConnection connection(gen::getEventPoll());
    std::this_thread::sleep_for(SETTLE);

    SaveCounter counter;
    const double cpuBefore = servicelaunch::cpuSecondsOf(service);
    const auto begin = std::chrono::steady_clock::now();
    for (int change = 1; change <= CHANGES; ++change) {
        record.LastKnownFocusValue = change;
        connection.postEvent(Notify{VarLastKnownFocusValueChanged, 0, 0});
        std::this_thread::sleep_until(begin + change * CHANGE_INTERVAL);
    }
    std::this_thread::sleep_for(LAST_SAVE);
    const double cpuAfter = servicelaunch::cpuSecondsOf(service);
    const std::chrono::duration<double> wall = std::chrono::steady_clock::now() - begin;
    if (cpuBefore < 0 || cpuAfter < 0) {
        error = "the service's CPU clock cannot be read";
        return std::nullopt;
    }
    if (!savedValueIs(CHANGES)) {
        error = "the saved settings do not hold the last change";
        return std::nullopt;
    }
    return Window{cpuAfter - cpuBefore, wall.count(), counter.saves()};
}

void BM_ChangeEvents(benchmark::State& state) {
    if (!broker || !broker->running()) {
        state.SkipWithError("the broker is not running");
        return;
    }
    for (auto _ : state) {
        pid_t service = -1;
        std::string error;
        std::optional<Window> window;
        if (servicelaunch::timeStart(serviceProgram.c_str(), service, error)) {
            window = playChanges(service, state.range(0) != 0, error);
        }
        servicelaunch::stop(service);
        if (!window) {
            state.SkipWithError(error.c_str());
            return;
        }
        state.SetIterationTime(window->cpu / CHANGES);
        state.counters["saves"] = window->saves;
        state.counters["wall_s"] = window->wall;
    }
}
BENCHMARK(BM_ChangeEvents)
    ->Arg(0)
    ->Arg(1)
    ->Iterations(1)
    ->UseManualTime()
    ->Unit(benchmark::kMicrosecond);

} // namespace

int main(int argc, char** argv) {
    broker = std::make_unique<brokertest::BrokerProcess>();
    servicelaunch::blockReadySignals();
    benchmark::Initialize(&argc, argv);
    if (!servicelaunch::readServiceOption(argc, argv, "change_benchmark", serviceProgram)) {
        return EXIT_FAILURE;
    }
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    broker.reset();
    return EXIT_SUCCESS;
}
