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
Result<std::vector<VariableRef>> requestedVariables(uint32_t memory,
                                                    const std::vector<std::string>& words) {
    if (words.size() == 3 && parseNumber(words[2])) {
        const uint32_t variable = TRY(findVariable(memory, words[1]));
        if (Introspection::isArray(memory, variable)) {
            const uint32_t index = TRY(elementIndex(memory, variable, words[2]));
            return std::vector<VariableRef>{{variable, index}};
        }
    }
    std::vector<VariableRef> refs;
    for (size_t i = 1; i < words.size(); ++i) {
        refs.push_back(TRY(findElement(memory, words[i])));
    }
    return refs;
}

// `set MEMORY VARIABLE [INDEX] VALUE` or `set MEMORY NAME=VALUE...`.
Result<std::vector<Assignment>> assignments(uint32_t memory,
                                            const std::vector<std::string>& words) {
    if (words[1].find('=') == std::string::npos) {
        if (words.size() < 3 || words.size() > 4) {
            return usageError(words.size() < 3 ? "missing the value" : "too many arguments");
        }
        const uint32_t variable = TRY(findVariable(memory, words[1]));
        std::optional<uint32_t> index;
        if (words.size() == 4) {
            index = TRY(elementIndex(memory, variable, words[2]));
        }
        Assignment assignment = TRY(assignmentFor(memory, {variable, index}, words.back(),
                                                  "give the element's index before the value"));
        return std::vector<Assignment>{std::move(assignment)};
    }
    std::vector<Assignment> list;
    for (size_t i = 1; i < words.size(); ++i) {
        const size_t equals = words[i].find('=');
        if (equals == std::string::npos) {
            return usageError("\"" + words[i] + "\" is not a NAME=VALUE assignment");
        }
        const VariableRef ref = TRY(findElement(memory, words[i].substr(0, equals)));
        list.push_back(TRY(assignmentFor(memory, ref, words[i].substr(equals + 1),
                                         "name the element as NAME[INDEX]=VALUE")));
    }
    return list;
}

} // namespace

Result<int> getValue(Device& device, const Arguments& arguments) {
    TRY(arguments.expectPositional(2, SIZE_MAX));
    const auto& words = arguments.positional();
    const uint32_t memory = TRY(findMemory(words[0]));
    const std::vector<VariableRef> refs = TRY(requestedVariables(memory, words));
    TRY(device.openMemory(memory));
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

Result<int> setValue(Device& device, const Arguments& arguments) {
    TRY(arguments.expectPositional(2, SIZE_MAX));
    const auto& words = arguments.positional();
    const uint32_t memory = TRY(findMemory(words[0]));
    const std::vector<Assignment> list = TRY(assignments(memory, words));
    TRY(device.openMemory(memory));
    TRY(checkAssignments(list));
    TRY(device.connectBroker());
    TRY(storeAll(list));
    return ExitSuccess;
}
