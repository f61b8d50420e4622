#include "keptsettings.h"

#include "atomicfile.h"
#include "documentformat.h"
#include "documenttext.h"
#include "migration.h"
#include "settings-service/introspection.h"
#include "settings-service/log.h"
#include "settingsfolder.h"

#include <algorithm>
#include <filesystem>
#include <set>

namespace {

constexpr const char* KEPT_SUFFIX = ".kept";

// A key that the settings reader gives back as it is written between double quotes.
bool isKeepable(const std::string& key) {
    return !key.empty() && std::none_of(key.begin(), key.end(), [](char c) {
        const auto byte = static_cast<unsigned char>(c);
        return byte <= ' ' || byte == 0x7f || c == '"' || c == '\'' || c == '\\' || c == ':';
    });
}

std::string line(const KeptSettings::Entry& entry) {
    std::string text =
        "\"" + entry.key + "\": {\"value\": \"" + DocumentText::escape(entry.value, true) + "\"";
    if (entry.instead) {
        text += ", \"instead\": \"" + DocumentText::escape(*entry.instead, true) + "\"";
    }
    return text + "}";
}

std::optional<KeptSettings::Entry> entryOf(const Json::Item& item) {
    Json inner;
    if (!item.second.isObject || !inner.parse(item.second.value)) {
        return std::nullopt;
    }
    const Json::ObjectValue* value = inner.find("value");
    if (value == nullptr || value->isObject) {
        return std::nullopt;
    }
    KeptSettings::Entry entry{item.first, DocumentText::unescape(value->value), std::nullopt};
    if (const Json::ObjectValue* instead = inner.find("instead")) {
        entry.instead = DocumentText::unescape(instead->value);
    }
    return entry;
}

} // namespace

std::string KeptSettings::fileName() {
    return SettingsFolder::currentFileName() + KEPT_SUFFIX;
}

KeptSettings::KeptSettings(const SettingsFolder& folder, uint32_t memory)
    : folder(folder), memory(memory) {}

std::vector<KeptSettings::Entry> KeptSettings::read() {
    const Result<std::string> text = folder.readText(fileName());
    written = text ? *text : std::string();
    known = true;
    if (!text) {
        return {};
    }
    Json reader;
    std::vector<Json::Item> items;
    if (reader.parse(*text) && DocumentText::isCompleteDocument(reader, *text)) {
        items = reader.items;
    } else {
        const DocumentText::Lines lines = DocumentText::readLines(*text);
        LOG(Error, "%s is damaged: %zu entries read, %zu lines could not be read",
            fileName().c_str(), lines.items.size(), lines.unreadable.size());
        items = lines.items;
    }
    std::vector<Entry> entries;
    for (const Json::Item& item : items) {
        if (std::optional<Entry> entry = entryOf(item)) {
            entries.push_back(std::move(*entry));
        }
    }
    return entries;
}

void KeptSettings::set(std::vector<Entry> entries) {
    kept = std::move(entries);
}

void KeptSettings::forget(uint32_t variable) {
    std::erase_if(kept, [this, variable](const Entry& entry) {
        const Migration::Target target = Migration::resolve(memory, entry.key);
        return (target.kind == Migration::Target::Kind::Variable ||
                target.kind == Migration::Target::Kind::FormerName) &&
               target.variable == variable;
    });
}

void KeptSettings::clear() {
    kept.clear();
    written.clear();
    known = true;
}

// The current value of every variable under the names and entries that an
// earlier release knows.
void KeptSettings::formerNameCopies(std::vector<Entry>& copies) const {
    const uint32_t count = Introspection::getVarCount(memory);
    for (uint32_t variable = 0; variable < count; ++variable) {
        const std::vector<const char*> names = Migration::formerNames(memory, variable);
        const uint32_t baseType = Introspection::getVarBaseType(memory, variable);
        const bool entries =
            (baseType == BaseEnum || baseType == BaseStruct) && Migration::hasFormerEntries();
        if (names.empty() && !entries) {
            continue;
        }
        const std::string text = documentValueText(memory, variable);
        const std::string older = Migration::inFormerEntries(memory, variable, text);
        if (older != text) {
            copies.push_back({Introspection::getVarName(memory, variable), older, std::nullopt});
        }
        for (const char* name : names) {
            copies.push_back({name, older, std::nullopt});
        }
    }
}

std::string KeptSettings::content() const {
    std::vector<Entry> copies;
    formerNameCopies(copies);
    std::set<std::string> copied;
    for (const Entry& copy : copies) {
        copied.insert(copy.key);
    }
    std::vector<std::string> lines;
    for (const Entry& entry : kept) {
        if (isKeepable(entry.key) && copied.count(entry.key) == 0) {
            lines.push_back(line(entry));
        }
    }
    for (const Entry& copy : copies) {
        lines.push_back(line(copy));
    }
    if (lines.empty()) {
        return "";
    }
    std::string text = "{\n";
    for (std::size_t number = 0; number < lines.size(); ++number) {
        text += lines[number] + (number + 1 < lines.size() ? ",\n" : "\n");
    }
    return text + "}";
}

Result<void> KeptSettings::save() {
    if (!known) {
        return {};
    }
    const std::string text = content();
    if (text == written) {
        return {};
    }
    const Result<std::string> path = folder.pathOf(fileName());
    if (!path) {
        return {};
    }
    Result<void> saved;
    if (text.empty()) {
        std::error_code removal;
        std::filesystem::remove(*path, removal);
        if (removal) {
            saved = failure("remove " + *path + ": " + removal.message(), removal.value());
        }
    } else {
        saved = AtomicFile::write(*path, text);
    }
    if (!saved) {
        return AtomicFile::saveFailure(fileName(), saved.error());
    }
    written = text;
    return {};
}
