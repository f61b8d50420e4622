// memtool load: stores what `memtool dump` printed (one memory or several,
// all of their variables or some).
//
// The file is read once, one variable's value at a time (no tree of the
// whole document is built), and every value is checked before anything is
// stored: unknown names, a value of the wrong JSON type, an array of the wrong
// length and every refusal of the value codec (valuecodec.h) are listed
// together, and then nothing is stored.  A value equal to what `dump` would
// print now is left alone (no write, no event), so loading the dump of an
// unchanged unit changes no byte; the others are stored through the setters,
// which post the change events.  With --dry-run the values that would be stored are printed
// as "MEMORY NAME=VALUE" and nothing is stored.
#include "assignment.h"
#include "commands.h"
#include "device.h"
#include "jsonvalue.h"
#include "names.h"
#include "settings-service/catalogue.h"
#include "settings-service/introspection.h"

#include <cmath>
#include <cstdio>
#include <fstream>
#include <iostream>
#include <map>

namespace {

// The setter text of one element given in the file, or nullopt when its JSON
// type does not fit the variable.
std::optional<std::string> elementText(uint32_t base, const Ordered& value) {
    switch (base) {
    case BaseInt:
        return value.is_number_integer() ? std::optional(value.dump()) : std::nullopt;
    case BaseFloat:
        return value.is_number() ? std::optional(value.dump()) : std::nullopt;
    case BaseBool:
        return value.is_boolean() ? std::optional(value.dump()) : std::nullopt;
    case BaseStruct:
        return value.is_object() ? std::optional(value.dump()) : std::nullopt;
    default:
        return value.is_string() ? std::optional(value.get<std::string>()) : std::nullopt;
    }
}

// True when `given` (a value of the file) asks for nothing that `now` (the
// value as dump prints it) does not already hold.  A struct in the file may
// name only some members, as the bare value or as {"value": text}, and an
// array inside a struct only its first elements.
bool unchanged(const Ordered& now, const Ordered& given) {
    if (given.is_object() && now.is_object()) {
        for (const auto& [key, value] : given.items()) {
            if (!now.contains(key) || !unchanged(now[key], value)) {
                return false;
            }
        }
        return true;
    }
    if (given.is_array() && now.is_array()) {
        if (given.size() > now.size()) {
            return false;
        }
        for (size_t index = 0; index < given.size(); ++index) {
            if (!unchanged(now[index], given[index])) {
                return false;
            }
        }
        return true;
    }
    if (now.is_object() && now.contains("value")) {
        return (given.is_string() ? given.get<std::string>() : given.dump()) == now["value"];
    }
    // dump prints a float that is not finite as null.
    if (now.is_number_float() && !std::isfinite(now.get<double>())) {
        return given.is_null();
    }
    return now == given;
}

class Loader {
public:
    explicit Loader(Device& device) : device(device) {}

    std::vector<Assignment> planned;
    std::vector<std::string> problems;

    // One variable's value as the file gives it.
    void variable(const std::string& memoryName, const std::string& variableName,
                  const Ordered& value) {
        const std::optional<uint32_t> memory = openedMemory(memoryName);
        if (!memory) {
            return;
        }
        const Result<uint32_t> variable = findVariable(*memory, variableName);
        if (!variable) {
            problems.push_back(variable.error().text);
            return;
        }
        const Ordered now = currentJson(*memory, *variable);
        const std::string where = memoryName + "." + variableName;
        if (!Introspection::isArray(*memory, *variable)) {
            if (!unchanged(now, value)) {
                element(*memory, *variable, std::nullopt, value, where);
            }
            return;
        }
        const uint32_t count = Introspection::getElementCount(*memory, *variable);
        if (!value.is_array() || value.size() != count) {
            problems.push_back(where + ": expects an array of " + std::to_string(count) +
                               " elements");
            return;
        }
        for (uint32_t index = 0; index < count; ++index) {
            if (!unchanged(now[index], value[index])) {
                element(*memory, *variable, index, value[index],
                        where + "[" + std::to_string(index) + "]");
            }
        }
    }

private:
    std::optional<uint32_t> openedMemory(const std::string& name) {
        const auto known = memories.find(name);
        if (known != memories.end()) {
            return known->second;
        }
        std::optional<uint32_t>& memory = memories[name];
        const Result<uint32_t> found = findMemory(name);
        Result<void> opened = found.ok() ? device.openMemory(*found) : found.error();
        if (opened.ok()) {
            memory = *found;
        } else {
            problems.push_back(opened.error().text);
        }
        return memory;
    }

    void element(uint32_t memory, uint32_t variable, std::optional<uint32_t> index,
                 const Ordered& value, const std::string& where) {
        const std::optional<std::string> text =
            elementText(Introspection::getVarBaseType(memory, variable), value);
        if (!text) {
            problems.push_back(where + ": " + value.dump() + " is not a value of type " +
                               Introspection::getVarType(memory, variable));
            return;
        }
        const Assignment assignment{memory, variable, index, *text};
        if (std::string reason = refusal(assignment); !reason.empty()) {
            problems.push_back(where + ": " + reason);
            return;
        }
        planned.push_back(assignment);
    }

    Device& device;
    std::map<std::string, std::optional<uint32_t>> memories;
};

// Reads the file, handing each variable's value to the loader and keeping no
// value once it is handed on.  A document that is no dump is refused at its
// first wrong value: nothing after it reaches the loader.
Result<void> readDump(std::istream& input, const std::string& fileName, Loader& loader) {
    std::string memory;
    std::string variable;
    std::optional<Error> wrongShape;
    const auto callback = [&](int depth, Ordered::parse_event_t event, Ordered& parsed) {
        using Event = Ordered::parse_event_t;
        if (wrongShape) {
            return false;
        }
        if (depth == 0 && (event == Event::value || event == Event::array_start)) {
            wrongShape = failure(fileName + " is not a dump of memories: not a JSON object");
            return false;
        }
        if (depth == 1 && event == Event::key) {
            memory = parsed.get<std::string>();
        } else if (depth == 1 && (event == Event::value || event == Event::array_start)) {
            wrongShape = failure(fileName + ": " + memory + " is not an object of variables");
            return false;
        } else if (depth == 2 && event == Event::key) {
            variable = parsed.get<std::string>();
        } else if (depth == 2 && (event == Event::value || event == Event::object_end ||
                                  event == Event::array_end)) {
            loader.variable(memory, variable, parsed);
            return false;
        }
        return true;
    };
    try {
        // What is left of the document: the memories' names, their values handed on.
        [[maybe_unused]] const Ordered skeleton = Ordered::parse(input, callback);
    } catch (const nlohmann::json::exception& error) {
        if (!wrongShape) {
            return failure(fileName + " is not valid JSON: " + error.what());
        }
    }
    if (wrongShape) {
        return *wrongShape;
    }
    return {};
}

} // namespace

Result<int> loadValues(Device& device, const Arguments& arguments) {
    TRY(arguments.expectPositional(1, 1));
    const std::string& fileName = arguments.positional()[0];
    Loader loader(device);
    if (fileName == "-") {
        TRY(readDump(std::cin, "standard input", loader));
    } else {
        std::ifstream file(fileName, std::ios::binary);
        if (!file) {
            return failure("cannot open " + fileName);
        }
        TRY(readDump(file, fileName, loader));
    }
    TRY(failOnProblems(loader.problems, loader.problems.size() + loader.planned.size()));
    if (arguments.has("--dry-run")) {
        for (const Assignment& assignment : loader.planned) {
            std::printf("%s %s=%s\n", Introspection::getMemName(assignment.memory),
                        assignment.target().c_str(), assignment.text.c_str());
        }
        return ExitSuccess;
    }
    if (!loader.planned.empty()) {
        TRY(device.connectBroker());
    }
    TRY(storeAll(loader.planned));
    return ExitSuccess;
}
