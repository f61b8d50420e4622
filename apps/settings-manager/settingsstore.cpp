// Change tracking and writing settings documents from the live values of
// MemPersistent.
#include "settingsmanager.h"

#include "constants.h"
#include "introspection.h"
#include "log.h"

#include <filesystem>
#include <fstream>
#include <string>

namespace {

// The code of a buffer; BaseType has no name for it, the catalogue gives
// buffers the code of strings.
constexpr uint32_t BUFFER_BASE_TYPE = 4;

// Ints, floats, bools and structs are written bare; every other type is quoted.
const char* valueQuote(uint32_t baseType) {
    switch (baseType) {
    case BaseInt:
    case BaseFloat:
    case BaseBool:
    case BaseStruct:
        return "";
    default:
        return "\"";
    }
}

} // namespace

void SettingsManager::addUpdate(EventId event) {
    const uint32_t memory = persistentMemoryIndex;
    const uint32_t count = Introspection::getVarCount(memory);
    for (uint32_t variable = 0; variable < count; ++variable) {
        if (Introspection::getVarEvent(memory, variable).id == event) {
            LOG(LogLight, "%s changed to %s", Introspection::getVarName(memory, variable),
                Introspection::getVarValue(memory, variable, 0).c_str());
            break;
        }
    }
    dirty = true;
}

std::stringstream SettingsManager::getCurrentValues() {
    writeProductInfo();
    const uint32_t memory = persistentMemoryIndex;
    const uint32_t count = Introspection::getVarCount(memory);
    std::stringstream document;
    document << "{" << std::endl;
    for (uint32_t variable = 0; variable < count; ++variable) {
        const uint32_t baseType = Introspection::getVarBaseType(memory, variable);
        document << "\"" << Introspection::getVarName(memory, variable) << "\": ";
        if (Introspection::isArray(memory, variable) && baseType != BaseString &&
            baseType != BUFFER_BASE_TYPE) {
            const int length = std::stoi(Introspection::getVarArrayLen(memory, variable));
            document << "[";
            for (int element = 0; element < length; ++element) {
                if (element > 0) {
                    document << ",";
                }
                document << Introspection::getVarValue(memory, variable, element);
            }
            document << "]";
        } else {
            const char* quote = valueQuote(baseType);
            document << quote << Introspection::getVarValue(memory, variable, 0) << quote;
        }
        if (variable + 1 < count) {
            document << "," << std::endl;
        }
    }
    document << std::endl << "}";
    return document;
}

bool SettingsManager::isMissing(const std::string& path) {
    const auto type = std::filesystem::status(path).type();
    return type == std::filesystem::file_type::not_found ||
           type == std::filesystem::file_type::none;
}

bool SettingsManager::storeToMemory(const char* name) {
    std::ofstream file(settingsPath + name + Constants::SETUPS_EXTENSION,
                       std::ios::out | std::ios::trunc);
    if (!file.is_open()) {
        return false;
    }
    file << getCurrentValues().rdbuf();
    file.close();
    return true;
}
