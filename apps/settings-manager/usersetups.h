// The user-setup dialogue: the list of setup files in MemUserSetups and the
// requests of the user interface (load, save, propose a new name, rename,
// overwrite, delete), with the rename-pending state that an overwrite
// confirmation continues, and the navigator that lists the settings folder.
//
// A request handler reports a request it cannot carry out as a value, the
// reason; the caller logs it and answers the request as refused
// (eventhandling.cpp).  Failures of the file system are turned into such
// reasons here.
//
// Choices made here:
// - The list in MemUserSetups has 20 slots: updateList fills at most 20
//   entries (in listing order) and publishes at most 20 as the list size;
//   further files of the folder are not listed.
// - A list index outside the 20 slots reads as an empty name.  Rename and
//   delete refuse an index outside the list (negative or not below
//   UserSetupListSize) with "List index is out of range" instead of acting on
//   a stale or empty entry.
// - Names from the user interface must be plain names and every path built
//   from a name or a list entry must lie in the settings folder
//   (settingsfolder.h); anything else is refused before a file is touched.
//   A listed folder is not deleted, and that is logged.
// - A user setup that could not be written is refused, so its name stays for
//   the user.
#pragma once

#include "collaborators.h"
#include "filebrowsernavigator.h"
#include "result.h"
#include "settings-service/serverconnection.h"

#include <array>
#include <cstddef>
#include <cstdint>
#include <ctime>
#include <functional>
#include <optional>
#include <string>

class SettingsFolder;
class SettingsLoader;
class SettingsStore;

class UserSetups {
public:
    // Bytes of a user-setup name (UserSetupSave): 17 characters and the terminator.
    static constexpr std::size_t SETUP_NAME_SIZE = 18;
    // Slots of the user-setup list in MemUserSetups.
    static constexpr int SLOTS = 20;

    // Serves the dialogue in `memories`' MemUserSetups, posting on `broker`;
    // a new name is proposed from the time that `wallClock` gives.
    UserSetups(const SettingsFolder& folder, SettingsStore& store, SettingsLoader& loader,
               const ServiceMemories& memories, const BrokerLink& broker,
               std::function<std::time_t()> wallClock);

    // Roots the navigator at the settings folder; throws a filesystem error
    // when the folder cannot be resolved.
    void openFolder();
    // Refills the user-setup list in MemUserSetups from the settings folder.
    void updateList();
    // Removes every entry of the settings folder.
    void removeAll();

    // The request handlers: nothing when the request was carried out or
    // ignored, otherwise why it was refused.
    Result<void> load();
    Result<void> save();
    Result<void> proposeNew();
    Result<void> rename();
    Result<void> overwrite();
    Result<void> remove();

    // The name proposed for a new user setup at `when`, in local time.
    static std::array<char, SETUP_NAME_SIZE> proposedName(std::time_t when);

private:
    // Writes the user setup named `name` at `target`; the reason when it failed.
    using Writer = std::function<Result<void>(const std::string& name, const std::string& target)>;

    // The check of save and rename: when nothing exists at the setup named by
    // UserSetupSave, `write` makes it and the name is cleared; otherwise
    // FileAlreadyExists is raised and the overwrite to confirm is remembered as
    // a rename or a save.  UserSetupFileCheckDone is raised in both cases.
    Result<void> writeUnlessTaken(bool isRename, const Writer& write);
    // Stores the current settings as the user setup `name`.
    Result<void> saveAs(const std::string& name);
    Result<void> move(const std::string& source, const std::string& target);
    // List entry `index` as text; empty outside the slots.
    std::string listEntry(int32_t index) const;
    // The path of list entry `index`; the reason when the index is outside the
    // list or the entry is no plain name of a file in the folder.
    Result<std::string> listedPath(int32_t index) const;
    // The path of the user setup `name`; the reason when the name is no plain
    // name.
    Result<std::string> checkedSetupPath(const std::string& name) const;

    const SettingsFolder& folder;
    SettingsStore& store;
    SettingsLoader& loader;
    ServiceMemories memories;
    BrokerLink broker;
    std::function<std::time_t()> wallClock;
    // The last save or rename met an existing target and was a rename.
    bool renamePending = false;
    FileBrowserNavigator navigator;
};
