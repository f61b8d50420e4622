#include "usersetups.h"

#include "flagvariable.h"
#include "settings-service/log.h"
#include "settings-service/records.h"
#include "settings-service/setters.h"
#include "settingsfolder.h"
#include "settingsloader.h"
#include "settingsstore.h"

#include <cstdio>
#include <cstring>
#include <exception>
#include <filesystem>
#include <functional>
#include <utility>

namespace {

constexpr const char* SETUP_NAME_FORMAT = "%y%m%d_%H%M";
constexpr const char* INDEX_OUT_OF_RANGE = "List index is out of range";
constexpr const char* NOT_SAVED = "the user setup was not saved";

bool isEmpty(const std::array<char, UserSetups::SETUP_NAME_SIZE>& name) {
    return name[0] == '\0';
}

// The name as text, read no further than its variable even when another
// process left it without a terminator.
std::string nameOf(const std::array<char, UserSetups::SETUP_NAME_SIZE>& name) {
    return std::string(name.data(), strnlen(name.data(), name.size()));
}

// Runs a file-system operation; its error text when it throws.
Result<void> attempt(const std::function<void()>& operation) {
    try {
        operation();
    } catch (const std::exception& error) {
        return failure(error.what());
    }
    return {};
}

} // namespace

UserSetups::UserSetups(const SettingsFolder& folder, SettingsStore& store, SettingsLoader& loader,
                       const ServiceMemories& memories, const BrokerLink& broker,
                       std::function<std::time_t()> wallClock)
    : folder(folder), store(store), loader(loader), memories(memories), broker(broker),
      wallClock(std::move(wallClock)), navigator({}, {}) {}

void UserSetups::openFolder() {
    navigator.setRootPath(folder.path());
}

void UserSetups::updateList() {
    auto& setups = memories.userSetups;
    int32_t count = 0;
    navigator.ls([&](const FileBrowserBase::EntryInfo& entry) {
        if (count >= SLOTS) {
            return;
        }
        auto& slot = setups.UserSetupList[count].UserSetupFileName;
        std::snprintf(slot.data(), slot.size(), "%.*s", static_cast<int>(slot.size() - 1),
                      entry.name);
        ++count;
    });
    broker.post(Notify{VarUserSetupListChanged, 0, 0});
    setVariable(setups.UserSetupListSize, Notify{VarUserSetupListSizeChanged, 0, 0}, count);
}

void UserSetups::removeAll() {
    navigator.removeAll();
}

std::array<char, UserSetups::SETUP_NAME_SIZE> UserSetups::proposedName(std::time_t when) {
    char text[64] = {};
    std::strftime(text, sizeof text, SETUP_NAME_FORMAT, std::localtime(&when));
    std::array<char, SETUP_NAME_SIZE> name{};
    std::snprintf(name.data(), name.size(), "%.*s", static_cast<int>(name.size() - 1), text);
    return name;
}

Result<void> UserSetups::load() {
    auto& setups = memories.userSetups;
    if (!setups.UserSetupAcceptLoadFileName) {
        return {};
    }
    const int32_t index = setups.UserSetupSelectedFileIndex;
    if (index < 0 || index >= setups.UserSetupListSize) {
        LOG(Error, INDEX_OUT_OF_RANGE);
    } else {
        if (const Result<std::string> path = listedPath(index); !path) {
            return path.error();
        }
        loader.load(listEntry(index), true);
    }
    setFlag(broker, setups.UserSetupAcceptLoadFileName, VarUserSetupAcceptLoadFileNameChanged,
            false);
    return {};
}

Result<void> UserSetups::save() {
    auto& setups = memories.userSetups;
    if (!setups.UserSetupAcceptSaveFileName) {
        return {};
    }
    if (Result<void> done = writeUnlessTaken(
            false, [this](const std::string& name, const std::string&) { return saveAs(name); });
        !done) {
        return done;
    }
    setFlag(broker, setups.UserSetupAcceptSaveFileName, VarUserSetupAcceptSaveFileNameChanged,
            false);
    return {};
}

Result<void> UserSetups::proposeNew() {
    auto& setups = memories.userSetups;
    if (!setups.UserSetupAddNew) {
        return {};
    }
    setFlag(broker, setups.UserSetupAddNew, VarUserSetupAddNewChanged, false);
    setups.UserSetupSave = proposedName(wallClock());
    broker.post(Notify{VarUserSetupSaveChanged, 0, 0});
    return {};
}

Result<void> UserSetups::rename() {
    auto& setups = memories.userSetups;
    if (!setups.UserSetupRename) {
        return {};
    }
    const Result<std::string> source = listedPath(setups.UserSetupSelectedFileIndex);
    if (!source) {
        return source.error();
    }
    setFlag(broker, setups.UserSetupRename, VarUserSetupRenameChanged, false);
    return writeUnlessTaken(
        true, [&](const std::string&, const std::string& target) { return move(*source, target); });
}

Result<void> UserSetups::overwrite() {
    auto& setups = memories.userSetups;
    if (!setups.UserSetupOverwriteFile) {
        return {};
    }
    setFlag(broker, setups.UserSetupOverwriteFile, VarUserSetupOverwriteFileChanged, false);
    if (isEmpty(setups.UserSetupSave)) {
        return {};
    }
    const std::string name = nameOf(setups.UserSetupSave);
    const Result<std::string> target = checkedSetupPath(name);
    if (!target) {
        return target.error();
    }
    std::string source;
    if (renamePending) {
        const Result<std::string> listed = listedPath(setups.UserSetupSelectedFileIndex);
        if (!listed) {
            return listed.error();
        }
        source = *listed;
    }
    if (Result<void> done = renamePending ? move(source, *target) : saveAs(name); !done) {
        return done;
    }
    setVariable(setups.UserSetupSave, Notify{VarUserSetupSaveChanged, 0, 0}, "");
    return {};
}

Result<void> UserSetups::writeUnlessTaken(bool isRename, const Writer& write) {
    auto& setups = memories.userSetups;
    if (!isEmpty(setups.UserSetupSave)) {
        const std::string name = nameOf(setups.UserSetupSave);
        const Result<std::string> target = checkedSetupPath(name);
        if (!target) {
            return target.error();
        }
        if (SettingsFolder::isMissing(*target)) {
            if (Result<void> done = write(name, *target); !done) {
                return done;
            }
            setVariable(setups.UserSetupSave, Notify{VarUserSetupSaveChanged, 0, 0}, "");
        } else {
            setFlag(broker, memories.deviceState.FileAlreadyExists, VarFileAlreadyExistsChanged,
                    true);
            renamePending = isRename;
        }
    }
    setFlag(broker, setups.UserSetupFileCheckDone, VarUserSetupFileCheckDoneChanged, true);
    return {};
}

Result<void> UserSetups::saveAs(const std::string& name) {
    const SettingsStore::SaveOutcome outcome = store.store(name.c_str());
    store.log(outcome);
    if (!outcome.ok()) {
        return failure(NOT_SAVED);
    }
    return {};
}

Result<void> UserSetups::move(const std::string& source, const std::string& target) {
    return attempt([&] { std::filesystem::rename(source, target); });
}

Result<void> UserSetups::remove() {
    auto& setups = memories.userSetups;
    if (!setups.UserSetupDelete) {
        return {};
    }
    const Result<std::string> path = listedPath(setups.UserSetupSelectedFileIndex);
    if (!path) {
        return path.error();
    }
    if (Result<void> done = attempt([&] {
            const auto status = std::filesystem::status(*path);
            if (std::filesystem::is_directory(status)) {
                LOG(Error, "Not deleting %s: it is a folder", path->c_str());
            } else if (std::filesystem::exists(status)) {
                std::filesystem::remove(*path);
            }
        });
        !done) {
        return done;
    }
    setFlag(broker, setups.UserSetupDelete, VarUserSetupDeleteChanged, false);
    return {};
}

std::string UserSetups::listEntry(int32_t index) const {
    if (index < 0 || index >= SLOTS) {
        return {};
    }
    const auto& slot = memories.userSetups.UserSetupList[index].UserSetupFileName;
    return std::string(slot.data(), strnlen(slot.data(), slot.size()));
}

Result<std::string> UserSetups::listedPath(int32_t index) const {
    if (index < 0 || index >= memories.userSetups.UserSetupListSize) {
        return failure(INDEX_OUT_OF_RANGE);
    }
    const std::string entry = listEntry(index);
    Result<std::string> checked = folder.pathOfVisible(entry);
    if (!checked) {
        return failure("list entry \"" + entry + "\" is not a file of the settings folder");
    }
    return checked;
}

Result<std::string> UserSetups::checkedSetupPath(const std::string& name) const {
    Result<std::string> checked = folder.setupPath(name);
    if (!checked) {
        return failure("the user-setup name \"" + name + "\" is not a plain file name");
    }
    return checked;
}
