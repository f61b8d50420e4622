// The settings service's entry point.
//
// Choices made here:
// - "--help" and "--version" print and exit 0 before anything else happens;
//   any other argument prints a usage error and exits 2.  Nothing of the
//   device is touched in these cases.
// - Only one service runs: before any memory is created the service takes an
//   exclusive advisory lock (flock) on
//   "/var/volatile/settings-manager/settings-manager.lock", in a folder only
//   the service's user may enter (instancelock.h); the lock file of earlier
//   releases, "/var/volatile/settings-manager.lock", plays no part any more,
//   so one that another user holds or made is no obstacle.
//   A second one finds it taken, says "already running" and exits 1 without
//   touching the running one's memories, files or parent.  A lock file that
//   cannot be opened or locked otherwise also ends the start with status 1.
// - An exception that reaches the entry point is logged at Error and ends the
//   process with status 1.  On the way out the service writes ".current.stp"
//   only when start-up had loaded the settings (see settingsmanager.h), so a
//   good file is never replaced by defaults.
// - A start-up that failed (the settings folder missing and not creatable, or
//   one of another user that cannot be removed) does not report readiness
//   and ends with status 1, so that the init system notices and restarts it.
#include "collaborators.h"
#include "commandline.h"
#include "instancelock.h"
#include "settings-service/eventpoll.h"
#include "settings-service/log.h"
#include "settingsmanager.h"

#include <cstdio>
#include <cstdlib>
#include <exception>
#include <string>

namespace {

constexpr const char* LOCK_FILE = "/var/volatile/settings-manager/settings-manager.lock";

[[noreturn]] void run() {
    try {
        SettingsManager manager(gen::getEventPoll(), Clocks::system());
        const bool started = manager.init();
        if (started) {
            manager.doWork();
        }
        manager.close();
        std::exit(started ? EXIT_SUCCESS : EXIT_FAILURE);
    } catch (const std::exception& error) {
        LOG(Error, "Ending after an unexpected error: %s", error.what());
    } catch (...) {
        LOG(Error, "Ending after an unexpected error");
    }
    std::exit(EXIT_FAILURE);
}

} // namespace

int main(int argc, char* argv[]) {
    EventPoll::handleSignals();
    const CommandLine::Action action = CommandLine::parse(argc, argv, stdout, stderr);
    if (action != CommandLine::Run) {
        return action == CommandLine::Done ? EXIT_SUCCESS : CommandLine::USAGE_ERROR;
    }
    InstanceLock lock(LOCK_FILE);
    if (const Result<void> taken = lock.take(); !taken) {
        std::fprintf(stderr, "settings-manager: %s\n", taken.error().text.c_str());
        return EXIT_FAILURE;
    }
    run();
}
