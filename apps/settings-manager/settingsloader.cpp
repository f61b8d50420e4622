// Reading settings documents into MemPersistent: loading a file, applying a
// document with range checks, reporting parse errors, capturing the defaults
// and the factory reset.
#include "settingsmanager.h"

#include "constants.h"
#include "flagvariable.h"
#include "introspection.h"
#include "json.h"
#include "log.h"
#include "records.h"

#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

namespace {

// Characters of a parse error's excerpt that stand before the error position.
constexpr int EXCERPT_LEAD = 20;
constexpr std::size_t EXCERPT_LENGTH = 41;
// Keys of the product information, written into every document but never read back.
constexpr const char* PRODUCT_PREFIX = "Product";

} // namespace

std::string SettingsManager::currentFileName() {
    return std::string(Constants::CURRENT_USERSETTINGS_FILE) + Constants::SETUPS_EXTENSION;
}

bool SettingsManager::loadSetting(const std::string& fileName, bool storeAfterLoad) {
    std::ifstream file(settingsPath + fileName);
    if (!file.is_open()) {
        setFlag(gen::memDeviceState().FileNotFound, VarFileNotFoundChanged, true);
        LOG(Error, "Could not open settings file: %s", fileName.c_str());
        return false;
    }
    std::stringstream document;
    document << file.rdbuf();
    const bool result = parseJsonStringStreamAndSetValues(document);
    file.close();
    if (storeAfterLoad) {
        storeToMemory(Constants::CURRENT_USERSETTINGS_FILE);
    }
    return result;
}

bool SettingsManager::parseJsonStringStreamAndSetValues(const std::stringstream& document) {
    const std::string text = document.str();
    Json reader;
    if (!reader.parse(text)) {
        printJsonError(reader.errorPosition, text);
        return false;
    }
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

// Stores `value` into every persistent variable named `key`; false when a
// setter reported an error.  Values out of range are logged and skipped.
bool SettingsManager::applyValue(const std::string& key, const std::string& value,
                                 const std::vector<Json::Item>& document) {
    const uint32_t memory = persistentMemoryIndex;
    bool result = true;
    const uint32_t count = Introspection::getVarCount(memory);
    for (uint32_t variable = 0; variable < count; ++variable) {
        if (key != Introspection::getVarName(memory, variable)) {
            continue;
        }
        std::string error;
        if (!Introspection::checkMinMax(memory, variable, value, error)) {
            LOG(Error, "The value of variable: %s is out of range!", key.c_str());
            if (!error.empty()) {
                LOG(Error, "%s", error.c_str());
            } else {
                LOG(Error, "Value must be between min: %s and max: %s, but is: %s",
                    Introspection::getVarMin(memory, variable).c_str(),
                    Introspection::getVarMax(memory, variable).c_str(), value.c_str());
            }
            continue;
        }
        if (Introspection::getVarBaseType(memory, variable) != BaseStruct) {
            error = Introspection::setVarValue(memory, variable, value.c_str());
        } else if (!Introspection::isArray(memory, variable)) {
            // A struct's fields are looked up among the document's top-level members.
            error = Introspection::setVarValueJson(memory, variable, document, 0);
        } else {
            error = setStructArray(variable, value);
        }
        if (!error.empty()) {
            LOG(Warn, "Could not set %s to %s : %s", key.c_str(), value.c_str(), error.c_str());
            result = false;
        }
    }
    return result;
}

// Stores the elements of a struct array given as a JSON array of objects whose
// fields each hold a member "value"; the setters' error texts, joined.
std::string SettingsManager::setStructArray(uint32_t variable, const std::string& value) {
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
            const std::vector<Json::Item> list{{field, member["value"]}};
            errors += Introspection::setVarValueJson(persistentMemoryIndex, variable, list,
                                                     static_cast<int>(element));
        }
    }
    return errors;
}

void SettingsManager::printJsonError(int position, const std::string& text) {
    LOG(Error, "JSON parse error at %d", position);
    const std::string excerpt =
        text.substr(static_cast<std::size_t>(position - EXCERPT_LEAD), EXCERPT_LENGTH);
    LOG(Error, "%s", excerpt.c_str());
    LOG(Error, "                    ^ here");
}

void SettingsManager::getDefaultSettings() {
    defaults = getCurrentValues();
    if (isMissing(settingsPath + currentFileName())) {
        storeToMemory(Constants::CURRENT_USERSETTINGS_FILE);
    }
}

void SettingsManager::factoryReset() {
    if (!gen::memGuiLocal().FactoryReset) {
        return;
    }
    LOG(LogLight, "Factory reset started");
    navigator.removeAll();
    parseJsonStringStreamAndSetValues(defaults);
    setFlag(gen::memGuiLocal().FactoryReset, VarFactoryResetChanged, false);
    LOG(LogLight, "Factory reset done");
}
