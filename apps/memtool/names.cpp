#include "names.h"

#include "cli.h"
#include "closest.h"
#include "settings-service/introspection.h"

#include <optional>
#include <vector>

namespace {

std::string withHint(std::string message, const std::string& name,
                     const std::vector<std::string>& candidates) {
    const std::string hint = suggestion(name, candidates);
    return hint.empty() ? message : message + ". " + hint;
}

} // namespace

uint32_t findMemory(const std::string& text) {
    const uint32_t count = Introspection::getMemCount();
    if (const std::optional<unsigned> number = parseNumber(text)) {
        if (*number < count) {
            return *number;
        }
        throw UsageError("no memory " + text + ": there are " + std::to_string(count));
    }
    std::vector<std::string> names;
    for (uint32_t memory = 0; memory < count; ++memory) {
        names.emplace_back(Introspection::getMemName(memory));
        if (names.back() == text) {
            return memory;
        }
    }
    throw UsageError(withHint("unknown memory \"" + text + "\"", text, names));
}

uint32_t findVariable(uint32_t memory, const std::string& text) {
    const std::string memoryName = Introspection::getMemName(memory);
    const uint32_t count = Introspection::getVarCount(memory);
    if (const std::optional<unsigned> number = parseNumber(text)) {
        if (*number < count) {
            return *number;
        }
        throw UsageError("no variable " + text + " in " + memoryName + ": it has " +
                         std::to_string(count));
    }
    if (const std::optional<uint32_t> variable = Introspection::findVarIndex(memory, text)) {
        return *variable;
    }
    std::string message = "unknown variable \"" + text + "\" in " + memoryName;
    for (uint32_t other = 0; other < Introspection::getMemCount(); ++other) {
        if (Introspection::findVarIndex(other, text)) {
            message += " (it is in " + std::string(Introspection::getMemName(other)) + ")";
        }
    }
    std::vector<std::string> names;
    for (uint32_t variable = 0; variable < count; ++variable) {
        names.emplace_back(Introspection::getVarName(memory, variable));
    }
    throw UsageError(withHint(message, text, names));
}

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

VariableRef findElement(uint32_t memory, const std::string& text) {
    const size_t open = text.find('[');
    if (open == std::string::npos || text.back() != ']') {
        return {findVariable(memory, text), std::nullopt};
    }
    const uint32_t variable = findVariable(memory, text.substr(0, open));
    return {variable,
            elementIndex(memory, variable, text.substr(open + 1, text.size() - open - 2))};
}

std::string targetName(uint32_t memory, uint32_t variable, std::optional<uint32_t> index) {
    const std::string name = Introspection::getVarName(memory, variable);
    return index ? name + "[" + std::to_string(*index) + "]" : name;
}

EventId findEvent(const std::string& text) {
    if (const std::optional<unsigned> number = parseNumber(text)) {
        if (*number < EVENT_ID_COUNT) {
            return static_cast<EventId>(*number);
        }
        throw UsageError("no event " + text + ": ids go from 0 to " +
                         std::to_string(EVENT_ID_COUNT - 1));
    }
    std::vector<std::string> names;
    for (uint32_t id = 0; id < EVENT_ID_COUNT; ++id) {
        names.emplace_back(EVENT_NAME[id]);
        if (names.back() == text) {
            return static_cast<EventId>(id);
        }
    }
    throw UsageError(withHint("unknown event \"" + text + "\"", text, names));
}
