#include "settingsstore.h"

#include "atomicfile.h"
#include "constants.h"
#include "documentformat.h"
#include "documenttext.h"
#include "productinfo.h"
#include "settings-service/introspection.h"
#include "settings-service/log.h"
#include "settings-service/memories.h"
#include "settingsfolder.h"

#include <optional>
#include <string>
#include <sys/stat.h>
#include <utility>

SettingsStore::SettingsStore(const SettingsFolder& folder, const ProductInfo& product,
                             const ServiceMemories& memories)
    : folder(folder), product(product), memories(memories), memory(memories.persistentIndex),
      keptSettings(folder, memory) {}

// The variable comes from the catalogue's event index (every event belongs to
// one variable at most); only a persistent one drops what was kept aside for it
// and is logged, its value text built only when the log level asks for the line.
void SettingsStore::addUpdate(EventId event) {
    dirty = true;
    uint32_t eventMemory = 0;
    uint32_t variable = 0;
    Introspection::getVarLocation(Notify{event, 0, 0}, eventMemory, variable);
    if (eventMemory != memory || Introspection::getVarEvent(memory, variable).id != event) {
        return;
    }
    keptSettings.forget(variable);
    if (LOG_WANTED(LogLight)) {
        LOG(LogLight, "%s changed to %s", Introspection::getVarName(memory, variable),
            Introspection::getVarValue(memory, variable, 0).c_str());
    }
}

std::stringstream SettingsStore::currentValues() const {
    product.publish();
    return document(nullptr);
}

std::vector<uint8_t> SettingsStore::snapshot() const {
    product.publish();
    const auto* record = reinterpret_cast<const uint8_t*>(&memories.persistent);
    return std::vector<uint8_t>(record, record + sizeof memories.persistent);
}

std::string SettingsStore::documentOf(const std::vector<uint8_t>& record) const {
    return document(record.data()).str();
}

std::stringstream SettingsStore::document(const uint8_t* record) const {
    const uint32_t count = Introspection::getVarCount(memory);
    std::stringstream document;
    document << "{" << std::endl;
    for (uint32_t variable = 0; variable < count; ++variable) {
        document << "\"" << Introspection::getVarName(memory, variable)
                 << "\": " << documentValue(memory, variable, record);
        if (variable + 1 < count) {
            document << "," << std::endl;
        }
    }
    document << std::endl << "}";
    return document;
}

SettingsStore::SaveOutcome SettingsStore::store(const char* name) {
    const std::string fileName = std::string(name) + Constants::SETUPS_EXTENSION;
    const bool current = fileName == SettingsFolder::currentFileName();
    SaveOutcome outcome;
    outcome.saved = current ? SaveOutcome::Saved::Current : SaveOutcome::Saved::UserSetup;
    const Result<std::string> path = folder.pathOf(fileName);
    Result<void> written = path ? Result<void>() : path.error();
    std::string document;
    if (path) {
        document = currentValues().str();
        if (current) {
            refreshCurrentFile();
            if (currentFile.content == document) {
                // An unchanged document counts as saved.
                outcome.kept = keptSettings.save();
                return outcome;
            }
            outcome.backup = keepBackup();
        }
        written = AtomicFile::write(*path, document);
    }
    if (!written) {
        outcome.file = AtomicFile::saveFailure(fileName, written.error());
        return outcome;
    }
    if (current) {
        // Without an identity the file is read again before the next
        // comparison.
        const std::optional<FileIdentity> identity = identityOf(*path);
        currentFile = {identity.has_value(), identity, std::move(document), true};
        outcome.kept = keptSettings.save();
    }
    return outcome;
}

SettingsStore::SaveOutcome SettingsStore::saveCurrent() {
    SaveOutcome outcome = store(Constants::CURRENT_USERSETTINGS_FILE);
    if (!outcome.ok()) {
        dirty = true;
    }
    return outcome;
}

SettingsStore::SaveOutcome SettingsStore::saveIfDirty() {
    if (!dirty) {
        return {};
    }
    dirty = false;
    return saveCurrent();
}

SettingsStore::SaveOutcome SettingsStore::saveKept() {
    SaveOutcome outcome;
    outcome.saved = SaveOutcome::Saved::Kept;
    outcome.kept = keptSettings.save();
    return outcome;
}

// In the order the steps ran: the backup, the file, the kept values.  A save
// that did not reach its file tells nothing about the kept values.
void SettingsStore::log(const SaveOutcome& outcome) {
    if (!outcome.backup) {
        logFailure(outcome.backup.error(), gen::Warn);
    }
    switch (outcome.saved) {
    case SaveOutcome::Saved::UserSetup:
        if (!outcome.file) {
            logFailure(outcome.file.error());
        }
        break;
    case SaveOutcome::Saved::Current:
        currentFailure.report(outcome.file);
        if (outcome.file) {
            keptFailure.report(outcome.kept);
        }
        break;
    case SaveOutcome::Saved::Kept:
        keptFailure.report(outcome.kept);
        break;
    }
}

std::optional<SettingsStore::FileIdentity> SettingsStore::identityOf(const std::string& path) {
    struct stat status {};
    if (::lstat(path.c_str(), &status) != 0 || !S_ISREG(status.st_mode)) {
        return std::nullopt;
    }
    return FileIdentity{status.st_dev, status.st_ino, status.st_size, status.st_mtim.tv_sec,
                        status.st_mtim.tv_nsec};
}

void SettingsStore::readCurrentFile() {
    Result<std::string> content = folder.readFile(SettingsFolder::currentFileName());
    currentFile = {true, identityOf(folder.currentPath()),
                   content ? std::optional<std::string>(std::move(*content)) : std::nullopt,
                   std::nullopt};
}

// The remembered file is read again when it is no longer what was remembered
// as far as its identity tells (removed by a factory reset, replaced or
// changed by another program of the device).
void SettingsStore::refreshCurrentFile() {
    if (!currentFile.known || identityOf(folder.currentPath()) != currentFile.identity) {
        readCurrentFile();
    }
}

// The file that ".current.stp" is about to replace becomes the backup, when it
// is a complete document; an incomplete one never replaces a good backup.  The
// file as refreshCurrentFile() left it is checked once: a document this store
// wrote is known to be complete, and neither is read again.
Result<void> SettingsStore::keepBackup() {
    if (!currentFile.identity || !currentFile.content) {
        return {};
    }
    if (!currentFile.complete) {
        std::string text = *currentFile.content;
        SettingsFolder::dropByteOrderMark(text);
        currentFile.complete = DocumentText::isCompleteDocument(text);
    }
    if (!*currentFile.complete) {
        return {};
    }
    const Result<void> linked = AtomicFile::linkOver(folder.currentPath(), folder.backupPath());
    if (!linked) {
        return failure("Could not keep a backup of the settings: " + linked.error().text,
                       linked.error().code);
    }
    return {};
}
