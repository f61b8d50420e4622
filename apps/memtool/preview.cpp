// memtool preview: what loading a settings document (".stp") into this
// release would do to each of its keys, storing nothing.
//
// The document is applied exactly as the settings service applies it
// (apps/common/migration), but to a private copy of MemPersistent holding its
// defaults and with every change event held back: no memory of the device is
// opened, nothing is posted, no file is written.  A document that cannot be
// read whole is read line by line, as the service reads a damaged
// ".current.stp" that has no usable backup, and the lines that cannot be read
// are listed.
#include "commands.h"
#include "documenttext.h"
#include "migration.h"
#include "settings-service/introspection.h"
#include "settings-service/memories.h"
#include "settings-service/serverconnection.h"

#include <nlohmann/json.hpp>

#include <array>
#include <cstdio>
#include <fstream>
#include <iostream>
#include <iterator>
#include <map>
#include <sstream>

namespace {

// The categories of Migration::category with their names in JSON, in the
// order of the summary.
constexpr std::array<std::pair<const char*, const char*>, 7> CATEGORIES = {{
    {"stored", "stored"},
    {"former name", "formerName"},
    {"mapped entry", "mappedEntry"},
    {"clamped", "clamped"},
    {"retired", "retired"},
    {"kept aside", "keptAside"},
    {"skipped", "skipped"},
}};

const char* jsonName(const std::string& category) {
    for (const auto& [name, json] : CATEGORIES) {
        if (category == name) {
            return json;
        }
    }
    return "";
}

Result<std::string> readDocument(const std::string& fileName) {
    std::ostringstream text;
    if (fileName == "-") {
        text << std::cin.rdbuf();
        return text.str();
    }
    std::ifstream file(fileName, std::ios::binary);
    if (!file) {
        return failure("cannot open " + fileName);
    }
    text << file.rdbuf();
    return text.str();
}

// Parse errors of struct elements are part of the setter's verdict, which
// the results carry; nothing is logged.
class Quiet : public Migration::Report {
public:
    void parseError(int, const std::string&) override {}
    void keyDone(const Migration::KeyResult&) override {}
};

struct Preview {
    bool complete = true;
    std::vector<std::pair<int, std::string>> unreadable;
    std::vector<Migration::KeyResult> results;
};

Result<Preview> preview(uint32_t memory, const std::string& text, const std::string& fileName) {
    Preview result;
    Json reader;
    std::vector<Json::Item> items;
    if (reader.parse(text) && DocumentText::isCompleteDocument(reader, text)) {
        items = reader.items;
    } else {
        result.complete = false;
        DocumentText::Lines lines = DocumentText::readLines(text);
        if (lines.items.empty()) {
            return failure(fileName + " is not a settings document: no line of it can be read");
        }
        items = std::move(lines.items);
        result.unreadable = std::move(lines.unreadable);
    }
    std::vector<uint8_t> record = gen::defaultImage(memory);
    gen::setMemoryBase(memory, record.data());
    const PostingSuspended quiet;
    Quiet report;
    result.results = Migration::apply(memory, items, report);
    gen::setMemoryBase(memory, nullptr);
    return result;
}

void printText(uint32_t memory, const Preview& preview, const std::string& fileName) {
    if (!preview.complete) {
        std::printf("%s is not a complete settings document; it is read line by line\n",
                    fileName.c_str());
        for (const auto& [number, line] : preview.unreadable) {
            std::printf("line %d cannot be read: %s\n", number, line.c_str());
        }
    }
    std::map<std::string, unsigned> counts;
    for (const Migration::KeyResult& result : preview.results) {
        std::printf("%s\n", Migration::describe(memory, result).c_str());
        ++counts[Migration::category(result)];
    }
    std::string summary;
    for (const auto& [name, json] : CATEGORIES) {
        summary += (summary.empty() ? "" : ", ") + std::to_string(counts[name]) + " " + name;
    }
    std::printf("%zu keys: %s\n", preview.results.size(), summary.c_str());
}

nlohmann::ordered_json optionalText(const std::string& text) {
    return text.empty() ? nlohmann::ordered_json(nullptr) : nlohmann::ordered_json(text);
}

void printJson(uint32_t memory, const Preview& preview, const std::string& fileName) {
    nlohmann::ordered_json counts = nlohmann::ordered_json::object();
    for (const auto& [name, json] : CATEGORIES) {
        counts[json] = 0;
    }
    nlohmann::ordered_json keys = nlohmann::ordered_json::array();
    for (const Migration::KeyResult& result : preview.results) {
        const char* category = jsonName(Migration::category(result));
        counts[category] = counts[category].get<unsigned>() + 1;
        const bool stored = result.outcome == Migration::Outcome::Stored ||
                            result.outcome == Migration::Outcome::Clamped;
        keys.push_back({
            {"key", result.key},
            {"outcome", category},
            {"variable", result.variable ? nlohmann::ordered_json(
                                               Introspection::getVarName(memory, *result.variable))
                                         : nlohmann::ordered_json(nullptr)},
            {"value", result.value},
            {"stored", stored ? nlohmann::ordered_json(result.applied) : nullptr},
            {"formerEntry", optionalText(result.formerEntry)},
            {"reason", optionalText(result.reason)},
            {"description", Migration::describe(memory, result)},
        });
    }
    nlohmann::ordered_json unreadable = nlohmann::ordered_json::array();
    for (const auto& [number, line] : preview.unreadable) {
        unreadable.push_back({{"line", number}, {"text", line}});
    }
    const nlohmann::ordered_json document = {
        {"file", fileName},
        {"complete", preview.complete},
        {"unreadableLines", unreadable},
        {"keys", keys},
        {"counts", counts},
    };
    std::printf(
        "%s\n",
        document.dump(1, ' ', false, nlohmann::ordered_json::error_handler_t::replace).c_str());
}

} // namespace

Result<int> previewDocument(Device&, const Arguments& arguments) {
    TRY(arguments.expectPositional(1, 1));
    const std::string& fileName = arguments.positional()[0];
    const std::string text = TRY(readDocument(fileName));
    const uint32_t memory = Introspection::getMemIndex("MemPersistent");
    const Preview result = TRY(preview(memory, text, fileName));
    if (arguments.has("--json")) {
        printJson(memory, result, fileName);
    } else {
        printText(memory, result, fileName);
    }
    return ExitSuccess;
}
