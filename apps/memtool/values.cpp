// memtool get, set and dump: values as the catalogue's text, or as typed
// JSON (numbers, booleans, strings, enum names, struct objects).
#include "catalogue.h"
#include "commands.h"
#include "device.h"
#include "introspection.h"
#include "json.h"
#include "names.h"

#include <nlohmann/json.hpp>

#include <iostream>
#include <optional>

namespace {

using Ordered = nlohmann::ordered_json;

// The element index given on the command line, checked against the array.
uint32_t elementIndex(uint32_t memory, uint32_t variable, const std::string& text) {
    const std::string name = Introspection::getVarName(memory, variable);
    if (!Introspection::isArray(memory, variable)) {
        throw UsageError(name + " is not an array");
    }
    const std::optional<unsigned> index = parseNumber(text);
    const uint32_t count = Introspection::getElementCount(memory, variable);
    if (!index || *index >= count) {
        throw UsageError("element \"" + text + "\" of " + name + ": the index goes from 0 to " +
                         std::to_string(count - 1));
    }
    return *index;
}

Ordered typedValue(uint32_t memory, uint32_t variable, const std::string& text) {
    switch (Introspection::getVarBaseType(memory, variable)) {
    case BaseInt:
        return std::stoll(text);
    case BaseFloat:
        return std::stod(text);
    case BaseBool:
        return text == "true";
    case BaseStruct:
        return Ordered::parse(text);
    default:
        return text;
    }
}

Ordered variableJson(uint32_t memory, uint32_t variable) {
    if (!Introspection::isArray(memory, variable)) {
        return typedValue(memory, variable, Introspection::getVarValue(memory, variable, 0));
    }
    Ordered elements = Ordered::array();
    for (uint32_t index = 0; index < Introspection::getElementCount(memory, variable); ++index) {
        elements.push_back(
            typedValue(memory, variable, Introspection::getVarValue(memory, variable, index)));
    }
    return elements;
}

std::string withoutTrailingNewline(std::string text) {
    while (!text.empty() && text.back() == '\n') {
        text.pop_back();
    }
    return text;
}

std::string setStruct(uint32_t memory, uint32_t variable, const std::string& text, uint32_t index) {
    Json members;
    if (!members.parse(text) || members.outerClose != '}') {
        throw Failure("the value of a struct must be a JSON object" +
                      (members.errorPosition < 0
                           ? std::string()
                           : " (error at " + std::to_string(members.errorPosition) + ")"));
    }
    return Introspection::setVarValueJson(memory, variable, members.items, index);
}

std::string setPlain(uint32_t memory, uint32_t variable, const std::string& text,
                     std::optional<uint32_t> index) {
    std::string error;
    if (!Introspection::checkMinMax(memory, variable, text, error)) {
        throw Failure(
            error.empty()
                ? "Value must be between min: " + Introspection::getVarMin(memory, variable) +
                      " and max: " + Introspection::getVarMax(memory, variable) +
                      ", but is: " + text
                : withoutTrailingNewline(error));
    }
    if (!index) {
        return Introspection::setVarValue(memory, variable, text.c_str());
    }
    const uint32_t base = Introspection::getVarBaseType(memory, variable);
    if (base != BaseInt && base != BaseFloat && base != BaseBool) {
        throw UsageError(std::string("elements of a ") +
                         Introspection::getVarType(memory, variable) +
                         " array cannot be set one by one");
    }
    const VariableDescriptor& entry = MEMORY_ARRAY[memory].variables[variable];
    Notify notify = entry.event;
    notify.indexed = 1;
    notify.index = *index;
    return entry.setter(entry.memoryBase, memory, variable, notify, text.c_str());
}

} // namespace

int getValue(const Arguments& arguments) {
    arguments.expectPositional(2, 3);
    const auto& words = arguments.positional();
    const uint32_t memory = findMemory(words[0]);
    const uint32_t variable = findVariable(memory, words[1]);
    std::optional<uint32_t> index;
    if (words.size() == 3) {
        index = elementIndex(memory, variable, words[2]);
    }
    openMemory(memory);
    const bool json = arguments.has("--json");
    if (index) {
        const std::string text = Introspection::getVarValue(memory, variable, *index);
        std::cout << (json ? typedValue(memory, variable, text).dump(2) : text) << '\n';
    } else if (json) {
        std::cout << variableJson(memory, variable).dump(2) << '\n';
    } else {
        for (uint32_t element = 0; element < Introspection::getElementCount(memory, variable);
             ++element) {
            std::cout << Introspection::getVarValue(memory, variable, element) << '\n';
        }
    }
    return ExitSuccess;
}

int setValue(const Arguments& arguments) {
    arguments.expectPositional(3, 4);
    const auto& words = arguments.positional();
    const uint32_t memory = findMemory(words[0]);
    const uint32_t variable = findVariable(memory, words[1]);
    const std::string& text = words.back();
    std::optional<uint32_t> index;
    if (words.size() == 4) {
        index = elementIndex(memory, variable, words[2]);
    } else if (Introspection::isArray(memory, variable)) {
        throw UsageError(std::string(Introspection::getVarName(memory, variable)) +
                         " is an array of " +
                         std::to_string(Introspection::getElementCount(memory, variable)) +
                         ": give the element's index before the value");
    }
    openMemory(memory);
    connectBroker();
    const std::string error = Introspection::getVarBaseType(memory, variable) == BaseStruct
                                  ? setStruct(memory, variable, text, index.value_or(0))
                                  : setPlain(memory, variable, text, index);
    if (!error.empty()) {
        throw Failure(withoutTrailingNewline(error));
    }
    return ExitSuccess;
}

int dumpMemories(const Arguments& arguments) {
    std::vector<uint32_t> memories;
    for (const std::string& name : arguments.positional()) {
        memories.push_back(findMemory(name));
    }
    if (memories.empty()) {
        for (uint32_t memory = 0; memory < Introspection::getMemCount(); ++memory) {
            memories.push_back(memory);
        }
    }
    Ordered dump = Ordered::object();
    for (uint32_t memory : memories) {
        openMemory(memory);
        Ordered values = Ordered::object();
        for (uint32_t variable = 0; variable < Introspection::getVarCount(memory); ++variable) {
            values[Introspection::getVarName(memory, variable)] = variableJson(memory, variable);
        }
        dump[Introspection::getMemName(memory)] = std::move(values);
    }
    std::cout << dump.dump(arguments.has("--compact") ? -1 : 2) << '\n';
    return ExitSuccess;
}
