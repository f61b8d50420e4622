// The service's lifecycle: construction, start-up, the event loop with its
// once-a-second save check, and shutdown.
#include "settingsmanager.h"

#include "constants.h"
#include "eventpoll.h"
#include "introspection.h"
#include "log.h"
#include "memories.h"
#include "readiness.h"

#include <csignal>
#include <cstdlib>
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

} // namespace

SettingsManager::SettingsManager()
    : lastSaveCheck(), persistentMemoryIndex(0),
      folderMonitor(gen::getEventPoll(), [this](inotify_event const&) { updateUserSettingList(); }),
      navigator({}, {}), dirty(false), renamePending(false) {
    createAndInitMemories();
    settingsPath = Constants::LOCAL_FOLDER;
    settingsPath += Constants::SETUPS_FOLDER;
}

SettingsManager::~SettingsManager() {
    try {
        close();
        folderMonitor.close();
    } catch (...) {
        std::terminate();
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
        getDefaultSettings();
        loadSetting(currentFileName(), false);
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
// the debugger, so the supervisor is signalled by name instead.  Under a
// service manager that asked for a notification (NOTIFY_SOCKET), the
// notification alone tells it: the parent is then the init process, which
// must get no SIGUSR1.
void SettingsManager::signalReadiness() {
    if (Readiness::notifyServiceManager()) {
        return;
    }
    const std::filesystem::path parentExe =
        std::filesystem::read_symlink("/proc/" + std::to_string(::getppid()) + "/exe");
    if (parentExe.string().find("gdb") != std::string::npos) {
        static_cast<void>(std::system("pkill -USR1 super"));
    } else {
        ::kill(::getppid(), SIGUSR1);
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
            storeToMemory(Constants::CURRENT_USERSETTINGS_FILE);
            dirty = false;
        }
        result = poll.wait(-1, false);
    }
    return result;
}

bool SettingsManager::close() {
    const bool stored = storeToMemory(Constants::CURRENT_USERSETTINGS_FILE);
    gen::closeServerConnection();
    return stored;
}
