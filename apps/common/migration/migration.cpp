#include "migration.h"

#include "documentformat.h"
#include "documenttext.h"
#include "history.h"
#include "settings-service/catalogue.h"
#include "settings-service/introspection.h"
#include "settings-service/valuecodec.h"

namespace Migration {

namespace {

// Keys of the product information, written into every document but never read back.
constexpr std::string_view PRODUCT_PREFIX = "Product";

bool clamps(uint32_t memory, uint32_t variable) {
    for (uint32_t row = 0; row < gen::CLAMPED_VARIABLE_COUNT; ++row) {
        const gen::ClampedVariable& entry = gen::CLAMPED_VARIABLES[row];
        if (entry.memory == memory && entry.variable == variable) {
            return true;
        }
    }
    return false;
}

std::string rangeText(uint32_t memory, uint32_t variable) {
    return Introspection::getVarMin(memory, variable) + ".." +
           Introspection::getVarMax(memory, variable);
}

void keepAside(KeyResult& result, std::string reason) {
    result.outcome = Outcome::KeptAside;
    result.reason = std::move(reason);
}

// The struct member named `name` of the variable, or null.
const StructInfo* memberNamed(uint32_t memory, uint32_t variable, const std::string& name) {
    const StructMembers* members = Catalogue::variable(memory, variable).structMembers;
    if (members == nullptr) {
        return nullptr;
    }
    for (const StructInfo& member : *members) {
        if (name == member.name) {
            return &member;
        }
    }
    return nullptr;
}

// Reads a former entry of an enum member as the entry it is now; the first
// mapping is noted in the result.
void mapMemberEntry(uint32_t memory, uint32_t variable, const std::string& field, std::string& text,
                    KeyResult& result) {
    const StructInfo* member = memberNamed(memory, variable, field);
    if (member == nullptr || member->baseType != BaseEnum) {
        return;
    }
    if (const std::optional<std::string> now = currentEntry(member->typeName, text)) {
        if (result.formerEntry.empty()) {
            result.formerEntry = text;
            result.entryNow = *now;
        }
        text = *now;
    }
}

// The document with the struct's enum members (which a single struct takes
// from the document's top level) read as their entries now.
std::vector<Json::Item> mappedMembers(uint32_t memory, uint32_t variable,
                                      const std::vector<Json::Item>& document, KeyResult& result) {
    std::vector<Json::Item> members = document;
    for (auto& [field, value] : members) {
        if (!value.isObject) {
            mapMemberEntry(memory, variable, field, value.value, result);
        }
    }
    return members;
}

// Stores the elements of a struct array given as a JSON array of objects whose
// fields each hold a member "value"; the setters' error texts, joined.
std::string storeStructArray(uint32_t memory, uint32_t variable, const std::string& value,
                             Report& report, KeyResult& result) {
    std::string errors;
    Json array;
    if (!array.parse(value)) {
        report.parseError(array.errorPosition, value);
        return errors;
    }
    const std::vector<Json::Item> elements = array.items;
    for (std::size_t element = 0; element < elements.size(); ++element) {
        const std::string& elementText = elements[element].second.value;
        Json fields;
        if (!fields.parse(elementText)) {
            report.parseError(fields.errorPosition, elementText);
            continue;
        }
        for (const auto& [field, fieldValue] : fields.items) {
            Json member;
            if (!member.parse(fieldValue.value)) {
                report.parseError(member.errorPosition, fieldValue.value);
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
                mapMemberEntry(memory, variable, field, stored.value, result);
            }
            const std::vector<Json::Item> list{{field, stored}};
            errors +=
                Introspection::setVarValueJson(memory, variable, list, static_cast<int>(element));
        }
    }
    return errors;
}

std::string withoutTrailingLineFeeds(std::string text) {
    while (!text.empty() && text.back() == '\n') {
        text.pop_back();
    }
    return text;
}

} // namespace

Target resolve(uint32_t memory, std::string_view key) {
    Target target;
    if (key.substr(0, PRODUCT_PREFIX.size()) == PRODUCT_PREFIX) {
        target.kind = Target::Kind::Product;
        return target;
    }
    if (const std::optional<uint32_t> variable = Introspection::findVarIndex(memory, key)) {
        target.kind = Target::Kind::Variable;
        target.variable = *variable;
        return target;
    }
    for (uint32_t row = 0; row < gen::FORMER_NAME_COUNT; ++row) {
        const gen::FormerName& entry = gen::FORMER_NAMES[row];
        if (entry.memory == memory && key == entry.name) {
            target.kind = Target::Kind::FormerName;
            target.variable = entry.variable;
            return target;
        }
    }
    for (uint32_t row = 0; row < gen::RETIRED_VARIABLE_COUNT; ++row) {
        const gen::RetiredVariable& entry = gen::RETIRED_VARIABLES[row];
        if (entry.memory == memory && key == entry.name) {
            target.kind = Target::Kind::Retired;
            target.reason = entry.reason;
            return target;
        }
    }
    return target;
}

bool hasFormerEntries() {
    return gen::FORMER_ENTRY_COUNT > 0;
}

std::vector<const char*> formerNames(uint32_t memory, uint32_t variable) {
    std::vector<const char*> names;
    for (uint32_t row = 0; row < gen::FORMER_NAME_COUNT; ++row) {
        const gen::FormerName& entry = gen::FORMER_NAMES[row];
        if (entry.memory == memory && entry.variable == variable) {
            names.push_back(entry.name);
        }
    }
    return names;
}

std::optional<std::string> currentEntry(std::string_view enumName, std::string_view text) {
    const std::optional<uint32_t> found = Catalogue::findEnum(enumName);
    if (!found) {
        return std::nullopt;
    }
    for (uint32_t row = 0; row < gen::FORMER_ENTRY_COUNT; ++row) {
        const gen::FormerEntry& entry = gen::FORMER_ENTRIES[row];
        if (entry.enumIndex == *found && text == entry.name) {
            return Catalogue::tables().enums[*found].entries[entry.entry];
        }
    }
    return std::nullopt;
}

const char* formerEntry(std::string_view enumName, std::string_view entryName) {
    const std::optional<uint32_t> found = Catalogue::findEnum(enumName);
    if (!found) {
        return nullptr;
    }
    const EnumInfo& info = Catalogue::tables().enums[*found];
    for (uint32_t row = 0; row < gen::FORMER_ENTRY_COUNT; ++row) {
        const gen::FormerEntry& entry = gen::FORMER_ENTRIES[row];
        if (entry.enumIndex == *found && entry.entry < info.entryCount &&
            entryName == info.entries[entry.entry]) {
            return entry.name;
        }
    }
    return nullptr;
}

std::string inFormerEntries(uint32_t memory, uint32_t variable, const std::string& text) {
    const uint32_t baseType = Introspection::getVarBaseType(memory, variable);
    if (baseType == BaseEnum && !Introspection::isArray(memory, variable)) {
        const char* former = formerEntry(Introspection::getVarType(memory, variable), text);
        return former ? former : text;
    }
    if (baseType != BaseStruct) {
        return text;
    }
    // A struct's enum members are written as IntrospectionEnum::printEnum writes them.
    std::string result = text;
    for (uint32_t row = 0; row < gen::FORMER_ENTRY_COUNT; ++row) {
        const gen::FormerEntry& entry = gen::FORMER_ENTRIES[row];
        const EnumInfo& info = Catalogue::tables().enums[entry.enumIndex];
        if (formerEntry(info.name, info.entries[entry.entry]) != std::string_view(entry.name)) {
            continue;
        }
        const std::string tail = std::string("\", \"type\": \"") + info.name + "\"";
        const std::string now = std::string("{ \"value\": \"") + info.entries[entry.entry] + tail;
        const std::string before = std::string("{ \"value\": \"") + entry.name + tail;
        for (std::size_t at = result.find(now); at != std::string::npos;
             at = result.find(now, at + before.size())) {
            result.replace(at, now.size(), before);
        }
    }
    return result;
}

const char* category(const KeyResult& result) {
    switch (result.outcome) {
    case Outcome::Clamped:
        return "clamped";
    case Outcome::Retired:
        return "retired";
    case Outcome::KeptAside:
        return "kept aside";
    case Outcome::Skipped:
        return "skipped";
    case Outcome::Stored:
        break;
    }
    if (!result.formerEntry.empty()) {
        return "mapped entry";
    }
    return result.byFormerName ? "former name" : "stored";
}

std::string describe(uint32_t memory, const KeyResult& result) {
    const std::string head = result.key + ": ";
    switch (result.outcome) {
    case Outcome::Skipped:
        return head + "skipped, product information is never loaded";
    case Outcome::Retired:
        return head + "not stored, the variable was retired (" + result.reason + ")";
    case Outcome::KeptAside:
        return head + "kept aside, " + result.reason;
    case Outcome::Stored:
    case Outcome::Clamped:
        break;
    }
    std::string text;
    const auto add = [&text](const std::string& part) {
        text += (text.empty() ? "" : "; ") + part;
    };
    if (result.byFormerName) {
        add(std::string("read as ") + Introspection::getVarName(memory, *result.variable) +
            ", its former name");
    }
    if (!result.formerEntry.empty()) {
        add("former entry " + result.formerEntry + " read as " + result.entryNow);
    }
    if (result.outcome == Outcome::Clamped) {
        add(result.value + " is outside " + rangeText(memory, *result.variable) +
            ", stored the nearest bound " + result.applied);
    }
    return head + (text.empty() ? "stored" : text);
}

KeyResult plan(uint32_t memory, const std::string& key, const std::string& value,
               const std::vector<Json::Item>& document, bool clamp) {
    KeyResult result;
    result.key = key;
    result.value = value;
    const Target target = resolve(memory, key);
    switch (target.kind) {
    case Target::Kind::Product:
        result.outcome = Outcome::Skipped;
        return result;
    case Target::Kind::Unknown:
        keepAside(result, "no variable of that name");
        return result;
    case Target::Kind::Retired:
        result.outcome = Outcome::Retired;
        result.reason = target.reason;
        return result;
    case Target::Kind::FormerName:
    case Target::Kind::Variable:
        break;
    }
    const uint32_t variable = target.variable;
    result.variable = variable;
    if (target.kind == Target::Kind::FormerName) {
        result.byFormerName = true;
        const std::string name = Introspection::getVarName(memory, variable);
        for (const auto& item : document) {
            if (item.first == name) {
                keepAside(result, "the current name " + name + " is in the document too");
                return result;
            }
        }
    }
    const uint32_t baseType = Introspection::getVarBaseType(memory, variable);
    std::string text = isQuotedInDocument(baseType) ? DocumentText::unescape(value) : value;
    if (baseType == BaseEnum && !Introspection::isArray(memory, variable)) {
        if (const std::optional<std::string> now =
                currentEntry(Introspection::getVarType(memory, variable), text)) {
            result.formerEntry = text;
            result.entryNow = *now;
            text = *now;
        }
    }
    result.applied = text;
    std::string error;
    if (!Introspection::checkMinMax(memory, variable, ValueCodec::storedValueText(baseType, text),
                                    error)) {
        std::optional<std::string> bound;
        if (error.empty() && clamp && clamps(memory, variable)) {
            const VariableDescriptor& entry = Catalogue::variable(memory, variable);
            bound = ValueCodec::nearestBound(baseType, entry.min, entry.max, text);
        }
        if (bound) {
            result.outcome = Outcome::Clamped;
            result.applied = *bound;
            return result;
        }
        result.outOfRange = true;
        result.rangeError = error;
        keepAside(result, error.empty() ? "outside " + rangeText(memory, variable)
                                        : withoutTrailingLineFeeds(error));
    }
    return result;
}

bool store(uint32_t memory, KeyResult& result, const std::vector<Json::Item>& document,
           Report& report) {
    if (result.outcome != Outcome::Stored && result.outcome != Outcome::Clamped) {
        return true;
    }
    const uint32_t variable = *result.variable;
    std::string error;
    if (Introspection::getVarBaseType(memory, variable) != BaseStruct) {
        error = Introspection::setVarValue(memory, variable, result.applied.c_str());
    } else if (!Introspection::isArray(memory, variable)) {
        // A struct's fields are looked up among the document's top-level members.
        error = Introspection::setVarValueJson(
            memory, variable, mappedMembers(memory, variable, document, result), 0);
    } else {
        error = storeStructArray(memory, variable, result.applied, report, result);
    }
    if (error.empty()) {
        return true;
    }
    result.setterError = error;
    keepAside(result, error);
    return false;
}

std::vector<KeyResult> apply(uint32_t memory, const std::vector<Json::Item>& document,
                             Report& report) {
    std::vector<KeyResult> results;
    results.reserve(document.size());
    for (const auto& [key, value] : document) {
        KeyResult result = plan(memory, key, value.value, document);
        store(memory, result, document, report);
        report.keyDone(result);
        results.push_back(std::move(result));
    }
    return results;
}

} // namespace Migration
