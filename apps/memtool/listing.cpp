// memtool memories, memtool vars: the catalogue as a table or as JSON.
#include "commands.h"
#include "device.h"
#include "introspection.h"
#include "names.h"

#include <nlohmann/json.hpp>

#include <cstdio>
#include <iostream>

namespace {

using Ordered = nlohmann::ordered_json;

// Strings and structs have no range worth showing.
bool hasRange(uint32_t base) {
    return base == BaseInt || base == BaseFloat || base == BaseBool || base == BaseEnum;
}

} // namespace

int listMemories(const Arguments& arguments) {
    arguments.expectPositional(0, 0);
    Ordered list = Ordered::array();
    for (uint32_t memory = 0; memory < Introspection::getMemCount(); ++memory) {
        list.push_back({{"index", memory},
                        {"name", Introspection::getMemName(memory)},
                        {"variables", Introspection::getVarCount(memory)},
                        {"present", memoryExists(memory)}});
    }
    if (arguments.has("--json")) {
        std::cout << list.dump(2) << '\n';
        return ExitSuccess;
    }
    for (const Ordered& row : list) {
        std::printf("%2u  %-20s %4u variables  %s\n", row["index"].get<unsigned>(),
                    row["name"].get<std::string>().c_str(), row["variables"].get<unsigned>(),
                    row["present"].get<bool>() ? "present" : "absent");
    }
    return ExitSuccess;
}

int listVariables(const Arguments& arguments) {
    arguments.expectPositional(1, 1);
    const uint32_t memory = findMemory(arguments.positional()[0]);
    Ordered list = Ordered::array();
    for (uint32_t variable = 0; variable < Introspection::getVarCount(memory); ++variable) {
        const Notify event = Introspection::getVarEvent(memory, variable);
        const uint32_t base = Introspection::getVarBaseType(memory, variable);
        Ordered row = {{"index", variable},
                       {"name", Introspection::getVarName(memory, variable)},
                       {"type", Introspection::getVarType(memory, variable)},
                       {"arrayLength", nullptr},
                       {"min", nullptr},
                       {"max", nullptr},
                       {"event", EVENT_NAME[event.id]},
                       {"eventId", event.id}};
        if (Introspection::isArray(memory, variable)) {
            row["arrayLength"] = Introspection::getElementCount(memory, variable);
        }
        if (hasRange(base)) {
            row["min"] = Introspection::getVarMin(memory, variable);
            row["max"] = Introspection::getVarMax(memory, variable);
        }
        list.push_back(row);
    }
    if (arguments.has("--json")) {
        std::cout << list.dump(2) << '\n';
        return ExitSuccess;
    }
    for (const Ordered& row : list) {
        const std::string array =
            row["arrayLength"].is_null() ? "-" : std::to_string(row["arrayLength"].get<int>());
        const std::string range = row["min"].is_null() ? "-"
                                                       : row["min"].get<std::string>() + ".." +
                                                             row["max"].get<std::string>();
        std::printf("%3u  %-36s %-28s %5s  %-24s %4u %s\n", row["index"].get<unsigned>(),
                    row["name"].get<std::string>().c_str(), row["type"].get<std::string>().c_str(),
                    array.c_str(), range.c_str(), row["eventId"].get<unsigned>(),
                    row["event"].get<std::string>().c_str());
    }
    return ExitSuccess;
}
