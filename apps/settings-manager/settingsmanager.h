// The settings service: owns the persistence of the device's settings.
//
// One object of this class lives for the whole process.  The entry point
// constructs it, runs init(), runs doWork() while start-up succeeded, and
// always ends with close().  All work happens on one thread inside the
// callbacks that the process's EventPoll dispatches: broker notifications
// reach handleEvent(), changes of the settings folder refresh the user-setup
// list.
//
// The work is done by the classes it holds, each beside its own choices:
// SettingsFolder (every path in the settings folder), ProductInfo (the unit's
// identity), SettingsStore (change tracking and writing documents),
// SettingsLoader (reading and applying documents, defaults, recovery) and
// UserSetups (the user-setup dialogue).  This class runs the lifecycle, the
// once-a-second save check and the connection to the broker, and dispatches
// the broker's notifications (eventhandling.cpp).
//
// It is the service's top object: the entry point hands it the event loop and
// the clocks; it runs gen::init and hands its classes the broker connection
// and the memories that it made, the settings folder and the clocks
// (collaborators.h).
//
// Choices made here:
// - The destructor also closes the folder monitor, so that the process's poll
//   never keeps the callback of a destroyed service.
// - Under a service manager (NOTIFY_SOCKET set) readiness is announced by its
//   READY=1 notification only, at the moment SIGUSR1 would go out: neither
//   SIGUSR1 nor "pkill -USR1 super", whose target would be the init process,
//   even when the notification could not be sent (that is logged at Error).
// - No exception leaves handleEvent or the folder monitor's callback.  The
//   request handlers report a request they cannot carry out as a reason; it
//   is logged at Error ("Could not handle <event>: <reason>") and the request
//   answered as refused: its flag is cleared, and for save, rename and
//   overwrite UserSetupFileCheckDone is raised.  An exception of a library
//   call is caught here and handled the same way.
// - Folder events of hidden names (the service's own files) do not refresh the
//   user-setup list, and the loop takes a save's own folder events right after
//   the save, so that they do not count as activity that delays the next save
//   check.
// - A start-up that cannot make or take over the settings folder (folder
//   missing and not creatable, one of another user that cannot be removed)
//   logs "Could not create the settings folder.", loads nothing and reports no
//   readiness; the user-setup list and the folder monitor are still tried as
//   after any start, and init returns false; main then ends with status 1,
//   writing nothing.
// - Nothing is written until the start-up load has run: ".current.stp" is
//   never replaced by the defaults the memories hold before it (close() and the
//   destructor then store nothing and report false).
// - The once-a-second rule is kept with the loop's wait time-out and the
//   steady clock (oncepersecond.h) rather than the poll's periodic SIGALRM
//   timer: the signal interrupts system calls made between waits (the bounded
//   semaphore wait of a reconnect among them) and one that fires between two
//   waits is only seen at the next one.  While nothing is dirty and the broker
//   is there, the loop waits without a time-out.
// - A broker that ends the connection (it stopped or was restarted) is logged
//   once at Error ("Lost the connection to the message broker"); the loop then
//   wakes once a second and makes one reconnect attempt (ServerConnection::
//   reconnect, which waits at most its bounded semaphore wait).  Once connected
//   again it subscribes as at start, serves the request flags that the user
//   interface set meanwhile (as handleEvent would have), refreshes the
//   user-setup list and marks the settings dirty, so that changes it could not
//   hear are saved.  Until then it saves only what was already dirty.
#pragma once

#include "collaborators.h"
#include "filefoldermonitor.h"
#include "oncepersecond.h"
#include "productinfo.h"
#include "settings-service/eventpoll.h"
#include "settings-service/notify.h"
#include "settings-service/serverconnection.h"
#include "settingsfolder.h"
#include "settingsloader.h"
#include "settingsstore.h"
#include "usersetups.h"

#include <array>
#include <cstdint>
#include <ctime>
#include <sstream>
#include <string>

class SettingsManager : public ServerConnection::EventHandler {
public:
    // Bytes of a user-setup name (UserSetupSave): 17 characters and the terminator.
    static constexpr std::size_t SETUP_NAME_SIZE = UserSetups::SETUP_NAME_SIZE;
    // The inotify mask of the settings folder's monitor: moved-from, moved-to,
    // create and delete.
    static constexpr unsigned int FOLDER_EVENTS = 0x40 | 0x80 | 0x100 | 0x200;

    // A service on `poll` that reads `clocks`.
    explicit SettingsManager(EventPoll& poll = gen::getEventPoll(),
                             const Clocks& clocks = Clocks::system());
    virtual ~SettingsManager();
    SettingsManager(const SettingsManager&) = delete;
    SettingsManager& operator=(const SettingsManager&) = delete;

    // Start-up; false (and no readiness reported) when the settings folder
    // could not be created or taken over.
    bool init();
    // The event loop; returns EventPoll::Terminate after SIGINT or SIGTERM.
    int doWork();
    // Writes ".current.stp" (once start-up has loaded the settings) and closes
    // the broker connection; the store's result.
    bool close();

    // Serves the user interface's requests; every other event is a change.
    void handleEvent(const Notify& notification) override;
    // The broker ended the connection: the loop tries to reconnect.
    void connectionLost() override;

    // SettingsLoader::load.
    bool loadSetting(const std::string& fileName, bool storeAfterLoad);
    // SettingsLoader::apply.
    bool parseJsonStringStreamAndSetValues(const std::stringstream& document);
    // SettingsLoader::printJsonError.
    void printJsonError(int position, const std::string& text);
    // SettingsLoader::captureDefaults.
    void getDefaultSettings();

    // SettingsStore::addUpdate.
    void addUpdate(EventId event);
    // SettingsStore::currentValues.
    std::stringstream getCurrentValues();
    // SettingsStore::store, its failure logged (SettingsStore::log); false
    // when the file could not be written.
    bool storeToMemory(const char* name);

    // UserSetups::updateList.
    void updateUserSettingList();
    // ProductInfo::publish.
    void writeProductInfo();

    // UserSetups::proposedName.
    static std::array<char, SETUP_NAME_SIZE> proposedSetupName(std::time_t when);

    const std::string& settingsFolder() const { return folder.path(); }
    bool isDirty() const { return store.isDirty(); }

private:
    // Creates the memories and the broker connection with this object as its
    // handler; the link to the process's connection.
    BrokerLink createAndInitMemories();
    void signalReadiness();
    void openFolderMonitor();
    void refreshUserSettingList();

    void dispatch(const Notify& notification);
    // Logs why the event could not be handled and answers a request as refused.
    void refuse(EventId event, const char* reason);
    void finishRefusedRequest(EventId event);

    // One attempt to reach the broker again, at most once a second.
    void reconnectBroker();
    // The requests whose flags may have been set while the broker was away.
    void servePendingRequests();

    EventPoll& poll;
    Clocks clocks;
    FileFolderMonitor folderMonitor;
    BrokerLink broker;
    ServiceMemories memories;
    SettingsFolder folder;
    ProductInfo productInfo;
    SettingsStore store;
    SettingsLoader loader;
    UserSetups userSetups;
    OncePerSecond saveCheck;
    OncePerSecond reconnectAttempt;
    // The start-up load has run: the memories hold the settings to keep.
    bool loaded = false;
    // The broker ended the connection and it has not been made again.
    bool brokerLost = false;
};
