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

Result<uint32_t> findMemory(const std::string& text) {
    const uint32_t count = Introspection::getMemCount();
    if (const std::optional<unsigned> number = parseNumber(text)) {
        if (*number < count) {
            return *number;
        }
        return usageError("no memory " + text + ": there are " + std::to_string(count));
    }
    std::vector<std::string> names;
    for (uint32_t memory = 0; memory < count; ++memory) {
        names.emplace_back(Introspection::getMemName(memory));
        if (names.back() == text) {
            return memory;
        }
    }
    return usageError(withHint("unknown memory \"" + text + "\"", text, names));
}

Result<uint32_t> findVariable(uint32_t memory, const std::string& text) {
    const std::string memoryName = Introspection::getMemName(memory);
    const uint32_t count = Introspection::getVarCount(memory);
    if (const std::optional<unsigned> number = parseNumber(text)) {
        if (*number < count) {
            return *number;
        }
        return usageError("no variable " + text + " in " + memoryName + ": it has " +
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
    return usageError(withHint(message, text, names));
}

Result<uint32_t> elementIndex(uint32_t memory, uint32_t variable, const std::string& text) {
    const std::string name = Introspection::getVarName(memory, variable);
    if (!Introspection::isArray(memory, variable)) {
        return usageError(name + " is not an array");
    }
    const std::optional<unsigned> index = parseNumber(text);
    const uint32_t count = Introspection::getElementCount(memory, variable);
    if (!index || *index >= count) {
        return usageError("element \"" + text + "\" of " + name + ": the index goes from 0 to " +
                          std::to_string(count - 1));
    }
    return *index;
}

Result<VariableRef> findElement(uint32_t memory, const std::string& text) {
    const size_t open = text.find('[');
    if (open == std::string::npos || text.back() != ']') {
        const uint32_t variable = TRY(findVariable(memory, text));
        return VariableRef{variable, std::nullopt};
    }
    const uint32_t variable = TRY(findVariable(memory, text.substr(0, open)));
    const uint32_t index =
        TRY(elementIndex(memory, variable, text.substr(open + 1, text.size() - open - 2)));
    return VariableRef{variable, index};
}

std::string targetName(uint32_t memory, uint32_t variable, std::optional<uint32_t> index) {
    const std::string name = Introspection::getVarName(memory, variable);
    return index ? name + "[" + std::to_string(*index) + "]" : name;
}

Result<EventId> findEvent(const std::string& text) {
    if (const std::optional<unsigned> number = parseNumber(text)) {
        if (*number < EVENT_ID_COUNT) {
            return static_cast<EventId>(*number);
        }
        return usageError("no event " + text + ": ids go from 0 to " +
                          std::to_string(EVENT_ID_COUNT - 1));
    }
    std::vector<std::string> names;
    for (uint32_t id = 0; id < EVENT_ID_COUNT; ++id) {
        names.emplace_back(EVENT_NAME[id]);
        if (names.back() == text) {
            return static_cast<EventId>(id);
        }
    }
    return usageError(withHint("unknown event \"" + text + "\"", text, names));
}
