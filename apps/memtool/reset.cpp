// memtool reset: variables back to the values that the memory's start-up
// writes, through their setters, so that each change posts its event.
// Values already at their default are left alone (no write, no event).
#include "assignment.h"
#include "commands.h"
#include "device.h"
#include "names.h"
#include "settings-service/introspection.h"
#include "variableinfo.h"

#include <cstdio>

namespace {

// The assignments that bring `ref` back to its default.
void resetsOf(uint32_t memory, const VariableRef& ref, std::vector<Assignment>& list) {
    const bool array = Introspection::isArray(memory, ref.variable);
    const uint32_t first = ref.index.value_or(0);
    const uint32_t last =
        ref.index ? first + 1 : Introspection::getElementCount(memory, ref.variable);
    for (uint32_t index = first; index < last; ++index) {
        if (!holdsDefault(memory, ref.variable, index)) {
            list.push_back({memory, ref.variable, array ? std::optional(index) : std::nullopt,
                            defaultText(memory, ref.variable, index)});
        }
    }
}

} // namespace

Result<int> resetValues(Device& device, const Arguments& arguments) {
    const bool all = arguments.has("--all");
    TRY(arguments.expectPositional(all ? 1 : 2, all ? 1 : SIZE_MAX));
    const auto& words = arguments.positional();
    const uint32_t memory = TRY(findMemory(words[0]));
    std::vector<VariableRef> refs;
    for (size_t i = 1; i < words.size(); ++i) {
        refs.push_back(TRY(findElement(memory, words[i])));
    }
    TRY(device.openMemory(memory));
    std::vector<Assignment> list;
    for (uint32_t variable = 0; all && variable < Introspection::getVarCount(memory); ++variable) {
        if (isWritable(memory, variable)) {
            resetsOf(memory, {variable, std::nullopt}, list);
        } else if (!holdsDefault(memory, variable, 0)) {
            std::fprintf(stderr, "memtool reset: %s is read-only and keeps its value\n",
                         Introspection::getVarName(memory, variable));
        }
    }
    for (const VariableRef& ref : refs) {
        resetsOf(memory, ref, list);
    }
    TRY(checkAssignments(list));
    if (list.empty()) {
        return ExitSuccess;
    }
    TRY(device.connectBroker());
    TRY(storeAll(list));
    return ExitSuccess;
}
