// The service's lifecycle: construction, start-up, the event loop with its
// once-a-second save check, and shutdown.
#include "settingsmanager.h"

#include "atomicfile.h"
#include "constants.h"
#include "eventpoll.h"
#include "introspection.h"
#include "log.h"
#include "memories.h"
#include "readiness.h"
#include "signalbyname.h"

#include <csignal>
#include <exception>
#include <filesystem>
#include <string>
#include <sys/stat.h>
#include <unistd.h>

namespace {

// Octal 0766: deliberately group- and other-writable without execute bits.
constexpr mode_t SETTINGS_FOLDER_MODE = 0766;
constexpr int SAVE_CHECK_WAIT_MS = 1000;
constexpr std::chrono::nanoseconds SAVE_CHECK_PERIOD{999'999'999};
// The supervisor's process name, signalled under a debugger.
constexpr const char* SUPERVISOR_NAME = "super";

} // namespace

SettingsManager::SettingsManager()
    : lastSaveCheck(), persistentMemoryIndex(0),
      folderMonitor(gen::getEventPoll(),
                    [this](inotify_event const& event) {
                        // Hidden names are never listed: the service's own
                        // files change nothing in the list.
                        if (event.len == 0 || event.name[0] != '.') {
                            refreshUserSettingList();
                        }
                    }),
      navigator({}, {}), dirty(false), renamePending(false), loaded(false) {
    createAndInitMemories();
    settingsPath = Constants::LOCAL_FOLDER;
    settingsPath += Constants::SETUPS_FOLDER;
}

SettingsManager::~SettingsManager() {
    try {
        close();
        folderMonitor.close();
    } catch (const std::exception& error) {
        LOG(Error, "Could not shut down cleanly: %s", error.what());
    } catch (...) {
        LOG(Error, "Could not shut down cleanly");
    }
}

void SettingsManager::createAndInitMemories() {
    gen::init();
    persistentMemoryIndex = Introspection::getMemIndex("MemPersistent");
    gen::getServerConnection()->setEventHandler(this);
}

bool SettingsManager::init() {
    bool result = false;
    readHardwareIdentity();
    readSoftwareIdentity();
    struct stat status {};
    if (::stat(settingsPath.c_str(), &status) != 0 &&
        ::mkdir(settingsPath.c_str(), SETTINGS_FOLDER_MODE) != 0) {
        LOG(Error, "Could not create the settings folder.");
    } else {
        removeStaleTemporaries();
        getDefaultSettings();
        loadCurrentSettings();
        loaded = true;
        result = true;
    }
    signalReadiness();
    try {
        navigator.setRootPath(settingsPath);
    } catch (const std::filesystem::filesystem_error& error) {
        LOG(LogLight, "Could not set settings path: %s", error.what());
    }
    updateUserSettingList();
    openFolderMonitor();
    lastSaveCheck = std::chrono::steady_clock::now();
    return result;
}

// Tells the supervisor that start-up is done.  Under a debugger the parent is
// the debugger, so every process whose name contains "super" is signalled
// instead, as "pkill -USR1 super" does, without a shell.  When the
// parent's program cannot be found out, the parent is signalled.  Under a
// service manager that asked for a notification (NOTIFY_SOCKET), the
// notification alone tells it: the parent is then the init process, which
// must get no SIGUSR1.
void SettingsManager::signalReadiness() {
    if (Readiness::notifyServiceManager()) {
        return;
    }
    std::error_code error;
    const std::filesystem::path parentExe =
        std::filesystem::read_symlink("/proc/" + std::to_string(::getppid()) + "/exe", error);
    if (error) {
        LOG(Warn, "Could not read the parent's program: %s", error.message().c_str());
    }
    if (parentExe.string().find("gdb") != std::string::npos) {
        Readiness::signalProcessesNamed(SUPERVISOR_NAME, SIGUSR1);
    } else {
        ::kill(::getppid(), SIGUSR1);
    }
}

// Temporary files of writes that were cut off (see atomicfile.h).
void SettingsManager::removeStaleTemporaries() {
    std::error_code error;
    for (auto entry = std::filesystem::directory_iterator(settingsPath, error);
         !error && entry != std::filesystem::directory_iterator(); entry.increment(error)) {
        if (AtomicFile::isTemporaryName(entry->path().filename().string())) {
            std::error_code ignored;
            std::filesystem::remove(entry->path(), ignored);
        }
    }
}

void SettingsManager::refreshUserSettingList() {
    try {
        updateUserSettingList();
    } catch (const std::exception& error) {
        LOG(Error, "Could not refresh the user-setup list: %s", error.what());
    }
}

void SettingsManager::openFolderMonitor() {
    try {
        folderMonitor.open(settingsPath.c_str(), FOLDER_EVENTS);
    } catch (...) {
        LOG(Error, "Monitoring the user-setup folder is not possible");
    }
}

int SettingsManager::doWork() {
    EventPoll& poll = gen::getEventPoll();
    int result = poll.wait(-1, false);
    while (result != EventPoll::Terminate) {
        const auto now = std::chrono::steady_clock::now();
        if (now - lastSaveCheck <= SAVE_CHECK_PERIOD) {
            result = poll.wait(SAVE_CHECK_WAIT_MS, false);
            continue;
        }
        lastSaveCheck = now;
        if (dirty) {
            dirty = false;
            saveCurrentSettings();
            // The save's own folder events are taken now, so that they do not
            // count as activity that starts another one-second wait.
            result = poll.wait(0, false);
            if (result == EventPoll::Terminate) {
                break;
            }
        }
        // A save that failed, or a change taken with the save's folder events,
        // left the settings dirty: check again in a second.
        result = poll.wait(dirty ? SAVE_CHECK_WAIT_MS : -1, false);
    }
    return result;
}

bool SettingsManager::close() {
    const bool stored = loaded && storeToMemory(Constants::CURRENT_USERSETTINGS_FILE);
    gen::closeServerConnection();
    return stored;
}
