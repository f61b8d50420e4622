// memtool get and set: values as the catalogue's text, or as typed JSON.
#include "assignment.h"
#include "commands.h"
#include "device.h"
#include "jsonvalue.h"
#include "names.h"
#include "settings-service/catalogue.h"
#include "settings-service/introspection.h"

#include <iostream>
#include <optional>

namespace {

// The texts of the elements that `ref` names: one element, or every element.
std::vector<std::pair<std::string, std::string>> elementTexts(uint32_t memory,
                                                              const VariableRef& ref) {
    std::vector<std::pair<std::string, std::string>> texts;
    const auto add = [&](std::optional<uint32_t> index) {
        texts.emplace_back(
            targetName(memory, ref.variable, index),
            Introspection::getVarValue(memory, ref.variable, static_cast<int>(index.value_or(0))));
    };
    if (ref.index || !Introspection::isArray(memory, ref.variable)) {
        add(ref.index);
    } else {
        for (uint32_t index = 0; index < Introspection::getElementCount(memory, ref.variable);
             ++index) {
            add(index);
        }
    }
    return texts;
}

// The variables of `get`: the form VARIABLE INDEX for an array's element, else
// every word a VARIABLE or VARIABLE[INDEX].
std::vector<VariableRef> requestedVariables(uint32_t memory,
                                            const std::vector<std::string>& words) {
    if (words.size() == 3 && parseNumber(words[2])) {
        const uint32_t variable = findVariable(memory, words[1]);
        if (Introspection::isArray(memory, variable)) {
            return {{variable, elementIndex(memory, variable, words[2])}};
        }
    }
    std::vector<VariableRef> refs;
    for (size_t i = 1; i < words.size(); ++i) {
        refs.push_back(findElement(memory, words[i]));
    }
    return refs;
}

// `set MEMORY VARIABLE [INDEX] VALUE` or `set MEMORY NAME=VALUE...`.
std::vector<Assignment> assignments(uint32_t memory, const std::vector<std::string>& words) {
    if (words[1].find('=') == std::string::npos) {
        if (words.size() < 3 || words.size() > 4) {
            throw UsageError(words.size() < 3 ? "missing the value" : "too many arguments");
        }
        const uint32_t variable = findVariable(memory, words[1]);
        const std::optional<uint32_t> index =
            words.size() == 4 ? std::optional(elementIndex(memory, variable, words[2]))
                              : std::nullopt;
        return {assignmentFor(memory, {variable, index}, words.back(),
                              "give the element's index before the value")};
    }
    std::vector<Assignment> list;
    for (size_t i = 1; i < words.size(); ++i) {
        const size_t equals = words[i].find('=');
        if (equals == std::string::npos) {
            throw UsageError("\"" + words[i] + "\" is not a NAME=VALUE assignment");
        }
        list.push_back(assignmentFor(memory, findElement(memory, words[i].substr(0, equals)),
                                     words[i].substr(equals + 1),
                                     "name the element as NAME[INDEX]=VALUE"));
    }
    return list;
}

} // namespace

int getValue(const Arguments& arguments) {
    arguments.expectPositional(2, SIZE_MAX);
    const auto& words = arguments.positional();
    const uint32_t memory = findMemory(words[0]);
    const std::vector<VariableRef> refs = requestedVariables(memory, words);
    openMemory(memory);
    const bool json = arguments.has("--json");
    if (json) {
        Ordered values = Ordered::object();
        for (const VariableRef& ref : refs) {
            values[targetName(memory, ref.variable, ref.index)] =
                valueJson(memory, ref.variable, ref.index);
        }
        std::cout << (refs.size() == 1 ? values.front() : values).dump(2) << '\n';
        return ExitSuccess;
    }
    for (const VariableRef& ref : refs) {
        for (const auto& [target, text] : elementTexts(memory, ref)) {
            std::cout << (refs.size() == 1 ? text : target + "=" + text) << '\n';
        }
    }
    return ExitSuccess;
}

int setValue(const Arguments& arguments) {
    arguments.expectPositional(2, SIZE_MAX);
    const auto& words = arguments.positional();
    const uint32_t memory = findMemory(words[0]);
    const std::vector<Assignment> list = assignments(memory, words);
    openMemory(memory);
    checkAssignments(list);
    connectBroker();
    for (const Assignment& assignment : list) {
        store(assignment);
    }
    return ExitSuccess;
}
