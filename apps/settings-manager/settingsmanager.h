// The settings service: owns the persistence of the device's settings.
//
// One object of this class lives for the whole process.  The entry point
// constructs it, runs init(), runs doWork() while start-up succeeded, and
// always ends with close().  All work happens on one thread inside the
// callbacks that the process's EventPoll dispatches: broker notifications
// reach handleEvent(), changes of the settings folder reach
// updateUserSettingList().
//
// Settings documents (".current.stp" and the user setups "<name>.stp" in the
// settings folder) hold one line per variable of MemPersistent:
//   {
//   "<name>": <value>,
//   ...
//   "<name>": <value>
//   }
// with no line break after the closing brace.  Ints, floats, bools and
// structs are written bare, every other type in double quotes; arrays of
// types other than string and buffer as "[" elements joined by "," "]".
//
// Choices made here:
// - The user-setup list in MemUserSetups has 20 slots: updateUserSettingList
//   fills at most 20 entries (in listing order) and publishes at most 20 as
//   the list size; further files of the folder are not listed.
// - A request that names a list entry outside the 20 slots (delete does not
//   range-check the index, rename accepts a negative one) reads that entry as
//   empty text instead of reading outside the list, so the path is the
//   settings folder itself.
// - When the hardware record cannot be opened at all (HwInfo's constructor or
//   initialize() throws, e.g. an eMMC device too short for the record), board,
//   serial and revision all count as unreadable and become "Unknown" with their
//   messages; the exception was logged where it was raised.
// - The destructor also closes the folder monitor, so that the process's poll
//   never keeps the callback of a destroyed service.
// - Under a service manager (NOTIFY_SOCKET set) readiness is announced by its
//   READY=1 notification only, at the moment SIGUSR1 would go out: neither
//   SIGUSR1 nor "pkill -USR1 super", whose target would be the init process,
//   even when the notification could not be sent (that is logged at Error).
//
// Choices that keep the service alive and the user's settings safe:
// - No exception leaves handleEvent or the folder monitor's callback: a
//   request that cannot be carried out is logged at Error with its reason
//   ("Could not handle <event>: <reason>") and answered as refused: its
//   request flag is cleared, and for save, rename and overwrite
//   UserSetupFileCheckDone is raised.  Rename and delete refuse an index
//   outside the list (negative or not below UserSetupListSize) with "List
//   index is out of range" instead of acting on a stale or empty entry.
// - Names from the user interface must be plain names (folderpath.h) and every
//   path built from a name or a list entry must lie in the settings folder;
//   anything else is refused before a file is touched.  A listed folder is not
//   deleted, and that is logged.
// - Settings files are written all-or-nothing (atomicfile.h).  A failed write
//   is logged at Error ("Could not save <file>: <reason>"; a failure of
//   ".current.stp" that repeats the previous one is not logged again), leaves
//   the previous file, and keeps the settings dirty, so the loop retries at
//   every once-a-second check.  A user setup that could not be written is
//   refused, so its name stays for the user.
// - Before ".current.stp" is replaced, the file being replaced becomes the
//   hidden backup ".current.stp.backup" (a hard link), if it is a complete
//   document (documenttext.h).  At start a ".current.stp" that is not complete
//   (or cannot be read, or is not a file) is logged, moved to
//   ".current.stp.damaged" (replacing an earlier one), and the backup is loaded
//   instead; only when the backup is not complete either do the defaults apply.
//   ".current.stp" is then written again at once.  With neither file there,
//   start-up writes the defaults as before.  Leftover temporary files are
//   removed at start.
// - Folder events of hidden names (the service's own files) do not refresh the
//   user-setup list, and the loop takes a save's own folder events right after
//   the save, so that they do not count as activity that delays the next save
//   check.
// - Nothing is written until the start-up load has run: ".current.stp" is
//   never replaced by the defaults the memories hold before it (close() and the
//   destructor then store nothing and report false).
// - A settings file that begins with a UTF-8 byte-order mark is read without
//   it.
// - A parse error's excerpt never reaches before the text: blanks stand in for
//   the missing characters, so the caret line still points at the error.
// - String values are written with the escapes of documenttext.h and read back
//   through them (struct string members too, see printers.h).
// - A struct-array field without "value" is a setter error of that field
//   ("<field>: no \"value\""), reported like the others.
// - An int value is range-checked as the number the setter stores (the setter
//   detects the base, the range check reads decimal): "08" is judged as 0 and
//   "0x7fffffff" as 2147483647, so a document never stores a value outside
//   its range.
#pragma once

#include "filebrowsernavigator.h"
#include "filefoldermonitor.h"
#include "json.h"
#include "notify.h"
#include "serverconnection.h"

#include <array>
#include <chrono>
#include <cstdint>
#include <ctime>
#include <optional>
#include <sstream>
#include <string>
#include <vector>

class SettingsManager : public ServerConnection::EventHandler {
public:
    // Bytes of a user-setup name (UserSetupSave): 17 characters and the terminator.
    static constexpr std::size_t SETUP_NAME_SIZE = 18;
    // The inotify mask of the settings folder's monitor: moved-from, moved-to,
    // create and delete.
    static constexpr unsigned int FOLDER_EVENTS = 0x40 | 0x80 | 0x100 | 0x200;
    // Slots of the user-setup list in MemUserSetups.
    static constexpr int USER_SETUP_SLOTS = 20;
    // Every path of a user-setup request is formatted into a buffer of this size.
    static constexpr std::size_t PATH_BUFFER_SIZE = 128;

    SettingsManager();
    virtual ~SettingsManager();
    SettingsManager(const SettingsManager&) = delete;
    SettingsManager& operator=(const SettingsManager&) = delete;

    // Start-up; false when the settings folder could not be created.
    bool init();
    // The event loop; returns EventPoll::Terminate after SIGINT or SIGTERM.
    int doWork();
    // Writes ".current.stp" (once start-up has loaded the settings) and closes
    // the broker connection; the store's result.
    bool close();

    // Serves the user interface's requests; every other event is a change.
    void handleEvent(const Notify& notification) override;

    // Loads settings folder + fileName into MemPersistent; with storeAfterLoad
    // ".current.stp" is rewritten at once.  False when the file cannot be read
    // or a value could not be stored.
    bool loadSetting(const std::string& fileName, bool storeAfterLoad);
    // Applies a settings document to MemPersistent; true when every matched
    // value could be stored (values out of range are skipped, not failures).
    bool parseJsonStringStreamAndSetValues(const std::stringstream& document);
    // The same for a document already parsed.
    bool applyDocument(const Json& reader);
    // Logs a parse error with 41 characters of text around the position.
    void printJsonError(int position, const std::string& text);
    // Captures the defaults document; writes ".current.stp" when it is missing.
    void getDefaultSettings();

    // Records that the variable of `event` changed: logs it and marks the
    // settings dirty.
    void addUpdate(EventId event);
    // The settings document of the live values of MemPersistent.
    std::stringstream getCurrentValues();
    // Writes settings folder + name + ".stp" all-or-nothing; false (and
    // logged) when it could not be written.
    bool storeToMemory(const char* name);

    // Refills the user-setup list in MemUserSetups from the settings folder.
    void updateUserSettingList();
    // Copies the board name and software version into MemPersistent.
    void writeProductInfo();

    // The name proposed for a new user setup at `when`, in local time.
    static std::array<char, SETUP_NAME_SIZE> proposedSetupName(std::time_t when);

    const std::string& settingsFolder() const { return settingsPath; }
    bool isDirty() const { return dirty; }

private:
    void createAndInitMemories();
    void readHardwareIdentity();
    void readSoftwareIdentity();
    void signalReadiness();
    void openFolderMonitor();
    void refreshUserSettingList();
    void removeStaleTemporaries();

    void loadCurrentSettings();
    bool loadsWhole(const std::string& fileName);
    void keepDamagedFile();
    void keepBackup();
    // Writes ".current.stp"; when that fails the settings stay dirty.
    bool saveCurrentSettings();
    // The text of a settings file without a leading byte-order mark; nothing
    // when it is not a regular file in the settings folder or cannot be read.
    std::optional<std::string> readSettingsText(const std::string& fileName) const;

    bool applyValue(const std::string& key, const std::string& value,
                    const std::vector<Json::Item>& document);
    std::string setStructArray(uint32_t variable, const std::string& value);
    void factoryReset();

    void dispatch(const Notify& notification);
    // Logs why the event could not be handled and answers a request as refused.
    void refuse(EventId event, const char* reason);
    void finishRefusedRequest(EventId event);

    void loadUserSetup();
    void saveUserSetup();
    void proposeNewUserSetup();
    void renameUserSetup();
    void overwriteUserSetup();
    void deleteUserSetup();
    std::string listEntry(int32_t index) const;
    std::string setupPath(const char* name) const;
    // List entry `index`; throws when the index is outside the list or the
    // entry is no plain name of a file in the settings folder.
    std::string listedEntry(int32_t index) const;
    // The path of the user setup `name`; throws when the name is no plain name.
    std::string checkedSetupPath(const char* name) const;
    // ".current.stp", the file name of the current settings.
    static std::string currentFileName();
    // ".current.stp.backup", the current settings file that the last save replaced.
    static std::string backupFileName();
    // ".current.stp.damaged", a current settings file that could not be loaded.
    static std::string damagedFileName();
    // True when nothing exists at `path` (its status type is not_found or none).
    static bool isMissing(const std::string& path);

    std::chrono::steady_clock::time_point lastSaveCheck;
    uint32_t persistentMemoryIndex;
    std::stringstream defaults;
    std::string productName;
    std::string productVersion;
    std::string settingsPath;
    FileFolderMonitor folderMonitor;
    FileBrowserNavigator navigator;
    bool dirty;
    bool renamePending;
    // The start-up load has run: the memories hold the settings to keep.
    bool loaded;
    // The last failure of writing ".current.stp", empty after a success.
    std::string currentSaveError;
};
