#include "settingsfolder.h"

#include "atomicfile.h"
#include "constants.h"
#include "filetext.h"
#include "folderpath.h"

#include <filesystem>
#include <string_view>
#include <system_error>

namespace {

constexpr const char* BACKUP_SUFFIX = ".backup";
constexpr const char* DAMAGED_SUFFIX = ".damaged";
constexpr std::string_view BYTE_ORDER_MARK = "\xef\xbb\xbf";

} // namespace

std::string SettingsFolder::currentFileName() {
    return std::string(Constants::CURRENT_USERSETTINGS_FILE) + Constants::SETUPS_EXTENSION;
}

std::string SettingsFolder::backupFileName() {
    return currentFileName() + BACKUP_SUFFIX;
}

std::string SettingsFolder::damagedFileName() {
    return currentFileName() + DAMAGED_SUFFIX;
}

bool SettingsFolder::isMissing(const std::string& path) {
    std::error_code error;
    const auto type = std::filesystem::status(path, error).type();
    return type == std::filesystem::file_type::not_found ||
           type == std::filesystem::file_type::none;
}

SettingsFolder::SettingsFolder() : folder(Constants::LOCAL_FOLDER) {
    folder += Constants::SETUPS_FOLDER;
}

std::optional<std::string> SettingsFolder::pathOf(const std::string& fileName) const {
    std::string path = folder + fileName;
    if (!FolderPath::liesIn(folder, path)) {
        return std::nullopt;
    }
    return path;
}

std::optional<std::string> SettingsFolder::pathOfVisible(const std::string& fileName) const {
    if (!FolderPath::isPlainName(fileName)) {
        return std::nullopt;
    }
    return pathOf(fileName);
}

std::optional<std::string> SettingsFolder::setupPath(const std::string& name) const {
    return pathOfVisible(name + Constants::SETUPS_EXTENSION);
}

std::string SettingsFolder::currentPath() const {
    return folder + currentFileName();
}

std::string SettingsFolder::backupPath() const {
    return folder + backupFileName();
}

std::string SettingsFolder::damagedPath() const {
    return folder + damagedFileName();
}

std::optional<std::string> SettingsFolder::readText(const std::string& fileName) const {
    const std::optional<std::string> path = pathOf(fileName);
    std::error_code error;
    if (!path || !std::filesystem::is_regular_file(*path, error)) {
        return std::nullopt;
    }
    std::optional<std::string> text = FileText::read(*path);
    if (!text) {
        return std::nullopt;
    }
    std::string& content = *text;
    if (std::string_view(content).substr(0, BYTE_ORDER_MARK.size()) == BYTE_ORDER_MARK) {
        content.erase(0, BYTE_ORDER_MARK.size());
    }
    return text;
}

void SettingsFolder::removeTemporaries() const {
    std::error_code error;
    for (auto entry = std::filesystem::directory_iterator(folder, error);
         !error && entry != std::filesystem::directory_iterator(); entry.increment(error)) {
        if (AtomicFile::isTemporaryName(entry->path().filename().string())) {
            std::error_code ignored;
            std::filesystem::remove(entry->path(), ignored);
        }
    }
}
