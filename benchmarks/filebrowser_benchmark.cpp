// The file services' hot paths: listing the setup folder (what the service
// does on every change of the folder) and one folder-monitor event, from the
// creation of a file to the owner's callback, through the process's event loop.
#include "filebrowsernavigator.h"
#include "filefoldermonitor.h"
#include "filetestsupport.h"
#include "settings-service/eventpoll.h"
#include "settings-service/log.h"

#include <benchmark/benchmark.h>

#include <fcntl.h>
#include <string>
#include <unistd.h>

namespace fs = std::filesystem;

namespace {

// The service's default level: the loop's debug lines are filtered out, as
// they are on the device.
gen::LogLevel benchmarkLevel = gen::LogAll;

void lsSetupFolder(benchmark::State& state) {
    gComponentLogLevel = &benchmarkLevel;
    filetest::ScratchFolder scratch;
    auto const count = state.range(0);
    for (int64_t i = 0; i < count; ++i) {
        filetest::writeFile(scratch.path() / ("Setup " + std::to_string(i) + ".stp"), "");
    }
    FileBrowserNavigator navigator({}, {});
    navigator.setRootPath(scratch.path().string());
    navigator.setExtensionFilter(".stp");
    for (auto _ : state) {
        int64_t listed = 0;
        navigator.ls([&listed](FileBrowserBase::EntryInfo const&) { ++listed; });
        if (listed != count) {
            state.SkipWithError("the listing lost entries");
            break;
        }
    }
    state.SetItemsProcessed(state.iterations() * count);
}
BENCHMARK(lsSetupFolder)->Arg(20)->Arg(1000)->Arg(10000)->Unit(benchmark::kMicrosecond);

void monitorEventFromCreationToCallback(benchmark::State& state) {
    gComponentLogLevel = &benchmarkLevel;
    filetest::ScratchFolder scratch;
    EventPoll& poll = gen::getEventPoll();
    int64_t delivered = 0;
    FileFolderMonitor monitor(poll, [&delivered](inotify_event const&) { ++delivered; });
    // Creation only, so that removing the file between rounds adds no event.
    monitor.open(scratch.path().c_str(), IN_CREATE);
    fs::path const file = scratch.path() / "new.stp";
    for (auto _ : state) {
        int const fd = ::open(file.c_str(), O_CREAT | O_WRONLY | O_CLOEXEC, 0644);
        ::close(fd);
        int64_t const before = delivered;
        while (delivered == before && poll.wait(1000) != EventPoll::Timeout) {
        }
        if (delivered == before) {
            state.SkipWithError("no event within a second");
            break;
        }
        state.PauseTiming();
        ::unlink(file.c_str());
        state.ResumeTiming();
    }
    monitor.close();
    state.counters["callbacks_per_round"] =
        static_cast<double>(delivered) / static_cast<double>(state.iterations());
}
BENCHMARK(monitorEventFromCreationToCallback)->Unit(benchmark::kMicrosecond);

} // namespace

BENCHMARK_MAIN();
