#include "assignment.h"

#include "cli.h"
#include "names.h"
#include "settings-service/catalogue.h"
#include "settings-service/introspection.h"
#include "settings-service/json.h"
#include "settings-service/valuecodec.h"

namespace {

// An element may be set alone where the setter can address it.
bool settableElementWise(uint32_t memory, uint32_t variable) {
    const uint32_t base = Introspection::getVarBaseType(memory, variable);
    return base == BaseInt || base == BaseFloat || base == BaseBool || base == BaseStruct;
}

} // namespace

std::string Assignment::target() const {
    return targetName(memory, variable, index);
}

Result<Assignment> assignmentFor(uint32_t memory, const VariableRef& ref, const std::string& text,
                                 const char* indexHint) {
    const std::string name = Introspection::getVarName(memory, ref.variable);
    if (!ref.index && Introspection::isArray(memory, ref.variable)) {
        return usageError(name + " is an array of " +
                          std::to_string(Introspection::getElementCount(memory, ref.variable)) +
                          ": " + indexHint);
    }
    if (ref.index && !settableElementWise(memory, ref.variable)) {
        return usageError(std::string("elements of a ") +
                          Introspection::getVarType(memory, ref.variable) +
                          " array cannot be set one by one");
    }
    return Assignment{memory, ref.variable, ref.index, text};
}

std::string refusal(const Assignment& assignment) {
    return ValueCodec::refusal(assignment.memory, assignment.variable, assignment.text);
}

Result<void> failOnProblems(const std::vector<std::string>& problems, size_t total) {
    if (problems.empty()) {
        return {};
    }
    std::string message;
    for (const std::string& line : problems) {
        message += line + "\n";
    }
    if (total == 1) {
        message.pop_back();
    } else {
        message += "nothing stored: " + std::to_string(problems.size()) + " of " +
                   std::to_string(total) + " values refused";
    }
    return failure(message);
}

Result<void> checkAssignments(const std::vector<Assignment>& list) {
    std::vector<std::string> problems;
    for (const Assignment& assignment : list) {
        if (std::string reason = refusal(assignment); !reason.empty()) {
            problems.push_back(list.size() == 1 ? reason : assignment.target() + ": " + reason);
        }
    }
    return failOnProblems(problems, list.size());
}

Result<void> store(const Assignment& assignment) {
    const uint32_t memory = assignment.memory;
    const uint32_t variable = assignment.variable;
    std::string error;
    if (Introspection::getVarBaseType(memory, variable) == BaseStruct) {
        Json members;
        members.parse(assignment.text);
        error = Introspection::setVarValueJson(memory, variable, members.items,
                                               static_cast<int>(assignment.index.value_or(0)));
    } else if (!assignment.index) {
        error = Introspection::setVarValue(memory, variable, assignment.text.c_str());
    } else {
        const VariableDescriptor& entry = MEMORY_ARRAY[memory].variables[variable];
        Notify notify = entry.event;
        notify.indexed = 1;
        notify.index = *assignment.index;
        error = entry.setter(entry.memoryBase, memory, variable, notify, assignment.text.c_str());
    }
    if (!error.empty()) {
        return failure(error.substr(0, error.find_last_not_of('\n') + 1));
    }
    return {};
}

Result<void> storeAll(const std::vector<Assignment>& list) {
    for (const Assignment& assignment : list) {
        TRY(store(assignment));
    }
    return {};
}
