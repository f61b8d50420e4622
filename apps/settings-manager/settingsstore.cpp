#include "settingsstore.h"

#include "atomicfile.h"
#include "constants.h"
#include "documentformat.h"
#include "documenttext.h"
#include "introspection.h"
#include "log.h"
#include "productinfo.h"
#include "settingsfolder.h"

#include <optional>
#include <string>
#include <sys/stat.h>
#include <utility>

SettingsStore::SettingsStore(const SettingsFolder& folder, const ProductInfo& product,
                             uint32_t memory)
    : folder(folder), product(product), memory(memory), keptSettings(folder, memory) {}

// The variable comes from the catalogue's event index (every event belongs to
// one variable at most); only a persistent one is logged.
void SettingsStore::addUpdate(EventId event) {
    uint32_t eventMemory = 0;
    uint32_t variable = 0;
    Introspection::getVarLocation(Notify{event, 0, 0}, eventMemory, variable);
    if (eventMemory == memory && Introspection::getVarEvent(memory, variable).id == event) {
        LOG(LogLight, "%s changed to %s", Introspection::getVarName(memory, variable),
            Introspection::getVarValue(memory, variable, 0).c_str());
        keptSettings.forget(variable);
    }
    dirty = true;
}

std::stringstream SettingsStore::currentValues() const {
    product.publish();
    const uint32_t count = Introspection::getVarCount(memory);
    std::stringstream document;
    document << "{" << std::endl;
    for (uint32_t variable = 0; variable < count; ++variable) {
        document << "\"" << Introspection::getVarName(memory, variable)
                 << "\": " << documentValue(memory, variable);
        if (variable + 1 < count) {
            document << "," << std::endl;
        }
    }
    document << std::endl << "}";
    return document;
}

bool SettingsStore::store(const char* name) {
    const std::string fileName = std::string(name) + Constants::SETUPS_EXTENSION;
    const bool current = fileName == SettingsFolder::currentFileName();
    const std::optional<std::string> path = folder.pathOf(fileName);
    std::string error = "the name does not stay inside the settings folder";
    std::string document;
    if (path) {
        document = currentValues().str();
        if (current) {
            if (currentFileHolds(document)) {
                // An unchanged document counts as saved.
                currentSaveError.clear();
                keptSettings.save();
                return true;
            }
            keepBackup();
        }
        error = AtomicFile::write(*path, document);
    }
    if (error.empty()) {
        if (current) {
            currentSaveError.clear();
            currentFile = std::move(document);
            currentStamp = FileStamp::of(*path);
            keptSettings.save();
        }
        return true;
    }
    if (!current || error != currentSaveError) {
        LOG(Error, "Could not save %s: %s", fileName.c_str(), error.c_str());
    }
    if (current) {
        currentSaveError = error;
    }
    return false;
}

SettingsStore::FileStamp SettingsStore::FileStamp::of(const std::string& path) {
    struct stat status {};
    if (::lstat(path.c_str(), &status) != 0 || !S_ISREG(status.st_mode)) {
        return {};
    }
    return {status.st_ino, status.st_size, status.st_mtim.tv_sec, status.st_mtim.tv_nsec};
}

// The remembered content is read again when the file is no longer what was
// remembered as far as its status tells (removed by a factory reset, replaced
// or changed by another program of the device).
bool SettingsStore::currentFileHolds(const std::string& document) {
    if (!currentFileKnown || FileStamp::of(folder.currentPath()) != currentStamp) {
        readCurrentFile();
    }
    return currentFile == document;
}

void SettingsStore::readCurrentFile() {
    currentStamp = FileStamp::of(folder.currentPath());
    currentFile = folder.readFile(SettingsFolder::currentFileName());
    currentFileKnown = true;
}

bool SettingsStore::saveCurrent() {
    const bool saved = store(Constants::CURRENT_USERSETTINGS_FILE);
    if (!saved) {
        dirty = true;
    }
    return saved;
}

void SettingsStore::saveIfDirty() {
    if (dirty) {
        dirty = false;
        saveCurrent();
    }
}

// The file that ".current.stp" is about to replace becomes the backup, when it
// is a complete document; an incomplete one never replaces a good backup.
void SettingsStore::keepBackup() {
    const std::optional<std::string> text = folder.readText(SettingsFolder::currentFileName());
    if (!text || !DocumentText::isCompleteDocument(*text)) {
        return;
    }
    const std::string error = AtomicFile::linkOver(folder.currentPath(), folder.backupPath());
    if (!error.empty()) {
        LOG(Warn, "Could not keep a backup of the settings: %s", error.c_str());
    }
}
