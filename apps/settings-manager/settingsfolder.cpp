#include "settingsfolder.h"

#include "atomicfile.h"
#include "constants.h"
#include "filetext.h"
#include "folderpath.h"
#include "ownership.h"

#include <cerrno>
#include <cstring>
#include <exception>
#include <filesystem>
#include <optional>
#include <string_view>
#include <sys/stat.h>
#include <system_error>
#include <utility>

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

Result<std::string> SettingsFolder::pathOf(const std::string& fileName) const {
    std::string path = folder + fileName;
    if (!FolderPath::liesIn(folder, path)) {
        return failure("the name does not stay inside the settings folder");
    }
    return path;
}

Result<std::string> SettingsFolder::pathOfVisible(const std::string& fileName) const {
    if (!FolderPath::isPlainName(fileName)) {
        return failure("\"" + fileName + "\" is not a plain file name");
    }
    return pathOf(fileName);
}

Result<std::string> SettingsFolder::setupPath(const std::string& name) const {
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

Result<std::string> SettingsFolder::readText(const std::string& fileName) const {
    Result<std::string> content = readFile(fileName);
    if (content) {
        dropByteOrderMark(*content);
    }
    return content;
}

Result<std::string> SettingsFolder::readFile(const std::string& fileName) const {
    const Result<std::string> path = pathOf(fileName);
    if (!path) {
        return path.error();
    }
    errno = 0;
    std::optional<std::string> content = FileText::readRegular(*path);
    if (!content) {
        const int code = errno;
        return failure("cannot read " + *path + " as a regular file", code);
    }
    return std::move(*content);
}

void SettingsFolder::dropByteOrderMark(std::string& content) {
    if (std::string_view(content).substr(0, BYTE_ORDER_MARK.size()) == BYTE_ORDER_MARK) {
        content.erase(0, BYTE_ORDER_MARK.size());
    }
}

Result<void> SettingsFolder::prepare() const {
    std::string bare = folder;
    while (bare.size() > 1 && bare.back() == '/') {
        bare.pop_back();
    }
    struct stat status {};
    if (::lstat(bare.c_str(), &status) == 0) {
        if (S_ISDIR(status.st_mode) && Ownership::isOwn(status)) {
            takeOver(bare, status);
            return {};
        }
        try {
            Ownership::removeForeign("settings folder", bare, status);
        } catch (const std::exception& error) {
            return failure(error.what());
        }
    }
    const Ownership::ExactModes exact(Ownership::SHARED_FOLDER_MODE);
    if (::mkdir(bare.c_str(), Ownership::SHARED_FOLDER_MODE) != 0) {
        const int code = errno;
        return failure("mkdir " + bare + ": " + std::strerror(code), code);
    }
    return {};
}

// Gives the folder and its own files the service's group and takes away every
// right of others (an earlier release made them 0766 and 0666).
void SettingsFolder::takeOver(const std::string& bare, const struct stat& status) const {
    Ownership::restrictOwn(bare, status, Ownership::SHARED_FOLDER_MODE);
    std::error_code error;
    for (auto entry = std::filesystem::directory_iterator(bare, error);
         !error && entry != std::filesystem::directory_iterator(); entry.increment(error)) {
        struct stat file {};
        const std::string path = entry->path().string();
        if (::lstat(path.c_str(), &file) == 0 && S_ISREG(file.st_mode) && Ownership::isOwn(file)) {
            Ownership::restrictOwn(path, file, Ownership::SHARED_MODE);
        }
    }
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
