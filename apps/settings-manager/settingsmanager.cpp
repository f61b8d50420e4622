// The service's lifecycle: construction, start-up, the event loop with its
// once-a-second save check and its reconnection to the broker, and shutdown.
#include "settingsmanager.h"

#include "constants.h"
#include "readiness.h"
#include "settings-service/eventpoll.h"
#include "settings-service/introspection.h"
#include "settings-service/log.h"
#include "settings-service/memories.h"
#include "settings-service/records.h"
#include "signalbyname.h"

#include <csignal>
#include <exception>
#include <filesystem>
#include <string>
#include <unistd.h>

namespace {

// The supervisor's process name, signalled under a debugger.
constexpr const char* SUPERVISOR_NAME = "super";

} // namespace

SettingsManager::SettingsManager(EventPoll& poll, const Clocks& clocks)
    : poll(poll), clocks(clocks), folderMonitor(poll,
                                                [this](inotify_event const& event) {
                                                    // Hidden names are never listed: the service's
                                                    // own files change nothing in the list.
                                                    if (event.len == 0 || event.name[0] != '.') {
                                                        refreshUserSettingList();
                                                    }
                                                }),
      broker(createAndInitMemories()), memories(ServiceMemories::ofProcess()),
      productInfo(memories), store(folder, productInfo, memories),
      loader(folder, store, memories, broker),
      userSetups(folder, store, loader, memories, broker, clocks.wall), saveCheck(clocks.steady),
      reconnectAttempt(clocks.steady) {}

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

BrokerLink SettingsManager::createAndInitMemories() {
    gen::init();
    gen::getServerConnection()->setEventHandler(this);
    return BrokerLink::ofProcess();
}

bool SettingsManager::init() {
    productInfo.readHardwareIdentity();
    productInfo.readSoftwareIdentity();
    const bool result = folder.prepare().ok();
    if (!result) {
        LOG(Error, "Could not create the settings folder.");
    } else {
        folder.removeTemporaries();
        getDefaultSettings();
        loader.loadCurrent();
        store.readCurrentFile();
        loaded = true;
        signalReadiness();
    }
    try {
        userSetups.openFolder();
    } catch (const std::filesystem::filesystem_error& error) {
        LOG(LogLight, "Could not set settings path: %s", error.what());
    }
    updateUserSettingList();
    openFolderMonitor();
    saveCheck.restart();
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

void SettingsManager::refreshUserSettingList() {
    try {
        updateUserSettingList();
    } catch (const std::exception& error) {
        LOG(Error, "Could not refresh the user-setup list: %s", error.what());
    }
}

void SettingsManager::openFolderMonitor() {
    try {
        folderMonitor.open(folder.path().c_str(), FOLDER_EVENTS);
    } catch (...) {
        LOG(Error, "Monitoring the user-setup folder is not possible");
    }
}

int SettingsManager::doWork() {
    int result = poll.wait(-1, false);
    while (result != EventPoll::Terminate) {
        if (brokerLost) {
            reconnectBroker();
        }
        if (!saveCheck.due()) {
            result = poll.wait(OncePerSecond::WAIT_MS, false);
            continue;
        }
        if (store.isDirty()) {
            store.log(store.saveIfDirty());
            // The save's own folder events are taken now, so that they do not
            // count as activity that starts another one-second wait.
            result = poll.wait(0, false);
            if (result == EventPoll::Terminate) {
                break;
            }
        }
        // A save that failed, a change taken with the save's folder events, or
        // a broker that is away: look again in a second.
        const bool waiting = store.isDirty() || brokerLost;
        result = poll.wait(waiting ? OncePerSecond::WAIT_MS : -1, false);
    }
    return result;
}

void SettingsManager::connectionLost() {
    if (!brokerLost) {
        LOG(Error, "Lost the connection to the message broker");
    }
    brokerLost = true;
    reconnectAttempt.restart();
}

void SettingsManager::reconnectBroker() {
    ServerConnection* connection = gen::getServerConnection();
    if (connection == nullptr || !reconnectAttempt.due() || !connection->reconnect()) {
        return;
    }
    brokerLost = false;
    try {
        broker.subscribe();
    } catch (const std::exception& error) {
        LOG(Error, "Could not subscribe again: %s", error.what());
        return;
    }
    servePendingRequests();
    refreshUserSettingList();
    store.markDirty();
}

bool SettingsManager::close() {
    const bool stored = loaded && storeToMemory(Constants::CURRENT_USERSETTINGS_FILE);
    gen::closeServerConnection();
    return stored;
}

bool SettingsManager::loadSetting(const std::string& fileName, bool storeAfterLoad) {
    return loader.load(fileName, storeAfterLoad);
}

bool SettingsManager::parseJsonStringStreamAndSetValues(const std::stringstream& document) {
    return loader.apply(document.str());
}

void SettingsManager::printJsonError(int position, const std::string& text) {
    loader.printJsonError(position, text);
}

void SettingsManager::getDefaultSettings() {
    loader.captureDefaults();
}

void SettingsManager::addUpdate(EventId event) {
    store.addUpdate(event);
}

std::stringstream SettingsManager::getCurrentValues() {
    return store.currentValues();
}

bool SettingsManager::storeToMemory(const char* name) {
    const SettingsStore::SaveOutcome outcome = store.store(name);
    store.log(outcome);
    return outcome.ok();
}

void SettingsManager::updateUserSettingList() {
    userSetups.updateList();
}

void SettingsManager::writeProductInfo() {
    productInfo.publish();
}

std::array<char, SettingsManager::SETUP_NAME_SIZE>
SettingsManager::proposedSetupName(std::time_t when) {
    return UserSetups::proposedName(when);
}
