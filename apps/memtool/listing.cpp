// memtool memories, vars, describe and names: the catalogue as a table, as
// JSON, or as bare names for shell completion.
#include "listing.h"
#include "commands.h"
#include "device.h"
#include "jsonvalue.h"
#include "names.h"
#include "settings-service/introspection.h"
#include "variableinfo.h"

#include <cstdio>
#include <iostream>

namespace {

// Ints, floats and bools have a range; an enum's names stand for it.
bool hasRange(uint32_t base) {
    return base == BaseInt || base == BaseFloat || base == BaseBool;
}

Ordered orNull(const std::optional<uint32_t>& number) {
    return number ? Ordered(*number) : Ordered(nullptr);
}

Ordered namesOrNull(const std::vector<std::string>& names) {
    return names.empty() ? Ordered(nullptr) : Ordered(names);
}

std::optional<uint32_t> arrayLength(uint32_t memory, uint32_t variable) {
    if (!Introspection::isArray(memory, variable)) {
        return std::nullopt;
    }
    return Introspection::getElementCount(memory, variable);
}

// What values the variable takes, in words: "1..4", "Default|Filter",
// "63 characters", "64 bytes, hex", "-".
std::string valuesText(uint32_t memory, uint32_t variable) {
    const uint32_t base = Introspection::getVarBaseType(memory, variable);
    if (hasRange(base)) {
        return Introspection::getVarMin(memory, variable) + ".." +
               Introspection::getVarMax(memory, variable);
    }
    if (const std::optional<uint32_t> capacity = stringCapacity(memory, variable)) {
        return isBuffer(memory, variable) ? std::to_string(*capacity) + " bytes, hex"
                                          : std::to_string(*capacity - 1) + " characters";
    }
    std::string names;
    for (const std::string& name : enumNames(memory, variable)) {
        names += (names.empty() ? "" : "|") + name;
    }
    return names.empty() ? "-" : names;
}

void printJson(const Ordered& value) {
    std::cout << value.dump(2) << '\n';
}

void printLines(const std::vector<std::string>& lines) {
    for (const std::string& line : lines) {
        std::printf("%s\n", line.c_str());
    }
}

} // namespace

Ordered memoriesJson(const Device& device) {
    Ordered list = Ordered::array();
    for (uint32_t memory = 0; memory < Introspection::getMemCount(); ++memory) {
        list.push_back({{"index", memory},
                        {"name", Introspection::getMemName(memory)},
                        {"variables", Introspection::getVarCount(memory)},
                        {"present", device.memoryExists(memory)}});
    }
    return list;
}

Ordered variablesJson(uint32_t memory) {
    Ordered list = Ordered::array();
    for (uint32_t variable = 0; variable < Introspection::getVarCount(memory); ++variable) {
        const Notify event = Introspection::getVarEvent(memory, variable);
        const bool range = hasRange(Introspection::getVarBaseType(memory, variable));
        list.push_back({{"index", variable},
                        {"name", Introspection::getVarName(memory, variable)},
                        {"type", Introspection::getVarType(memory, variable)},
                        {"arrayLength", orNull(arrayLength(memory, variable))},
                        {"capacity", orNull(stringCapacity(memory, variable))},
                        {"min", range ? Ordered(Introspection::getVarMin(memory, variable))
                                      : Ordered(nullptr)},
                        {"max", range ? Ordered(Introspection::getVarMax(memory, variable))
                                      : Ordered(nullptr)},
                        {"enum", namesOrNull(enumNames(memory, variable))},
                        {"event", EVENT_NAME[event.id]},
                        {"eventId", event.id}});
    }
    return list;
}

Ordered describeJson(uint32_t memory, uint32_t variable) {
    const bool range = hasRange(Introspection::getVarBaseType(memory, variable));
    return {{"memory", Introspection::getMemName(memory)},
            {"name", Introspection::getVarName(memory, variable)},
            {"type", Introspection::getVarType(memory, variable)},
            {"baseType",
             Introspection::baseTypeName(Introspection::typeOf(memory, variable).element.kind)},
            {"min", range ? Ordered(Introspection::getVarMin(memory, variable)) : Ordered(nullptr)},
            {"max", range ? Ordered(Introspection::getVarMax(memory, variable)) : Ordered(nullptr)},
            {"default", defaultJson(memory, variable)},
            {"arrayLength", orNull(arrayLength(memory, variable))},
            {"capacity", orNull(stringCapacity(memory, variable))},
            {"enum", namesOrNull(enumNames(memory, variable))},
            {"event", EVENT_NAME[Introspection::getVarEvent(memory, variable).id]}};
}

Result<int> listMemories(Device& device, const Arguments& arguments) {
    TRY(arguments.expectPositional(0, 0));
    const Ordered list = memoriesJson(device);
    if (arguments.has("--json")) {
        printJson(list);
        return ExitSuccess;
    }
    for (const Ordered& row : list) {
        std::printf("%2u  %-20s %4u variables  %s\n", row["index"].get<unsigned>(),
                    row["name"].get<std::string>().c_str(), row["variables"].get<unsigned>(),
                    row["present"].get<bool>() ? "present" : "absent");
    }
    return ExitSuccess;
}

Result<int> listVariables(Device&, const Arguments& arguments) {
    TRY(arguments.expectPositional(1, 1));
    const uint32_t memory = TRY(findMemory(arguments.positional()[0]));
    const uint32_t count = Introspection::getVarCount(memory);
    if (arguments.has("--json")) {
        printJson(variablesJson(memory));
        return ExitSuccess;
    }
    for (uint32_t variable = 0; variable < count; ++variable) {
        const Notify event = Introspection::getVarEvent(memory, variable);
        const std::optional<uint32_t> length = arrayLength(memory, variable);
        std::printf("%3u  %-36s %-28s %5s  %-24s %4u %s\n", variable,
                    Introspection::getVarName(memory, variable),
                    Introspection::getVarType(memory, variable),
                    length ? std::to_string(*length).c_str() : "-",
                    valuesText(memory, variable).c_str(), event.id, EVENT_NAME[event.id]);
    }
    return ExitSuccess;
}

Result<int> describeVariable(Device&, const Arguments& arguments) {
    TRY(arguments.expectPositional(2, 2));
    const uint32_t memory = TRY(findMemory(arguments.positional()[0]));
    const uint32_t variable = TRY(findVariable(memory, arguments.positional()[1]));
    const Ordered description = describeJson(memory, variable);
    if (arguments.has("--json")) {
        printJson(description);
        return ExitSuccess;
    }
    const auto line = [](const char* label, const std::string& text) {
        std::printf("%-12s %s\n", label, text.c_str());
    };
    const auto textOf = [](const Ordered& value) {
        return value.is_null()     ? std::string("-")
               : value.is_string() ? value.get<std::string>()
                                   : value.dump();
    };
    line("memory:", textOf(description["memory"]));
    line("name:", textOf(description["name"]));
    line("type:", textOf(description["type"]) +
                      (isBuffer(memory, variable) ? " (a byte buffer, written in hex)" : ""));
    line("base type:", textOf(description["baseType"]));
    line("values:", valuesText(memory, variable));
    line("default:", description["default"].dump());
    line("array:", textOf(description["arrayLength"]));
    line("capacity:",
         description["capacity"].is_null() ? "-" : textOf(description["capacity"]) + " bytes");
    line("event:", textOf(description["event"]) + " (" +
                       std::to_string(Introspection::getVarEvent(memory, variable).id) + ")");
    return ExitSuccess;
}

Result<int> listNames(Device& device, const Arguments& arguments) {
    TRY(arguments.expectPositional(0, 2));
    const auto& words = arguments.positional();
    std::vector<std::string> names;
    if (arguments.has("--events")) {
        TRY(arguments.expectPositional(0, 0));
        names.assign(EVENT_NAME, EVENT_NAME + EVENT_ID_COUNT);
    } else if (arguments.has("--commands")) {
        TRY(arguments.expectPositional(0, 0));
        for (const Command& command : memtoolProgram(device).commands) {
            names.emplace_back(command.name);
        }
    } else if (const std::optional<std::string> name = arguments.value("--options")) {
        TRY(arguments.expectPositional(0, 0));
        for (const Command& command : memtoolProgram(device).commands) {
            if (*name == command.name) {
                names.assign(command.flags.begin(), command.flags.end());
                names.insert(names.end(), command.valued.begin(), command.valued.end());
                names.emplace_back("--help");
            }
        }
    } else if (words.empty()) {
        for (uint32_t memory = 0; memory < Introspection::getMemCount(); ++memory) {
            names.emplace_back(Introspection::getMemName(memory));
        }
    } else if (words.size() == 1) {
        const uint32_t memory = TRY(findMemory(words[0]));
        for (uint32_t variable = 0; variable < Introspection::getVarCount(memory); ++variable) {
            names.emplace_back(Introspection::getVarName(memory, variable));
        }
    } else {
        const uint32_t memory = TRY(findMemory(words[0]));
        const uint32_t variable = TRY(findElement(memory, words[1])).variable;
        names = Introspection::getVarBaseType(memory, variable) == BaseBool
                    ? std::vector<std::string>{"false", "true"}
                    : enumNames(memory, variable);
    }
    printLines(names);
    return ExitSuccess;
}
