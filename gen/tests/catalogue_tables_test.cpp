// The generated catalogue checked from C++ on the target: the facts that other programs rely
// on, and the C++ layout against the generator's JSON catalogue (the same document for every
// target, so a pass on x86-64 and on ARM shows the same layout on both).
#include "settings-service/catalogue.h"
#include "settings-service/enums.h"
#include "settings-service/eventid.h"
#include "settings-service/introspection.h"
#include "settings-service/memories.h"
#include "settings-service/records.h"
#include "settings-service/setters.h"

#include <algorithm>
#include <cstring>
#include <fstream>
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>
#include <set>
#include <string>
#include <vector>

namespace {

struct MemoryRow {
    const char* name;
    uint32_t size;
    uint32_t variables;
};

const MemoryRow MEMORY_TABLE[] = {
    {"MemPersistent", 1136, 140},
    {"MemDynamic", 432, 92},
    {"MemDistanceMeasure", 3588, 90},
    {"MemCamera", 139120, 112},
    {"MemStatic", 252, 11},
    {"MemLens", 61244, 33},
    {"MemLensMarkers", 15, 15},
    {"MemExternalDevices", 3708, 31},
    {"MemMotors", 684, 52},
    {"MemHwControl", 7232, 46},
    {"MemBluetooth", 520, 5},
    {"MemGuiLocal", 14008, 177},
    {"MemServiceMode", 2844, 36},
    {"MemDeviceState", 24, 12},
    {"MemMedia", 20396, 17},
    {"MemUserSetups", 476, 11},
    {"MemLensProgramming", 156, 38},
    {"MemTestautomation", 28, 8},
    {"MemDebug", 360, 1},
    {"MemApp", 68, 17},
};

const VariableDescriptor* find(const char* memoryName, const char* name) {
    for (uint32_t m = 0; m < MEMORY_ARRAY_SIZE; ++m) {
        if (std::strcmp(MEMORY_ARRAY[m].name, memoryName) != 0) {
            continue;
        }
        for (uint32_t v = 0; v < MEMORY_ARRAY[m].variableCount; ++v) {
            if (std::strcmp(MEMORY_ARRAY[m].variables[v].name, name) == 0) {
                return &MEMORY_ARRAY[m].variables[v];
            }
        }
    }
    return nullptr;
}

std::string text(const char* value) {
    return value ? value : "(none)";
}

const StructTypeInfo* findStruct(const char* name) {
    for (uint32_t s = 0; s < STRUCT_ARRAY_SIZE; ++s) {
        if (std::strcmp(STRUCT_ARRAY[s].name, name) == 0) {
            return &STRUCT_ARRAY[s];
        }
    }
    return nullptr;
}

TEST(Catalogue, MemoryTableAndSegments) {
    ASSERT_EQ(MEMORY_ARRAY_SIZE, 20u);
    uint32_t total = 0;
    for (uint32_t m = 0; m < MEMORY_ARRAY_SIZE; ++m) {
        EXPECT_STREQ(MEMORY_ARRAY[m].name, MEMORY_TABLE[m].name);
        EXPECT_EQ(MEMORY_ARRAY[m].variableCount, MEMORY_TABLE[m].variables) << MEMORY_TABLE[m].name;
        EXPECT_EQ(gen::getSharedMemory(m).getSize(), MEMORY_TABLE[m].size) << MEMORY_TABLE[m].name;
        EXPECT_EQ(gen::getSharedMemory(m).getName(), std::string("/") + MEMORY_TABLE[m].name);
        total += MEMORY_ARRAY[m].variableCount;
    }
    EXPECT_EQ(total, 944u);
}

TEST(Catalogue, RecordTypesHaveTheRecordSizes) {
    EXPECT_EQ(sizeof(gen::MemPersistentRecord), 1136u);
    EXPECT_EQ(sizeof(gen::MemCameraRecord), 139120u);
    EXPECT_EQ(sizeof(gen::MemLensRecord), 61244u);
    EXPECT_EQ(sizeof(gen::MemLensMarkersRecord), 15u);
    EXPECT_EQ(sizeof(gen::MemDebugRecord), 360u);
    EXPECT_EQ(sizeof(gen::MemUserSetupsRecord), 476u);
    EXPECT_EQ(sizeof(gen::MemAppRecord), 68u);
    EXPECT_EQ(offsetof(gen::MemPersistentRecord, AUXTorque), 56u);
    EXPECT_EQ(offsetof(gen::MemPersistentRecord, BluetoothPower), 644u);
    EXPECT_EQ(offsetof(gen::MemPersistentRecord, CinefadeDisplayModeValue), 1132u);
    EXPECT_EQ(offsetof(gen::MemAppRecord, AppSettingsManagerLogLevel), 20u);
    EXPECT_EQ(sizeof(gen::LensTable), findStruct("LensTable")->size);
    EXPECT_EQ(sizeof(gen::ScaleValues), 48u);
}

TEST(Catalogue, PersistentNamesAreInByteOrder) {
    const MemoryInfo& persistent = MEMORY_ARRAY[0];
    ASSERT_EQ(persistent.variableCount, 140u);
    EXPECT_STREQ(persistent.variables[0].name, "AUXTorque");
    EXPECT_STREQ(persistent.variables[6].name, "CircleofConfusion");
    EXPECT_STREQ(persistent.variables[139].name, "ZoomTorque");
    for (uint32_t v = 1; v < persistent.variableCount; ++v) {
        EXPECT_LT(std::strcmp(persistent.variables[v - 1].name, persistent.variables[v].name), 0)
            << persistent.variables[v].name;
    }
}

struct TellingRow {
    const char* name;
    EventId event;
    uint32_t offset;
    const char* type;
    uint32_t baseType;
    const char* min;
    const char* max;
};

TEST(Catalogue, EveryMemoryHoldsItsVariablesInNameOrder) {
    for (uint32_t m = 0; m < MEMORY_ARRAY_SIZE; ++m) {
        const MemoryInfo& info = MEMORY_ARRAY[m];
        ASSERT_NE(info.nameOrder, nullptr) << info.name;
        const std::vector<uint32_t> order(info.nameOrder, info.nameOrder + info.variableCount);
        std::vector<uint32_t> indexes = order;
        std::sort(indexes.begin(), indexes.end());
        for (uint32_t v = 0; v < info.variableCount; ++v) {
            ASSERT_EQ(indexes[v], v) << info.name;
        }
        for (uint32_t k = 1; k < info.variableCount; ++k) {
            const int compared =
                std::strcmp(info.variables[order[k - 1]].name, info.variables[order[k]].name);
            EXPECT_TRUE(compared < 0 || (compared == 0 && order[k - 1] < order[k]))
                << info.name << " " << info.variables[order[k]].name;
        }
        for (uint32_t v = 0; v < info.variableCount; ++v) {
            const std::optional<uint32_t> found =
                Introspection::findVarIndex(m, info.variables[v].name);
            ASSERT_TRUE(found.has_value()) << info.variables[v].name;
            EXPECT_STREQ(info.variables[*found].name, info.variables[v].name);
        }
    }
    EXPECT_FALSE(Introspection::findVarIndex(0, "NoSuchVariable").has_value());
}

TEST(Catalogue, TellingRowsOfMemPersistent) {
    const TellingRow rows[] = {
        {"AUXTorque", VarAUXTorqueChanged, 56, "int", BaseInt, "1", "4"},
        {"BluetoothPower", VarBluetoothPowerChanged, 644, "bool", BaseBool, nullptr, nullptr},
        {"ButtonBrightness", VarButtonBrightnessChanged, 132, "int", BaseInt, "0", "10"},
        {"ButtonsLocked", VarButtonsLockedChanged, 184, "bool", BaseBool, nullptr, nullptr},
        {"CinefadeDisplayModeValue", VarCinefadeDisplayModeValueChanged, 1132,
         "CinefadeDisplayMode", BaseEnum, nullptr, nullptr},
        {"CinefadeTorque", VarCinefadeTorqueChanged, 64, "int", BaseInt, "1", "4"},
    };
    const uint32_t ids[] = {173, 269, 482, 334, 990, 177};
    for (size_t i = 0; i < std::size(rows); ++i) {
        const TellingRow& row = rows[i];
        const VariableDescriptor* entry = &MEMORY_ARRAY[0].variables[i];
        ASSERT_STREQ(entry->name, row.name);
        EXPECT_EQ(entry->event.id, row.event);
        EXPECT_EQ(static_cast<uint32_t>(row.event), ids[i]);
        EXPECT_EQ(entry->offset, row.offset);
        EXPECT_STREQ(entry->typeName, row.type);
        EXPECT_EQ(entry->baseType, row.baseType);
        EXPECT_EQ(text(entry->min), text(row.min));
        EXPECT_EQ(text(entry->max), text(row.max));
    }
    const VariableDescriptor* circle = find("MemPersistent", "CircleofConfusion");
    EXPECT_EQ(circle->event.id, 49u);
    EXPECT_EQ(circle->offset, 172u);
    EXPECT_STREQ(circle->typeName, "float");
}

TEST(Catalogue, VariablesNamedByOtherPrograms) {
    struct Row {
        const char* memory;
        const char* name;
        const char* type;
        const char* length;
        uint32_t event;
    };
    const Row rows[] = {
        {"MemPersistent", "ProductName", "string", "20", 230},
        {"MemPersistent", "ProductVersion", "string", "20", 231},
        {"MemStatic", "ProductLastCommit", "string", "50", 232},
        {"MemStatic", "ProductSerial", "string", "50", 233},
        {"MemStatic", "ProductRevision", "string", "50", 234},
        {"MemDeviceState", "FileAlreadyExists", "bool", nullptr, 882},
        {"MemGuiLocal", "FactoryReset", "bool", nullptr, 328},
        {"MemUserSetups", "UserSetupSave", "string", "18", 922},
        {"MemUserSetups", "UserSetupAcceptLoadFileName", "bool", nullptr, 923},
        {"MemUserSetups", "UserSetupAcceptSaveFileName", "bool", nullptr, 924},
        {"MemUserSetups", "UserSetupAddNew", "bool", nullptr, 925},
        {"MemUserSetups", "UserSetupRename", "bool", nullptr, 926},
        {"MemUserSetups", "UserSetupOverwriteFile", "bool", nullptr, 927},
        {"MemUserSetups", "UserSetupList", "UserSetupFiles", "20", 929},
        {"MemUserSetups", "UserSetupListSize", "int", nullptr, 930},
        {"MemUserSetups", "UserSetupSelectedFileIndex", "int", nullptr, 931},
        {"MemUserSetups", "UserSetupDelete", "bool", nullptr, 932},
        {"MemUserSetups", "UserSetupFileCheckDone", "bool", nullptr, 934},
    };
    for (const Row& row : rows) {
        const VariableDescriptor* entry = find(row.memory, row.name);
        ASSERT_NE(entry, nullptr) << row.name;
        EXPECT_STREQ(entry->typeName, row.type) << row.name;
        EXPECT_EQ(text(entry->arrayLength), text(row.length)) << row.name;
        EXPECT_EQ(entry->event.id, row.event) << row.name;
    }
    ASSERT_NE(find("MemDeviceState", "FileNotFound"), nullptr);
    EXPECT_STREQ(find("MemDeviceState", "FileNotFound")->typeName, "bool");
    EXPECT_EQ(find("MemUserSetups", "UserSetupList")->isArray, 1);
    const StructTypeInfo* files = findStruct("UserSetupFiles");
    ASSERT_EQ(files->members->size(), 1u);
    EXPECT_EQ((*files->members)[0].elementSize, 22u);
}

TEST(Catalogue, LogLevelsOfMemApp) {
    const MemoryInfo& app = MEMORY_ARRAY[19];
    ASSERT_EQ(app.variableCount, 17u);
    std::set<uint32_t> offsets;
    for (uint32_t v = 0; v < app.variableCount; ++v) {
        EXPECT_STREQ(app.variables[v].typeName, "LogLevel");
        offsets.insert(app.variables[v].offset);
    }
    EXPECT_EQ(offsets.size(), 17u);
    EXPECT_EQ(*offsets.rbegin(), 64u);
    EXPECT_EQ(find("MemApp", "AppSettingsManagerLogLevel")->offset, 20u);
    EXPECT_EQ(find("MemApp", "AppLogLevel")->event.id, VarAppLogLevelChanged);
}

TEST(Catalogue, SmallMemories) {
    EXPECT_EQ(MEMORY_ARRAY[18].variableCount, 1u);
    EXPECT_STREQ(MEMORY_ARRAY[18].name, "MemDebug");
    EXPECT_EQ(gen::getSharedMemory(6).getSize(), 15u);
    EXPECT_STREQ(MEMORY_ARRAY[6].name, "MemLensMarkers");
}

TEST(Catalogue, ExampleStructMembers) {
    const StructTypeInfo* scale = findStruct("ScaleValues");
    ASSERT_NE(scale, nullptr);
    struct Member {
        const char* name;
        uint32_t offset;
        uint32_t baseType;
    };
    const Member entry[] = {{"TableEntryFlags", 0, BaseInt},
                            {"EncoderValue", 4, BaseInt},
                            {"EngravedValue", 8, BaseFloat},
                            {"PrimaryEngravedValueAsString", 12, BaseString},
                            {"SecondaryEngravedValueAsString", 27, BaseString},
                            {"InterpolEngravedVal", 44, BaseFloat}};
    ASSERT_EQ(scale->members->size(), std::size(entry));
    for (size_t i = 0; i < std::size(entry); ++i) {
        const StructInfo& member = (*scale->members)[i];
        EXPECT_EQ(member.reserved, 0u);
        EXPECT_STREQ(member.name, entry[i].name);
        EXPECT_EQ(member.offset, entry[i].offset);
        EXPECT_EQ(member.baseType, entry[i].baseType);
    }
    const StructTypeInfo* table = findStruct("LensTable");
    ASSERT_NE(table, nullptr);
    const StructMembers& members = *table->members;
    ASSERT_EQ(members.size(), 9u);
    EXPECT_STREQ(members[0].name, "TableActive");
    EXPECT_EQ(members[0].baseType, BaseBool);
    EXPECT_STREQ(members[6].name, "LensTableValueList");
    EXPECT_EQ(members[6].offset, 24u);
    EXPECT_EQ(members[6].baseType, BaseStruct);
    EXPECT_STREQ(members[6].typeName, "ScaleValues");
    EXPECT_STREQ(members[7].name, "LensTableMotorAtLeftSide");
    EXPECT_EQ(members[7].offset, 12312u);
    EXPECT_STREQ(members[8].name, "LensTableInverse");
    EXPECT_EQ(members[8].offset, 12313u);
    EXPECT_EQ(STRUCT_ARRAY_SIZE, 32u);
}

TEST(Catalogue, EnumTable) {
    EXPECT_EQ(ENUM_ARRAY_SIZE, 81u);
    EXPECT_STREQ(ENUM_ARRAY[0].name, "LogLevel");
    EXPECT_EQ(ENUM_ARRAY[0].entryCount, 8u);
    EXPECT_STREQ(ENUM_ARRAY[6].name, "EditVariable");
    EXPECT_EQ(ENUM_ARRAY[6].entryCount, 94u);
    EXPECT_STREQ(ENUM_ARRAY[80].name, "CinefadeDisplayMode");
    ASSERT_EQ(CINEFADEDISPLAYMODE_NAME_ARRAY_SIZE, 3u);
    EXPECT_STREQ(CINEFADEDISPLAYMODE_NAME_ARRAY[0], "Default");
    EXPECT_STREQ(CINEFADEDISPLAYMODE_NAME_ARRAY[1], "Filter");
    EXPECT_STREQ(CINEFADEDISPLAYMODE_NAME_ARRAY[2], "Distance");
    EXPECT_EQ(ENUM_ARRAY[80].entries, CINEFADEDISPLAYMODE_NAME_ARRAY);
    EXPECT_EQ(FOCALLENGTH_NAME_ARRAY_SIZE, 36u);
    EXPECT_EQ(USERBUTTON_NAME_ARRAY_SIZE, 53u);
}

TEST(Catalogue, EventNumbering) {
    ASSERT_EQ(EVENT_ID_COUNT, 1061u);
    const char* fixed[] = {"Invalid",      "Subscribe",      "Unsubscribe",
                           "SubscribeAll", "UnsubscribeAll", "CalibAllMotor"};
    for (uint32_t id = 0; id < 6; ++id) {
        EXPECT_STREQ(EVENT_NAME[id], fixed[id]);
    }
    EXPECT_EQ(UnsubscribeAll, 4u);
    EXPECT_STREQ(EVENT_NAME[6], "VarAppLogLevelChanged");
    EXPECT_STREQ(EVENT_NAME[7], "VarFocusTargetValueChanged");
    EXPECT_STREQ(EVENT_NAME[167], "VarFocusTorqueChanged");
    EXPECT_STREQ(EVENT_NAME[1060], "VarAppDofCalculationLogLevelChanged");
    std::set<uint32_t> ids;
    for (uint32_t m = 0; m < MEMORY_ARRAY_SIZE; ++m) {
        for (uint32_t v = 0; v < MEMORY_ARRAY[m].variableCount; ++v) {
            const VariableDescriptor& entry = MEMORY_ARRAY[m].variables[v];
            ASSERT_LT(entry.event.id, EVENT_ID_COUNT);
            EXPECT_EQ(std::string(EVENT_NAME[entry.event.id]),
                      std::string("Var") + entry.name + "Changed");
            EXPECT_EQ(entry.event.indexed, 0u);
            EXPECT_EQ(entry.event.index, 0u);
            ids.insert(entry.event.id);
        }
    }
    EXPECT_EQ(ids.size(), 944u);
    std::set<std::string> names(EVENT_NAME, EVENT_NAME + EVENT_ID_COUNT);
    EXPECT_EQ(names.size(), 1061u);
}

nlohmann::json catalogueDocument() {
    std::ifstream file(CATALOGUE_JSON);
    return nlohmann::json::parse(file);
}

TEST(Catalogue, DescriptorsMatchTheJsonCatalogue) {
    const nlohmann::json document = catalogueDocument();
    ASSERT_EQ(document["memories"].size(), MEMORY_ARRAY_SIZE);
    for (uint32_t m = 0; m < MEMORY_ARRAY_SIZE; ++m) {
        const nlohmann::json& memory = document["memories"][m];
        EXPECT_EQ(memory["name"], MEMORY_ARRAY[m].name);
        EXPECT_EQ(memory["size"], gen::getSharedMemory(m).getSize());
        ASSERT_EQ(memory["variables"].size(), MEMORY_ARRAY[m].variableCount);
        for (uint32_t v = 0; v < MEMORY_ARRAY[m].variableCount; ++v) {
            const nlohmann::json& json = memory["variables"][v];
            const VariableDescriptor& entry = MEMORY_ARRAY[m].variables[v];
            EXPECT_EQ(json["name"], entry.name);
            EXPECT_EQ(json["offset"], entry.offset) << entry.name;
            EXPECT_EQ(json["elementSize"], entry.elementSize) << entry.name;
            EXPECT_EQ(json["type"], entry.typeName) << entry.name;
            EXPECT_EQ(json["baseType"], entry.baseType) << entry.name;
            EXPECT_EQ(json["event"], static_cast<uint32_t>(entry.event.id)) << entry.name;
            EXPECT_EQ(json["isArray"].get<bool>(), entry.isArray != 0) << entry.name;
            EXPECT_EQ(json["arrayLength"].is_null() ? "(none)"
                                                    : json["arrayLength"].get<std::string>(),
                      text(entry.arrayLength))
                << entry.name;
            EXPECT_EQ(json["min"].is_null() ? "(none)" : json["min"].get<std::string>(),
                      text(entry.min));
            EXPECT_EQ(json["max"].is_null() ? "(none)" : json["max"].get<std::string>(),
                      text(entry.max));
        }
    }
    ASSERT_EQ(document["structs"].size(), STRUCT_ARRAY_SIZE);
    for (uint32_t s = 0; s < STRUCT_ARRAY_SIZE; ++s) {
        const nlohmann::json& json = document["structs"][s];
        EXPECT_EQ(json["name"], STRUCT_ARRAY[s].name);
        EXPECT_EQ(json["size"], STRUCT_ARRAY[s].size);
        ASSERT_EQ(json["members"].size(), STRUCT_ARRAY[s].members->size());
        for (size_t i = 0; i < json["members"].size(); ++i) {
            const StructInfo& member = (*STRUCT_ARRAY[s].members)[i];
            EXPECT_EQ(json["members"][i]["offset"], member.offset) << member.name;
            EXPECT_EQ(json["members"][i]["elementSize"], member.elementSize) << member.name;
        }
    }
}

TEST(Catalogue, DefaultRecordsReadBackAsTheModelsDefaults) {
    const nlohmann::json document = catalogueDocument();
    for (uint32_t m = 0; m < MEMORY_ARRAY_SIZE; ++m) {
        std::vector<uint8_t> image = gen::defaultImage(m);
        ASSERT_EQ(image.size(), gen::getSharedMemory(m).getSize());
        for (uint32_t v = 0; v < MEMORY_ARRAY[m].variableCount; ++v) {
            const nlohmann::json& json = document["memories"][m]["variables"][v];
            const VariableDescriptor& entry = MEMORY_ARRAY[m].variables[v];
            if (json["default"].is_null()) {
                continue;
            }
            const int elements = entry.isArray ? std::stoi(entry.arrayLength) : 1;
            for (int k = 0; k < elements; ++k) {
                EXPECT_EQ(entry.getter(image.data() + entry.offset, k), json["default"])
                    << entry.name << "[" << k << "]";
            }
        }
    }
    std::vector<uint8_t> persistent = gen::defaultImage(0);
    EXPECT_EQ(MEMORY_ARRAY[0].variables[0].getter(persistent.data() + 56, 0), "2");
}

ValueKind kindNamed(const std::string& kind) {
    const std::pair<const char*, ValueKind> kinds[] = {
        {"int", ValueKind::Int},       {"float", ValueKind::Float},   {"bool", ValueKind::Bool},
        {"string", ValueKind::String}, {"buffer", ValueKind::Buffer}, {"enum", ValueKind::Enum},
        {"struct", ValueKind::Struct}};
    for (const auto& [name, value] : kinds) {
        if (kind == name) {
            return value;
        }
    }
    throw std::logic_error("no kind " + kind);
}

// The typed facts say what the descriptor's texts, converters and the JSON catalogue say.
TEST(Catalogue, TypedFactsSayWhatTheTextsSay) {
    const nlohmann::json document = catalogueDocument();
    for (uint32_t m = 0; m < MEMORY_ARRAY_SIZE; ++m) {
        const std::vector<uint8_t> image = gen::defaultImage(m);
        for (uint32_t v = 0; v < MEMORY_ARRAY[m].variableCount; ++v) {
            const VariableDescriptor& entry = MEMORY_ARRAY[m].variables[v];
            const nlohmann::json& json = document["memories"][m]["variables"][v];
            SCOPED_TRACE(entry.name);
            ASSERT_NE(entry.type, nullptr);
            const VariableType& type = *entry.type;
            const ElementType& element = type.element;
            EXPECT_EQ(element.kind, kindNamed(json["kind"]));
            const bool text =
                element.kind == ValueKind::String || element.kind == ValueKind::Buffer;
            EXPECT_EQ(entry.baseType == BaseString, text);
            if (entry.baseType == BaseString) {
                EXPECT_EQ(element.kind == ValueKind::Buffer,
                          entry.getter != &getStringIntrospection);
            }
            EXPECT_EQ(type.count, entry.isArray ? std::stoul(entry.arrayLength) : 1u);
            EXPECT_EQ(element.capacity, text ? std::stoul(entry.arrayLength) : 0u);
            EXPECT_EQ(type.readOnly, entry.setter == &setReadOnlyIntrospection);
            EXPECT_EQ(type.range.hasMin, entry.min != nullptr);
            EXPECT_EQ(type.range.hasMax, entry.max != nullptr);
            const auto number = [&entry](const char* bound) {
                return entry.baseType == BaseInt ? static_cast<double>(std::stoi(bound))
                                                 : static_cast<double>(std::stof(bound));
            };
            EXPECT_EQ(type.range.minimum, entry.min ? number(entry.min) : 0.0);
            EXPECT_EQ(type.range.maximum, entry.max ? number(entry.max) : 0.0);
            EXPECT_EQ(element.enumType != nullptr, element.kind == ValueKind::Enum);
            if (element.enumType != nullptr) {
                EXPECT_STREQ(element.enumType->name, entry.typeName);
                EXPECT_EQ(element.enumType, &Catalogue::enumNamed(entry.typeName));
            }
            EXPECT_EQ(element.structType != nullptr, element.kind == ValueKind::Struct);
            if (element.structType != nullptr) {
                EXPECT_STREQ(element.structType->name, entry.typeName);
                EXPECT_EQ(element.structType->members, entry.structMembers);
            }
            if (json["default"].is_null()) {
                EXPECT_EQ(type.defaultText, nullptr);
            } else {
                ASSERT_NE(type.defaultText, nullptr);
                EXPECT_EQ(type.defaultText, json["default"].get<std::string>());
                EXPECT_EQ(entry.getter(image.data() + entry.offset, 0), type.defaultText);
            }
        }
    }
}

TEST(Catalogue, EveryPersistentDefaultPassesTheRangeCheck) {
    std::vector<uint8_t> image = gen::defaultImage(0);
    for (uint32_t v = 0; v < MEMORY_ARRAY[0].variableCount; ++v) {
        const VariableDescriptor& entry = MEMORY_ARRAY[0].variables[v];
        std::string value;
        if (entry.isArray && entry.baseType != BaseString) {
            value = "[";
            for (int k = 0; k < std::stoi(entry.arrayLength); ++k) {
                value += (k ? "," : "") + entry.getter(image.data() + entry.offset, k);
            }
            value += "]";
        } else {
            value = entry.getter(image.data() + entry.offset, 0);
        }
        std::string error;
        EXPECT_TRUE(Introspection::checkMinMax(0, v, value, error)) << entry.name << " " << value;
        EXPECT_EQ(error, "");
    }
}

} // namespace
