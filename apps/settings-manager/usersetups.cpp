// User setups: the list of setup files in MemUserSetups and the requests of
// the user-setup dialogue (load, save, new name, rename, overwrite, delete).
#include "settingsmanager.h"

#include "constants.h"
#include "flagvariable.h"
#include "folderpath.h"
#include "log.h"
#include "records.h"
#include "setters.h"

#include <cstdio>
#include <cstring>
#include <ctime>
#include <filesystem>
#include <stdexcept>

namespace {

constexpr const char* SETUP_NAME_FORMAT = "%y%m%d_%H%M";
constexpr const char* INDEX_OUT_OF_RANGE = "List index is out of range";

bool isEmpty(const std::array<char, SettingsManager::SETUP_NAME_SIZE>& name) {
    return name[0] == '\0';
}

// The name as text, read no further than its variable even when another
// process left it without a terminator.
std::string nameOf(const std::array<char, SettingsManager::SETUP_NAME_SIZE>& name) {
    return std::string(name.data(), strnlen(name.data(), name.size()));
}

} // namespace

void SettingsManager::updateUserSettingList() {
    auto& setups = gen::memUserSetups();
    int32_t count = 0;
    navigator.ls([&](const FileBrowserBase::EntryInfo& entry) {
        if (count >= USER_SETUP_SLOTS) {
            return;
        }
        auto& slot = setups.UserSetupList[count].UserSetupFileName;
        std::snprintf(slot.data(), slot.size(), "%.*s", static_cast<int>(slot.size() - 1),
                      entry.name);
        ++count;
    });
    postEvent(Notify{VarUserSetupListChanged, 0, 0});
    setVariable(setups.UserSetupListSize, Notify{VarUserSetupListSizeChanged, 0, 0}, count);
}

std::array<char, SettingsManager::SETUP_NAME_SIZE>
SettingsManager::proposedSetupName(std::time_t when) {
    char text[64] = {};
    std::strftime(text, sizeof text, SETUP_NAME_FORMAT, std::localtime(&when));
    std::array<char, SETUP_NAME_SIZE> name{};
    std::snprintf(name.data(), name.size(), "%.*s", static_cast<int>(name.size() - 1), text);
    return name;
}

void SettingsManager::loadUserSetup() {
    auto& setups = gen::memUserSetups();
    if (!setups.UserSetupAcceptLoadFileName) {
        return;
    }
    const int32_t index = setups.UserSetupSelectedFileIndex;
    if (index < 0 || index >= setups.UserSetupListSize) {
        LOG(Error, INDEX_OUT_OF_RANGE);
    } else {
        loadSetting(listedEntry(index), true);
    }
    setFlag(setups.UserSetupAcceptLoadFileName, VarUserSetupAcceptLoadFileNameChanged, false);
}

void SettingsManager::saveUserSetup() {
    auto& setups = gen::memUserSetups();
    if (!setups.UserSetupAcceptSaveFileName) {
        return;
    }
    if (!isEmpty(setups.UserSetupSave)) {
        const std::string name = nameOf(setups.UserSetupSave);
        if (isMissing(checkedSetupPath(name.c_str()))) {
            if (!storeToMemory(name.c_str())) {
                throw std::runtime_error("the user setup was not saved");
            }
            setVariable(setups.UserSetupSave, Notify{VarUserSetupSaveChanged, 0, 0}, "");
        } else {
            setFlag(gen::memDeviceState().FileAlreadyExists, VarFileAlreadyExistsChanged, true);
            renamePending = false;
        }
    }
    setFlag(setups.UserSetupFileCheckDone, VarUserSetupFileCheckDoneChanged, true);
    setFlag(setups.UserSetupAcceptSaveFileName, VarUserSetupAcceptSaveFileNameChanged, false);
}

void SettingsManager::proposeNewUserSetup() {
    auto& setups = gen::memUserSetups();
    if (!setups.UserSetupAddNew) {
        return;
    }
    setFlag(setups.UserSetupAddNew, VarUserSetupAddNewChanged, false);
    setups.UserSetupSave = proposedSetupName(std::time(nullptr));
    postEvent(Notify{VarUserSetupSaveChanged, 0, 0});
}

void SettingsManager::renameUserSetup() {
    auto& setups = gen::memUserSetups();
    const int32_t index = setups.UserSetupSelectedFileIndex;
    if (!setups.UserSetupRename) {
        return;
    }
    const std::string source = settingsPath + listedEntry(index);
    setFlag(setups.UserSetupRename, VarUserSetupRenameChanged, false);
    if (!isEmpty(setups.UserSetupSave)) {
        const std::string target = checkedSetupPath(nameOf(setups.UserSetupSave).c_str());
        if (isMissing(target)) {
            std::filesystem::rename(source, target);
            setVariable(setups.UserSetupSave, Notify{VarUserSetupSaveChanged, 0, 0}, "");
        } else {
            setFlag(gen::memDeviceState().FileAlreadyExists, VarFileAlreadyExistsChanged, true);
            renamePending = true;
        }
    }
    setFlag(setups.UserSetupFileCheckDone, VarUserSetupFileCheckDoneChanged, true);
}

void SettingsManager::overwriteUserSetup() {
    auto& setups = gen::memUserSetups();
    if (!setups.UserSetupOverwriteFile) {
        return;
    }
    setFlag(setups.UserSetupOverwriteFile, VarUserSetupOverwriteFileChanged, false);
    if (isEmpty(setups.UserSetupSave)) {
        return;
    }
    const std::string name = nameOf(setups.UserSetupSave);
    const std::string target = checkedSetupPath(name.c_str());
    if (renamePending) {
        std::filesystem::rename(settingsPath + listedEntry(setups.UserSetupSelectedFileIndex),
                                target);
    } else if (!storeToMemory(name.c_str())) {
        throw std::runtime_error("the user setup was not saved");
    }
    setVariable(setups.UserSetupSave, Notify{VarUserSetupSaveChanged, 0, 0}, "");
}

void SettingsManager::deleteUserSetup() {
    auto& setups = gen::memUserSetups();
    if (!setups.UserSetupDelete) {
        return;
    }
    const std::string path = settingsPath + listedEntry(setups.UserSetupSelectedFileIndex);
    const auto status = std::filesystem::status(path);
    if (std::filesystem::is_directory(status)) {
        LOG(Error, "Not deleting %s: it is a folder", path.c_str());
    } else if (std::filesystem::exists(status)) {
        std::filesystem::remove(path);
    }
    setFlag(setups.UserSetupDelete, VarUserSetupDeleteChanged, false);
}

std::string SettingsManager::listEntry(int32_t index) const {
    if (index < 0 || index >= USER_SETUP_SLOTS) {
        return {};
    }
    const auto& slot = gen::memUserSetups().UserSetupList[index].UserSetupFileName;
    return std::string(slot.data(), strnlen(slot.data(), slot.size()));
}

std::string SettingsManager::setupPath(const char* name) const {
    char path[PATH_BUFFER_SIZE];
    std::snprintf(path, sizeof path, "%s%s%s", settingsPath.c_str(), name,
                  Constants::SETUPS_EXTENSION);
    return path;
}

std::string SettingsManager::listedEntry(int32_t index) const {
    if (index < 0 || index >= gen::memUserSetups().UserSetupListSize) {
        throw std::runtime_error(INDEX_OUT_OF_RANGE);
    }
    const std::string entry = listEntry(index);
    if (!FolderPath::isPlainName(entry) ||
        !FolderPath::liesIn(settingsPath, settingsPath + entry)) {
        throw std::runtime_error("list entry \"" + entry +
                                 "\" is not a file of the settings folder");
    }
    return entry;
}

std::string SettingsManager::checkedSetupPath(const char* name) const {
    const std::string path = setupPath(name);
    if (!FolderPath::isPlainName(name) || !FolderPath::liesIn(settingsPath, path)) {
        throw std::runtime_error(std::string("the user-setup name \"") + name +
                                 "\" is not a plain file name");
    }
    return path;
}
