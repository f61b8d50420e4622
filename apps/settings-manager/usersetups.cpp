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
UserSetups::Refusal attempt(const std::function<void()>& operation) {
    try {
        operation();
    } catch (const std::exception& error) {
        return error.what();
    }
    return std::nullopt;
}

} // namespace

UserSetups::UserSetups(const SettingsFolder& folder, SettingsStore& store, SettingsLoader& loader)
    : folder(folder), store(store), loader(loader), navigator({}, {}) {}

void UserSetups::openFolder() {
    navigator.setRootPath(folder.path());
}

void UserSetups::updateList() {
    auto& setups = gen::memUserSetups();
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
    postEvent(Notify{VarUserSetupListChanged, 0, 0});
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

UserSetups::Refusal UserSetups::load() {
    auto& setups = gen::memUserSetups();
    if (!setups.UserSetupAcceptLoadFileName) {
        return std::nullopt;
    }
    const int32_t index = setups.UserSetupSelectedFileIndex;
    if (index < 0 || index >= setups.UserSetupListSize) {
        LOG(Error, INDEX_OUT_OF_RANGE);
    } else {
        std::string path;
        if (Refusal refusal = listedPath(index, path)) {
            return refusal;
        }
        loader.load(listEntry(index), true);
    }
    setFlag(setups.UserSetupAcceptLoadFileName, VarUserSetupAcceptLoadFileNameChanged, false);
    return std::nullopt;
}

UserSetups::Refusal UserSetups::save() {
    auto& setups = gen::memUserSetups();
    if (!setups.UserSetupAcceptSaveFileName) {
        return std::nullopt;
    }
    if (Refusal refusal = writeUnlessTaken(
            false, [this](const std::string& name, const std::string&) { return saveAs(name); })) {
        return refusal;
    }
    setFlag(setups.UserSetupAcceptSaveFileName, VarUserSetupAcceptSaveFileNameChanged, false);
    return std::nullopt;
}

UserSetups::Refusal UserSetups::proposeNew() {
    auto& setups = gen::memUserSetups();
    if (!setups.UserSetupAddNew) {
        return std::nullopt;
    }
    setFlag(setups.UserSetupAddNew, VarUserSetupAddNewChanged, false);
    setups.UserSetupSave = proposedName(std::time(nullptr));
    postEvent(Notify{VarUserSetupSaveChanged, 0, 0});
    return std::nullopt;
}

UserSetups::Refusal UserSetups::rename() {
    auto& setups = gen::memUserSetups();
    if (!setups.UserSetupRename) {
        return std::nullopt;
    }
    std::string source;
    if (Refusal refusal = listedPath(setups.UserSetupSelectedFileIndex, source)) {
        return refusal;
    }
    setFlag(setups.UserSetupRename, VarUserSetupRenameChanged, false);
    return writeUnlessTaken(
        true, [&](const std::string&, const std::string& target) { return move(source, target); });
}

UserSetups::Refusal UserSetups::overwrite() {
    auto& setups = gen::memUserSetups();
    if (!setups.UserSetupOverwriteFile) {
        return std::nullopt;
    }
    setFlag(setups.UserSetupOverwriteFile, VarUserSetupOverwriteFileChanged, false);
    if (isEmpty(setups.UserSetupSave)) {
        return std::nullopt;
    }
    const std::string name = nameOf(setups.UserSetupSave);
    std::string target;
    if (Refusal refusal = checkedSetupPath(name, target)) {
        return refusal;
    }
    std::string source;
    if (renamePending) {
        if (Refusal refusal = listedPath(setups.UserSetupSelectedFileIndex, source)) {
            return refusal;
        }
    }
    if (Refusal refusal = renamePending ? move(source, target) : saveAs(name)) {
        return refusal;
    }
    setVariable(setups.UserSetupSave, Notify{VarUserSetupSaveChanged, 0, 0}, "");
    return std::nullopt;
}

UserSetups::Refusal UserSetups::writeUnlessTaken(bool isRename, const Writer& write) {
    auto& setups = gen::memUserSetups();
    if (!isEmpty(setups.UserSetupSave)) {
        const std::string name = nameOf(setups.UserSetupSave);
        std::string target;
        if (Refusal refusal = checkedSetupPath(name, target)) {
            return refusal;
        }
        if (SettingsFolder::isMissing(target)) {
            if (Refusal refusal = write(name, target)) {
                return refusal;
            }
            setVariable(setups.UserSetupSave, Notify{VarUserSetupSaveChanged, 0, 0}, "");
        } else {
            setFlag(gen::memDeviceState().FileAlreadyExists, VarFileAlreadyExistsChanged, true);
            renamePending = isRename;
        }
    }
    setFlag(setups.UserSetupFileCheckDone, VarUserSetupFileCheckDoneChanged, true);
    return std::nullopt;
}

UserSetups::Refusal UserSetups::saveAs(const std::string& name) {
    if (!store.store(name.c_str())) {
        return NOT_SAVED;
    }
    return std::nullopt;
}

UserSetups::Refusal UserSetups::move(const std::string& source, const std::string& target) {
    return attempt([&] { std::filesystem::rename(source, target); });
}

UserSetups::Refusal UserSetups::remove() {
    auto& setups = gen::memUserSetups();
    if (!setups.UserSetupDelete) {
        return std::nullopt;
    }
    std::string path;
    if (Refusal refusal = listedPath(setups.UserSetupSelectedFileIndex, path)) {
        return refusal;
    }
    if (Refusal refusal = attempt([&] {
            const auto status = std::filesystem::status(path);
            if (std::filesystem::is_directory(status)) {
                LOG(Error, "Not deleting %s: it is a folder", path.c_str());
            } else if (std::filesystem::exists(status)) {
                std::filesystem::remove(path);
            }
        })) {
        return refusal;
    }
    setFlag(setups.UserSetupDelete, VarUserSetupDeleteChanged, false);
    return std::nullopt;
}

std::string UserSetups::listEntry(int32_t index) const {
    if (index < 0 || index >= SLOTS) {
        return {};
    }
    const auto& slot = gen::memUserSetups().UserSetupList[index].UserSetupFileName;
    return std::string(slot.data(), strnlen(slot.data(), slot.size()));
}

UserSetups::Refusal UserSetups::listedPath(int32_t index, std::string& path) const {
    if (index < 0 || index >= gen::memUserSetups().UserSetupListSize) {
        return INDEX_OUT_OF_RANGE;
    }
    const std::string entry = listEntry(index);
    const std::optional<std::string> checked = folder.pathOfVisible(entry);
    if (!checked) {
        return "list entry \"" + entry + "\" is not a file of the settings folder";
    }
    path = *checked;
    return std::nullopt;
}

UserSetups::Refusal UserSetups::checkedSetupPath(const std::string& name, std::string& path) const {
    const std::optional<std::string> checked = folder.setupPath(name);
    if (!checked) {
        return "the user-setup name \"" + name + "\" is not a plain file name";
    }
    path = *checked;
    return std::nullopt;
}
