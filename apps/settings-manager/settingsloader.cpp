#include "settingsloader.h"

#include "documentformat.h"
#include "documenttext.h"
#include "flagvariable.h"
#include "introspection.h"
#include "json.h"
#include "log.h"
#include "records.h"
#include "settingsfolder.h"
#include "settingsstore.h"

#include <algorithm>
#include <filesystem>
#include <optional>
#include <string>
#include <vector>

namespace {

// Characters of a parse error's excerpt that stand before the error position.
constexpr int EXCERPT_LEAD = 20;
constexpr std::size_t EXCERPT_LENGTH = 41;
// Keys of the product information, written into every document but never read back.
constexpr const char* PRODUCT_PREFIX = "Product";

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

// The text that the range check judges: for an int, the number that the
// setter will store (it detects the base, the check reads decimal), so that
// "08" (stored as 0) or "0x7fffffff" (read as 0 by the check) is judged by
// the value it becomes.  A text the setter cannot convert is judged as it is.
std::string rangeCheckText(uint32_t baseType, const std::string& value) {
    if (baseType != BaseInt) {
        return value;
    }
    try {
        return std::to_string(std::stoi(value, nullptr, 0));
    } catch (const std::exception&) {
        return value;
    }
}

} // namespace

SettingsLoader::SettingsLoader(const SettingsFolder& folder, SettingsStore& store, uint32_t memory)
    : folder(folder), store(store), memory(memory) {}

bool SettingsLoader::load(const std::string& fileName, bool storeAfterLoad) {
    const std::optional<std::string> text = folder.readText(fileName);
    if (!text) {
        setFlag(gen::memDeviceState().FileNotFound, VarFileNotFoundChanged, true);
        LOG(Error, "Could not open settings file: %s", fileName.c_str());
        return false;
    }
    const bool result = apply(*text);
    if (storeAfterLoad) {
        store.saveCurrent();
    }
    return result;
}

void SettingsLoader::loadCurrent() {
    const std::string current = SettingsFolder::currentFileName();
    const bool currentMissing = SettingsFolder::isMissing(folder.currentPath());
    if (currentMissing && SettingsFolder::isMissing(folder.backupPath())) {
        load(current, false);
        return;
    }
    if (!currentMissing) {
        if (loadsWhole(current)) {
            return;
        }
        keepDamagedFile();
    }
    if (loadsWhole(SettingsFolder::backupFileName())) {
        LOG(Warn, "Settings restored from the backup %s", SettingsFolder::backupFileName().c_str());
    } else {
        LOG(Error, "No usable backup of the settings; the defaults apply");
        apply(defaultsDocument());
    }
    store.saveCurrent();
}

// Applies the settings file when it is a complete document; false, with the
// reason logged, when it is not (nothing is applied then).
bool SettingsLoader::loadsWhole(const std::string& fileName) {
    const std::optional<std::string> text = folder.readText(fileName);
    if (!text) {
        LOG(Error, "Could not read settings file: %s", fileName.c_str());
        return false;
    }
    Json reader;
    const bool parsed = reader.parse(*text);
    if (!parsed || !DocumentText::isCompleteDocument(reader, *text)) {
        if (!parsed) {
            printJsonError(reader.errorPosition, *text);
        }
        LOG(Error, "Settings file %s is not a complete settings document", fileName.c_str());
        return false;
    }
    try {
        apply(reader);
        return true;
    } catch (const std::exception& error) {
        LOG(Error, "Could not apply settings file %s: %s", fileName.c_str(), error.what());
        return false;
    }
}

// Moves a damaged ".current.stp" aside, where no save replaces it; an earlier
// damaged file gives way.
void SettingsLoader::keepDamagedFile() {
    const std::string damaged = folder.damagedPath();
    std::error_code error;
    std::filesystem::remove_all(damaged, error);
    std::filesystem::rename(folder.currentPath(), damaged, error);
    if (error) {
        LOG(Error, "Could not keep the damaged settings file aside: %s", error.message().c_str());
    } else {
        LOG(Error, "The damaged settings file is kept as %s",
            SettingsFolder::damagedFileName().c_str());
    }
}

bool SettingsLoader::apply(const std::string& text) {
    Json reader;
    if (!reader.parse(text)) {
        printJsonError(reader.errorPosition, text);
        return false;
    }
    return apply(reader);
}

// Unsubscribed from everything while storing, so that the service does not
// hear its own writes.
bool SettingsLoader::apply(const Json& reader) {
    gen::getServerConnection()->postEvent(Notify{UnsubscribeAll, 0, 0});
    bool result = true;
    for (const auto& [key, value] : reader.items) {
        if (key.rfind(PRODUCT_PREFIX, 0) == 0) {
            continue;
        }
        if (!applyValue(key, value.value, reader.items)) {
            result = false;
        }
    }
    gen::subscribeNotifications();
    return result;
}

// Stores `value` into the persistent variable named `key` (names are unique in
// a memory); false when a setter reported an error.  Values out of range are
// logged and skipped, unknown names are passed over.
bool SettingsLoader::applyValue(const std::string& key, const std::string& text,
                                const std::vector<Json::Item>& document) {
    const std::optional<uint32_t> found = Introspection::findVarIndex(memory, key);
    if (!found) {
        return true;
    }
    const uint32_t variable = *found;
    const uint32_t baseType = Introspection::getVarBaseType(memory, variable);
    const std::string value = isQuotedInDocument(baseType) ? DocumentText::unescape(text) : text;
    std::string error;
    if (!Introspection::checkMinMax(memory, variable, rangeCheckText(baseType, value), error)) {
        LOG(Error, "The value of variable: %s is out of range!", key.c_str());
        if (!error.empty()) {
            LOG(Error, "%s", error.c_str());
        } else {
            LOG(Error, "Value must be between min: %s and max: %s, but is: %s",
                Introspection::getVarMin(memory, variable).c_str(),
                Introspection::getVarMax(memory, variable).c_str(), value.c_str());
        }
        return true;
    }
    if (baseType != BaseStruct) {
        error = Introspection::setVarValue(memory, variable, value.c_str());
    } else if (!Introspection::isArray(memory, variable)) {
        // A struct's fields are looked up among the document's top-level members.
        error = Introspection::setVarValueJson(memory, variable, document, 0);
    } else {
        error = setStructArray(variable, value);
    }
    if (!error.empty()) {
        LOG(Warn, "Could not set %s to %s : %s", key.c_str(), value.c_str(), error.c_str());
        return false;
    }
    return true;
}

// Stores the elements of a struct array given as a JSON array of objects whose
// fields each hold a member "value"; the setters' error texts, joined.
std::string SettingsLoader::setStructArray(uint32_t variable, const std::string& value) {
    std::string errors;
    Json array;
    if (!array.parse(value)) {
        printJsonError(array.errorPosition, value);
        return errors;
    }
    const std::vector<Json::Item> elements = array.items;
    for (std::size_t element = 0; element < elements.size(); ++element) {
        const std::string& elementText = elements[element].second.value;
        Json fields;
        if (!fields.parse(elementText)) {
            printJsonError(fields.errorPosition, elementText);
            continue;
        }
        for (const auto& [field, fieldValue] : fields.items) {
            Json member;
            if (!member.parse(fieldValue.value)) {
                printJsonError(member.errorPosition, fieldValue.value);
                continue;
            }
            const Json::ObjectValue* found = member.find("value");
            if (found == nullptr) {
                errors += field + ": no \"value\"";
                continue;
            }
            Json::ObjectValue stored = *found;
            if (!stored.isObject) {
                stored.value = DocumentText::unescape(stored.value);
            }
            const std::vector<Json::Item> list{{field, stored}};
            errors +=
                Introspection::setVarValueJson(memory, variable, list, static_cast<int>(element));
        }
    }
    return errors;
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
        store.saveCurrent();
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
    if (!gen::memGuiLocal().FactoryReset) {
        return;
    }
    LOG(LogLight, "Factory reset started");
    try {
        emptyFolder();
    } catch (const std::exception& error) {
        LOG(Error, "Factory reset could not empty the settings folder: %s", error.what());
    }
    apply(defaultsDocument());
    setFlag(gen::memGuiLocal().FactoryReset, VarFactoryResetChanged, false);
    LOG(LogLight, "Factory reset done");
}
