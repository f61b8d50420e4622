#include "settings-service/introspection.h"

#include "setjson.h"
#include "settings-service/log.h"
#include "settings-service/valuecodec.h"

#include <algorithm>
#include <array>
#include <string>
#include <utility>
#include <vector>

namespace Introspection {

namespace {

// (memory index, variable index) of every event id.
std::array<std::pair<uint32_t, uint32_t>, EVENT_ID_COUNT> eventMap{};
bool eventMapBuilt = false;

using Catalogue::tables;

void checkMemory(uint32_t memory) {
    if (memory >= tables().memoryCount) {
        THROW_ERROR("Index exceeds limit");
    }
}

VariableDescriptor& descriptor(uint32_t memory, uint32_t variable) {
    checkMemory(memory);
    if (variable >= tables().memories[memory].variableCount) {
        THROW_ERROR("Index exceeds limit");
    }
    return Catalogue::variable(memory, variable);
}

// The getter's text of element `index` of the variable in `record`.
std::string valueIn(const VariableDescriptor& entry, const uint8_t* record, int index) {
    return entry.getter(record + entry.offset, index);
}

} // namespace

uint32_t getMemCount() {
    return tables().memoryCount;
}

const char* getMemName(uint32_t memory) {
    checkMemory(memory);
    return tables().memories[memory].name;
}

uint32_t getMemIndex(const std::string& name) {
    for (uint32_t memory = 0; memory < tables().memoryCount; ++memory) {
        if (name == tables().memories[memory].name) {
            return memory;
        }
    }
    THROW_ERROR("Unknown memory \"%s\"", name.c_str());
}

uint32_t getVarCount(uint32_t memory) {
    checkMemory(memory);
    return tables().memories[memory].variableCount;
}

const char* getVarName(uint32_t memory, uint32_t variable) {
    return descriptor(memory, variable).name;
}

const char* getVarType(uint32_t memory, uint32_t variable) {
    return descriptor(memory, variable).typeName;
}

uint32_t getVarBaseType(uint32_t memory, uint32_t variable) {
    return descriptor(memory, variable).baseType;
}

uint32_t getVarBaseTypeName(uint32_t memory, uint32_t variable) {
    return descriptor(memory, variable).baseType;
}

const char* getVarArrayLen(uint32_t memory, uint32_t variable) {
    return descriptor(memory, variable).arrayLength;
}

Notify getVarEvent(uint32_t memory, uint32_t variable) {
    return descriptor(memory, variable).event;
}

bool isArray(uint32_t memory, uint32_t variable) {
    const VariableDescriptor& entry = descriptor(memory, variable);
    if (entry.isArray == 0) {
        return false;
    }
    return std::stoi(entry.arrayLength, nullptr, 0) >= 0;
}

uint32_t getElementCount(uint32_t memory, uint32_t variable) {
    if (!isArray(memory, variable)) {
        return 1;
    }
    return std::stoi(descriptor(memory, variable).arrayLength, nullptr, 0);
}

void genEventToVar() {
    for (uint32_t memory = 0; memory < tables().memoryCount; ++memory) {
        for (uint32_t variable = 0; variable < tables().memories[memory].variableCount;
             ++variable) {
            eventMap[Catalogue::variable(memory, variable).event.id] = {memory, variable};
        }
    }
    eventMapBuilt = true;
}

void getVarLocation(const Notify& notify, uint32_t& memory, uint32_t& variable) {
    if (!eventMapBuilt) {
        genEventToVar();
    }
    if (notify.id >= eventMap.size()) {
        memory = 0;
        variable = 0;
        return;
    }
    memory = eventMap[notify.id].first;
    variable = eventMap[notify.id].second;
}

std::string getVarValue(uint32_t memory, uint32_t variable, int index) {
    const VariableDescriptor& entry = descriptor(memory, variable);
    if (entry.memoryBase == nullptr) {
        return "n/a";
    }
    return valueIn(entry, entry.memoryBase, index);
}

std::string getVarValueIn(const uint8_t* record, uint32_t memory, uint32_t variable, int index) {
    return valueIn(descriptor(memory, variable), record, index);
}

std::string setVarValue(uint32_t memory, uint32_t variable, const char* value) {
    const VariableDescriptor& entry = descriptor(memory, variable);
    if (entry.memoryBase == nullptr) {
        return "n/a";
    }
    return entry.setter(entry.memoryBase, memory, variable, entry.event, value);
}

std::string setVarValueJson(uint32_t memory, uint32_t variable,
                            const std::vector<Json::Item>& members, int index) {
    VariableDescriptor& entry = descriptor(memory, variable);
    if (entry.memoryBase == nullptr) {
        return "n/a";
    }
    entry.event.index = static_cast<uint32_t>(index);
    return setJson(entry.memoryBase, memory, variable, entry.event, members);
}

std::string getVarMin(uint32_t memory, uint32_t variable) {
    const VariableDescriptor& entry = descriptor(memory, variable);
    switch (entry.baseType) {
    case BaseInt:
        return entry.min ? entry.min : "-2147483648";
    case BaseFloat:
        return entry.min ? entry.min : "-1e38";
    default:
        return "0";
    }
}

std::string getVarMax(uint32_t memory, uint32_t variable) {
    const VariableDescriptor& entry = descriptor(memory, variable);
    switch (entry.baseType) {
    case BaseInt:
        return entry.max ? entry.max : "2147483647";
    case BaseFloat:
        return entry.max ? entry.max : "1e38";
    case BaseBool:
        return "1";
    case BaseString:
    case BaseUnnamed:
        return entry.max ? entry.max : "0";
    case BaseEnum:
        return std::to_string(Catalogue::enumNamed(entry.typeName).entryCount - 1);
    default:
        return "0";
    }
}

bool checkMinMax(uint32_t memory, uint32_t variable, const std::string& value, std::string& error) {
    const VariableDescriptor& entry = descriptor(memory, variable);
    switch (ValueCodec::checkRange(entry.baseType, entry.min, entry.max, value)) {
    case ValueCodec::RangeResult::Inside:
        return true;
    case ValueCodec::RangeResult::Unreadable:
        error = ValueCodec::unreadable(value);
        return false;
    case ValueCodec::RangeResult::Outside:
        break;
    }
    return false;
}

const VariableType& typeOf(uint32_t memory, uint32_t variable) {
    return *descriptor(memory, variable).type;
}

const char* baseTypeName(ValueKind kind) {
    switch (kind) {
    case ValueKind::Int:
        return BASE_TYPE_NAME_ARRAY[0];
    case ValueKind::Float:
        return BASE_TYPE_NAME_ARRAY[1];
    case ValueKind::Bool:
        return BASE_TYPE_NAME_ARRAY[2];
    case ValueKind::String:
    case ValueKind::Buffer:
        return BASE_TYPE_NAME_ARRAY[3];
    case ValueKind::Enum:
        return BASE_TYPE_NAME_ARRAY[4];
    case ValueKind::Struct:
        break;
    }
    return BASE_TYPE_NAME_ARRAY[5];
}

std::optional<uint32_t> findVarIndex(uint32_t memory, std::string_view name) {
    checkMemory(memory);
    const MemoryInfo& info = tables().memories[memory];
    const uint32_t* end = info.nameOrder + info.variableCount;
    const uint32_t* found = std::lower_bound(
        info.nameOrder, end, name, [memory](uint32_t variable, std::string_view wanted) {
            return std::string_view(Catalogue::variable(memory, variable).name) < wanted;
        });
    if (found == end || Catalogue::variable(memory, *found).name != name) {
        return std::nullopt;
    }
    return *found;
}

const StructTypeInfo* findStructType(std::string_view name) {
    for (uint32_t i = 0; i < tables().structCount; ++i) {
        if (name == tables().structs[i].name) {
            return &tables().structs[i];
        }
    }
    return nullptr;
}

} // namespace Introspection
