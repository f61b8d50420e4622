// Documents of every recorded release, loaded at start into this release, as a
// database loads the data of each older version: for each snapshot of the
// model's releases/ folder, documents written as that release wrote them, with
// a non-default value in every persistent variable (every enum entry at least
// once over the documents, ints and floats at both bounds of their ranges,
// strings at their full length, buffers and struct arrays filled).  Every key
// must end stored (its value read back, through a former name or a former
// entry where the model says so), clamped, or kept aside in
// ".current.stp.kept" with its value as it stood: none silently gone.
#include "documentformat.h"
#include "documenttext.h"
#include "keptsettings.h"
#include "migration.h"
#include "servicefixture.h"
#include "settings-service/introspection.h"
#include "settingsfolder.h"

#include <nlohmann/json.hpp>

#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <map>

using namespace servicetest;
using Snapshot = nlohmann::json;

namespace {

// A document's value text of a float, as the getter prints it.
std::string floatText(double value) {
    char text[64];
    std::snprintf(text, sizeof text, "%f", static_cast<float>(value));
    return text;
}

double number(const nlohmann::json& text, double fallback) {
    return text.is_string() ? std::stod(text.get<std::string>()) : fallback;
}

// Full-length text of `capacity` bytes (the terminator included); in odd
// documents with the characters that the document escapes.
std::string fullText(std::size_t capacity, std::size_t document) {
    std::string text;
    const std::string special = document % 2 == 1 ? "\"\\[]{}" : "";
    for (std::size_t at = 0; at + 1 < capacity; ++at) {
        text += at < special.size() ? special[at] : static_cast<char>('a' + (at + document) % 26);
    }
    return text;
}

class ReleaseDocument {
public:
    ReleaseDocument(const Snapshot& snapshot, std::size_t number)
        : snapshot(snapshot), document(number) {}

    // The value text of a variable or member of kind and type as a document
    // holds it (strings escaped, `nested` inside a struct value).
    std::string value(const nlohmann::json& field, bool nested) const {
        const std::string kind = field["kind"];
        if (kind == "int" || kind == "float") {
            return numberText(field);
        }
        if (kind == "bool") {
            const bool fallback = field.contains("default") && field["default"].is_boolean() &&
                                  field["default"].get<bool>();
            return fallback ? "false" : "true";
        }
        if (kind == "enum") {
            const nlohmann::json& entries = enumEntries(field["type"]);
            std::size_t first = 0;
            if (field.contains("default") && field["default"].is_string()) {
                first = std::find(entries.begin(), entries.end(), field["default"]) -
                        entries.begin() + 1;
            }
            return entries[(first + document) % entries.size()];
        }
        if (kind == "string") {
            return DocumentText::escape(fullText(field["capacity"], document), nested);
        }
        if (kind == "buffer") {
            std::string hex;
            char digits[3];
            for (std::size_t at = 0; at < field["capacity"].get<std::size_t>(); ++at) {
                std::snprintf(digits, sizeof digits, "%02x",
                              static_cast<unsigned>((at + document + 1) % 256));
                hex += digits;
            }
            return hex;
        }
        ADD_FAILURE() << "no document value for " << field.dump();
        return "";
    }

    // A struct element: each member an object with its "value".
    std::string element(const std::string& type, std::size_t index) const {
        std::string text = "{";
        for (const nlohmann::json& member : structMembers(type)) {
            if (text.size() > 1) {
                text += ", ";
            }
            ReleaseDocument shifted(snapshot, document + index);
            text += "\"" + member["name"].get<std::string>() + "\": {\"value\": \"" +
                    shifted.value(member, true) + "\"}";
        }
        return text + "}";
    }

    // The line value of a persistent variable.
    std::string line(const nlohmann::json& variable) const {
        const std::string kind = variable["kind"];
        if (kind == "struct") {
            EXPECT_FALSE(variable["count"].is_null())
                << variable["name"] << ": a single struct in MemPersistent is not written here";
            std::string text = "[";
            for (std::size_t index = 0; index < variable["count"].get<std::size_t>(); ++index) {
                text += (index > 0 ? "," : "") + element(variable["type"], index);
            }
            return text + "]";
        }
        const std::string text = value(variable, false);
        return kind == "int" || kind == "float" || kind == "bool" ? text : "\"" + text + "\"";
    }

    const nlohmann::json& enumEntries(const std::string& name) const {
        for (const nlohmann::json& entry : snapshot["enums"]) {
            if (entry["name"] == name) {
                return entry["entries"];
            }
        }
        throw std::runtime_error("no enum " + name);
    }

    const nlohmann::json& structMembers(const std::string& name) const {
        for (const nlohmann::json& entry : snapshot["structs"]) {
            if (entry["name"] == name) {
                return entry["members"];
            }
        }
        throw std::runtime_error("no struct " + name);
    }

private:
    // Both bounds of a range over the documents (the one that is not the
    // default first); a value beside the default where there is no range.
    std::string numberText(const nlohmann::json& field) const {
        const bool isInt = field["kind"] == "int";
        const double fallback = field.contains("default") && field["default"].is_number()
                                    ? field["default"].get<double>()
                                    : 0.0;
        std::vector<double> candidates;
        if (field.contains("min") && (!field["min"].is_null() || !field["max"].is_null())) {
            const double low = number(field["min"], isInt ? -2147483648.0 : 1.17549435e-38);
            const double high = number(field["max"], isInt ? 2147483647.0 : 3.40282347e38);
            candidates = high != fallback ? std::vector{high, low} : std::vector{low, high};
        } else {
            candidates = {fallback + 1 + static_cast<double>(document)};
        }
        const double chosen = candidates[document % candidates.size()];
        return isInt ? std::to_string(static_cast<long long>(chosen)) : floatText(chosen);
    }

    const Snapshot& snapshot;
    std::size_t document;
};

const nlohmann::json& persistentVariables(const Snapshot& snapshot) {
    for (const nlohmann::json& memory : snapshot["memories"]) {
        if (memory["name"] == "MemPersistent") {
            return memory["variables"];
        }
    }
    throw std::runtime_error("no MemPersistent in the snapshot");
}

// Documents enough for every entry of every enum that a persistent variable
// (or a member of its struct) uses, and for both bounds.
std::size_t documentCount(const Snapshot& snapshot) {
    const ReleaseDocument any(snapshot, 0);
    std::size_t count = 2;
    for (const nlohmann::json& variable : persistentVariables(snapshot)) {
        if (variable["kind"] == "enum") {
            count = std::max(count, any.enumEntries(variable["type"]).size());
        } else if (variable["kind"] == "struct") {
            for (const nlohmann::json& member : any.structMembers(variable["type"])) {
                if (member["kind"] == "enum") {
                    count = std::max(count, any.enumEntries(member["type"]).size());
                }
            }
        }
    }
    return count;
}

// The value `written` as this release reads it: a former enum entry as the
// entry it is now, inside struct elements too.
std::string readAsNow(uint32_t memory, uint32_t variable, const std::string& written);

// The members' values of each struct element of a struct array's document text.
std::vector<std::map<std::string, std::string>> structValues(uint32_t memory, uint32_t variable,
                                                             const std::string& text) {
    std::vector<std::map<std::string, std::string>> elements;
    Json array;
    if (!array.parse(text)) {
        return elements;
    }
    for (const Json::Item& element : array.items) {
        Json fields;
        fields.parse(element.second.value);
        std::map<std::string, std::string> values;
        for (const Json::Item& field : fields.items) {
            Json inner;
            inner.parse(field.second.value);
            const Json::ObjectValue* found = inner.find("value");
            std::string value = found ? DocumentText::unescape(found->value) : "";
            for (const StructInfo& member : *Catalogue::variable(memory, variable).structMembers) {
                if (field.first == member.name && member.baseType == BaseEnum) {
                    value = Migration::currentEntry(member.typeName, value).value_or(value);
                }
            }
            values[field.first] = value;
        }
        elements.push_back(values);
    }
    return elements;
}

std::string readAsNow(uint32_t memory, uint32_t variable, const std::string& written) {
    if (Introspection::getVarBaseType(memory, variable) == BaseEnum) {
        return Migration::currentEntry(Introspection::getVarType(memory, variable), written)
            .value_or(written);
    }
    return written;
}

// True when the variable holds the document's value (struct arrays: every
// member the document gave).
bool holds(uint32_t memory, uint32_t variable, const std::string& written) {
    const std::string now = documentValueText(memory, variable);
    if (Introspection::getVarBaseType(memory, variable) != BaseStruct) {
        return now == readAsNow(memory, variable, written);
    }
    const auto want = structValues(memory, variable, written);
    const auto have = structValues(memory, variable, now);
    if (want.size() > have.size()) {
        return false;
    }
    for (std::size_t element = 0; element < want.size(); ++element) {
        for (const auto& [member, value] : want[element]) {
            const auto found = have[element].find(member);
            if (found == have[element].end() || found->second != value) {
                return false;
            }
        }
    }
    return true;
}

std::vector<std::filesystem::path> snapshots() {
    std::vector<std::filesystem::path> found;
    for (const auto& entry : std::filesystem::directory_iterator(RELEASES_DIR)) {
        if (entry.path().extension() == ".json") {
            found.push_back(entry.path());
        }
    }
    std::sort(found.begin(), found.end());
    return found;
}

} // namespace

class ReleasesTest : public ServiceTest {};

TEST_F(ReleasesTest, EveryKeyOfEveryReleaseEndsStoredClampedOrKeptAside) {
    const std::vector<std::filesystem::path> files = snapshots();
    ASSERT_FALSE(files.empty()) << "no release snapshot in " << RELEASES_DIR;
    const uint32_t memory = Introspection::getMemIndex("MemPersistent");
    for (const std::filesystem::path& file : files) {
        std::ifstream stream(file);
        const Snapshot snapshot = Snapshot::parse(stream);
        const std::size_t count = documentCount(snapshot);
        std::map<std::string, unsigned> outcomes;
        unsigned keys = 0;
        for (std::size_t number = 0; number < count; ++number) {
            const ReleaseDocument writer(snapshot, number);
            std::vector<std::pair<std::string, std::string>> lines;
            std::string text = "{\n";
            for (const nlohmann::json& variable : persistentVariables(snapshot)) {
                const std::string line = writer.line(variable);
                lines.emplace_back(variable["name"], line);
                text += (text.size() > 2 ? ",\n\"" : "\"") + variable["name"].get<std::string>() +
                        "\": " + line;
            }
            text += "\n}";
            service.reset();
            std::filesystem::remove_all(SETUPS);
            std::filesystem::create_directory(SETUPS);
            writeFile(CURRENT, text);
            startService();
            ASSERT_TRUE(service->init());
            SettingsFolder folder;
            KeptSettings keptFile(folder, memory);
            std::map<std::string, std::string> kept;
            for (const KeptSettings::Entry& entry : keptFile.read()) {
                kept[entry.key] = entry.value;
            }
            Json reader;
            ASSERT_TRUE(reader.parse(text));
            for (const auto& [key, value] : reader.items) {
                ++keys;
                const Migration::KeyResult plan =
                    Migration::plan(memory, key, value.value, reader.items);
                const std::string category = Migration::category(plan);
                if (category == "skipped") {
                    EXPECT_EQ(key.rfind("Product", 0), 0u) << key;
                    ++outcomes[category];
                    continue;
                }
                const auto keptValue = kept.find(key);
                if (plan.variable && category != "kept aside" && category != "clamped" &&
                    holds(memory, *plan.variable, value.value)) {
                    ++outcomes[category];
                } else if (keptValue != kept.end() && keptValue->second == value.value) {
                    ++outcomes[category == "stored" ? "kept aside" : category];
                } else {
                    ADD_FAILURE() << file.filename() << ", document " << number << ": " << key
                                  << " = " << value.value << " is silently gone";
                }
            }
        }
        std::string summary;
        for (const char* name : {"stored", "former name", "mapped entry", "clamped", "retired",
                                 "kept aside", "skipped"}) {
            summary += std::string(summary.empty() ? "" : ", ") + std::to_string(outcomes[name]) +
                       " " + name;
        }
        std::printf("release %s: %zu documents, %u keys: %s\n",
                    snapshot["version"].get<std::string>().c_str(), count, keys, summary.c_str());
    }
}
