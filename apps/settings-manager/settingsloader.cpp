#include "settingsloader.h"

#include "documentformat.h"
#include "documenttext.h"
#include "flagvariable.h"
#include "settings-service/introspection.h"
#include "settings-service/json.h"
#include "settings-service/log.h"
#include "settings-service/records.h"
#include "settings-service/valuecodec.h"
#include "settingsfolder.h"
#include "settingsstore.h"

#include <algorithm>
#include <filesystem>
#include <optional>
#include <set>
#include <string>
#include <vector>

namespace {

// Characters of a parse error's excerpt that stand before the error position.
constexpr int EXCERPT_LEAD = 20;
constexpr std::size_t EXCERPT_LENGTH = 41;
// Unreadable lines of a damaged document that are logged one by one, and the
// characters of each (and of a kept value) that are shown.
constexpr std::size_t LOGGED_LINES = 10;
constexpr std::size_t LOGGED_LINE_LENGTH = 60;

// The first LOGGED_LINE_LENGTH characters of a text, "..." after them when it is longer.
std::string shown(const std::string& text) {
    return text.size() > LOGGED_LINE_LENGTH ? text.substr(0, LOGGED_LINE_LENGTH) + "..." : text;
}

// EXCERPT_LENGTH characters of `text` with the one at `position` at index
// EXCERPT_LEAD; blanks stand in for characters before the text's start.
std::string excerpt(int position, const std::string& text) {
    const long start = static_cast<long>(position) - EXCERPT_LEAD;
    if (start >= 0) {
        const std::size_t from = std::min(static_cast<std::size_t>(start), text.size());
        return text.substr(from, EXCERPT_LENGTH);
    }
    const auto missing = static_cast<std::size_t>(-start);
    return std::string(missing, ' ') +
           text.substr(0, EXCERPT_LENGTH - std::min(missing, EXCERPT_LENGTH));
}

bool isStored(const Migration::KeyResult& result) {
    return result.outcome == Migration::Outcome::Stored ||
           result.outcome == Migration::Outcome::Clamped;
}

} // namespace

// Logs what becomes of each key of a document as it is applied: a value out
// of range and a setter's error as they always were, then one line for every
// key that was not stored as it stood.
class SettingsLoader::Logger : public Migration::Report {
public:
    Logger(const SettingsLoader& loader, uint32_t memory) : loader(loader), memory(memory) {}

    void parseError(int position, const std::string& text) override {
        loader.printJsonError(position, text);
    }

    void keyDone(const Migration::KeyResult& result) override {
        const char* key = result.key.c_str();
        if (result.outOfRange) {
            LOG(Error, "The value of variable: %s is out of range!", key);
            if (!result.rangeError.empty()) {
                LOG(Error, "%s", result.rangeError.c_str());
            } else {
                LOG(Error, "%s",
                    ValueCodec::outsideRange(Introspection::getVarMin(memory, *result.variable),
                                             Introspection::getVarMax(memory, *result.variable),
                                             result.applied)
                        .c_str());
            }
        }
        if (!result.setterError.empty()) {
            LOG(Warn, "Could not set %s to %s : %s", key, result.applied.c_str(),
                result.setterError.c_str());
        }
        const std::string category = Migration::category(result);
        if (category == "kept aside") {
            LOG(Warn, "%s", Migration::describe(memory, result).c_str());
        } else if (category != "stored" && category != "skipped") {
            LOG(LogLight, "%s", Migration::describe(memory, result).c_str());
        }
    }

private:
    const SettingsLoader& loader;
    uint32_t memory;
};

SettingsLoader::SettingsLoader(const SettingsFolder& folder, SettingsStore& store,
                               const ServiceMemories& memories, const BrokerLink& broker)
    : folder(folder), store(store), memories(memories), broker(broker),
      memory(memories.persistentIndex) {}

bool SettingsLoader::load(const std::string& fileName, bool storeAfterLoad) {
    bool stored = true;
    const std::optional<Results> results = applyFile(fileName, stored);
    if (!results) {
        return false;
    }
    // The user chose these values: what was kept aside for them gives way.
    for (const Migration::KeyResult& result : *results) {
        if (isStored(result)) {
            store.kept().forget(*result.variable);
        }
    }
    if (storeAfterLoad) {
        store.log(store.saveCurrent());
    }
    return stored;
}

// Nothing when the file cannot be read; no results (and not `stored`) when it
// does not parse.
std::optional<SettingsLoader::Results> SettingsLoader::applyFile(const std::string& fileName,
                                                                 bool& stored) {
    const Result<std::string> text = folder.readText(fileName);
    if (!text) {
        setFlag(broker, memories.deviceState.FileNotFound, VarFileNotFoundChanged, true);
        LOG(Error, "Could not open settings file: %s", fileName.c_str());
        return std::nullopt;
    }
    Json reader;
    if (!reader.parse(*text)) {
        printJsonError(reader.errorPosition, *text);
        stored = false;
        return Results{};
    }
    return applyItems(reader.items, stored);
}

void SettingsLoader::loadCurrent() {
    const std::vector<KeptSettings::Entry> previous = store.kept().read();
    bool recovered = false;
    const Results results = loadCurrentDocument(recovered);
    const bool restoredKept = keepAside(results, previous);
    store.log(recovered || restoredKept ? store.saveCurrent() : store.saveKept());
}

SettingsLoader::Results SettingsLoader::loadCurrentDocument(bool& recovered) {
    const std::string current = SettingsFolder::currentFileName();
    const bool currentMissing = SettingsFolder::isMissing(folder.currentPath());
    if (currentMissing && SettingsFolder::isMissing(folder.backupPath())) {
        bool stored = true;
        return applyFile(current, stored).value_or(Results{});
    }
    bool currentDamaged = false;
    if (!currentMissing) {
        if (std::optional<Results> results = loadsWhole(current)) {
            return *results;
        }
        currentDamaged = keepDamagedFile();
    }
    recovered = true;
    if (std::optional<Results> results = loadsWhole(SettingsFolder::backupFileName())) {
        LOG(Warn, "Settings restored from the backup %s", SettingsFolder::backupFileName().c_str());
        return *results;
    }
    return readDamaged(currentDamaged);
}

// Applies the settings file when it is a complete document; nothing, with the
// reason logged, when it is not (nothing is applied then).
std::optional<SettingsLoader::Results> SettingsLoader::loadsWhole(const std::string& fileName) {
    const Result<std::string> text = folder.readText(fileName);
    if (!text) {
        LOG(Error, "Could not read settings file: %s", fileName.c_str());
        return std::nullopt;
    }
    Json reader;
    const bool parsed = reader.parse(*text);
    if (!parsed || !DocumentText::isCompleteDocument(reader, *text)) {
        if (!parsed) {
            printJsonError(reader.errorPosition, *text);
        }
        LOG(Error, "Settings file %s is not a complete settings document", fileName.c_str());
        return std::nullopt;
    }
    try {
        bool stored = true;
        return applyItems(reader.items, stored);
    } catch (const std::exception& error) {
        LOG(Error, "Could not apply settings file %s: %s", fileName.c_str(), error.what());
        return std::nullopt;
    }
}

// Moves a damaged ".current.stp" aside, where no save replaces it; an earlier
// damaged file gives way.  True when it was moved.
bool SettingsLoader::keepDamagedFile() {
    const std::string damaged = folder.damagedPath();
    std::error_code error;
    std::filesystem::remove_all(damaged, error);
    std::filesystem::rename(folder.currentPath(), damaged, error);
    if (error) {
        LOG(Error, "Could not keep the damaged settings file aside: %s", error.message().c_str());
        return false;
    }
    LOG(Error, "The damaged settings file is kept as %s",
        SettingsFolder::damagedFileName().c_str());
    return true;
}

// With no complete document left, the defaults and over them the lines that
// can be read: the backup's, then those of the damaged current file.
SettingsLoader::Results SettingsLoader::readDamaged(bool currentDamaged) {
    std::vector<Json::Item> items;
    if (!SettingsFolder::isMissing(folder.backupPath())) {
        readLinesOf(SettingsFolder::backupFileName(), items);
    }
    if (currentDamaged) {
        readLinesOf(SettingsFolder::damagedFileName(), items);
    }
    apply(defaultsDocument());
    if (items.empty()) {
        LOG(Error, "No usable backup of the settings; the defaults apply");
        return {};
    }
    LOG(Warn,
        "No usable backup of the settings; %zu lines read one by one, the defaults apply to "
        "the rest",
        items.size());
    try {
        bool stored = true;
        return applyItems(items, stored);
    } catch (const std::exception& error) {
        LOG(Error, "Could not apply the lines read: %s", error.what());
        return {};
    }
}

void SettingsLoader::readLinesOf(const std::string& fileName,
                                 std::vector<Json::Item>& items) const {
    const Result<std::string> text = folder.readText(fileName);
    if (!text) {
        return;
    }
    DocumentText::Lines lines = DocumentText::readLines(*text);
    for (std::size_t shown = 0; shown < lines.unreadable.size() && shown < LOGGED_LINES; ++shown) {
        const auto& [number, line] = lines.unreadable[shown];
        LOG(Error, "Could not read line %d of %s: %s", number, fileName.c_str(),
            line.substr(0, LOGGED_LINE_LENGTH).c_str());
    }
    if (lines.unreadable.size() > LOGGED_LINES) {
        LOG(Error, "%zu more lines of %s could not be read", lines.unreadable.size() - LOGGED_LINES,
            fileName.c_str());
    }
    std::move(lines.items.begin(), lines.items.end(), std::back_inserter(items));
}

bool SettingsLoader::apply(const std::string& text) {
    Json reader;
    if (!reader.parse(text)) {
        printJsonError(reader.errorPosition, text);
        return false;
    }
    return apply(reader);
}

bool SettingsLoader::apply(const Json& reader) {
    bool stored = true;
    applyItems(reader.items, stored);
    return stored;
}

// Unsubscribed from everything while storing, so that the service does not
// hear its own writes.
SettingsLoader::Results SettingsLoader::applyItems(const std::vector<Json::Item>& items,
                                                   bool& stored) {
    broker.post(Notify{UnsubscribeAll, 0, 0});
    Logger logger(*this, memory);
    Results results = Migration::apply(memory, items, logger);
    broker.subscribe();
    stored = std::none_of(results.begin(), results.end(), [](const Migration::KeyResult& result) {
        return !result.setterError.empty();
    });
    return results;
}

// True when the variable holds the value that the entry recorded instead, read
// as this release reads it.
bool SettingsLoader::holds(uint32_t variable, const KeptSettings::Entry& entry) const {
    if (!entry.instead) {
        return false;
    }
    const std::string now = documentValueText(memory, variable);
    if (now == *entry.instead) {
        return true;
    }
    const Migration::KeyResult read = Migration::plan(memory, entry.key, *entry.instead, {}, false);
    return !read.formerEntry.empty() && now == read.entryNow;
}

bool SettingsLoader::keepAside(const Results& current,
                               const std::vector<KeptSettings::Entry>& previous) {
    std::set<uint32_t> given;
    for (const Migration::KeyResult& result : current) {
        if (isStored(result)) {
            given.insert(*result.variable);
        }
    }
    std::vector<KeptSettings::Entry> kept;
    bool restored = false;
    if (!previous.empty()) {
        broker.post(Notify{UnsubscribeAll, 0, 0});
        Logger logger(*this, memory);
        for (const KeptSettings::Entry& entry : previous) {
            const std::vector<Json::Item> document{{entry.key, {entry.value, false}}};
            Migration::KeyResult result =
                Migration::plan(memory, entry.key, entry.value, document, false);
            if (result.outcome == Migration::Outcome::Skipped) {
                continue;
            }
            if (result.outcome != Migration::Outcome::Stored) {
                kept.push_back(entry);
                continue;
            }
            if (given.count(*result.variable) != 0 && !holds(*result.variable, entry)) {
                LOG(LogLight, "%s: the value kept aside gives way to the value set since",
                    entry.key.c_str());
                continue;
            }
            if (!Migration::store(memory, result, document, logger)) {
                kept.push_back(entry);
                continue;
            }
            LOG(LogLight, "%s: the value kept aside is stored again: %s", entry.key.c_str(),
                shown(entry.value).c_str());
            restored = true;
        }
        broker.subscribe();
    }
    std::vector<KeptSettings::Entry> fresh;
    for (const Migration::KeyResult& result : current) {
        if (result.outcome == Migration::Outcome::KeptAside ||
            result.outcome == Migration::Outcome::Retired ||
            result.outcome == Migration::Outcome::Clamped) {
            std::optional<std::string> instead;
            if (result.variable) {
                instead = documentValueText(memory, *result.variable);
            }
            fresh.push_back({result.key, result.value, instead});
        }
    }
    std::erase_if(kept, [&fresh](const KeptSettings::Entry& entry) {
        return std::any_of(fresh.begin(), fresh.end(), [&entry](const KeptSettings::Entry& newer) {
            return newer.key == entry.key;
        });
    });
    std::move(fresh.begin(), fresh.end(), std::back_inserter(kept));
    store.kept().set(std::move(kept));
    return restored;
}

void SettingsLoader::printJsonError(int position, const std::string& text) const {
    LOG(Error, "JSON parse error at %d", position);
    LOG(Error, "%s", excerpt(position, text).c_str());
    LOG(Error, "                    ^ here");
}

// A missing ".current.stp" is written from the defaults only when there is no
// backup either: with a backup, loadCurrent restores from it.
void SettingsLoader::captureDefaults() {
    defaultRecord = store.snapshot();
    if (SettingsFolder::isMissing(folder.currentPath()) &&
        SettingsFolder::isMissing(folder.backupPath())) {
        store.log(store.saveCurrent());
    }
}

// Without captured defaults (the settings folder could not be made at start)
// the document is empty, and applying it changes nothing.
const std::string& SettingsLoader::defaultsDocument() {
    if (!defaults) {
        defaults = defaultRecord.empty() ? std::string() : store.documentOf(defaultRecord);
    }
    return *defaults;
}

void SettingsLoader::factoryReset(const std::function<void()>& emptyFolder) {
    if (!memories.guiLocal.FactoryReset) {
        return;
    }
    LOG(LogLight, "Factory reset started");
    try {
        emptyFolder();
    } catch (const std::exception& error) {
        LOG(Error, "Factory reset could not empty the settings folder: %s", error.what());
    }
    store.kept().clear();
    apply(defaultsDocument());
    setFlag(broker, memories.guiLocal.FactoryReset, VarFactoryResetChanged, false);
    LOG(LogLight, "Factory reset done");
}
