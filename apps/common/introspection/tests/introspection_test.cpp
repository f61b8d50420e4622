// Lookups, index checks, the event map, ranges and range checks over the
// generated catalogue, with the memories created by the catalogue's start-up.
#include "catalogueenvironment.h"
#include "kmsgcapture.h"
#include "settings-service/introspection.h"
#include "settings-service/memories.h"

#include <gtest/gtest.h>

#include <cstring>
#include <functional>
#include <optional>
#include <stdexcept>
#include <string>

namespace {

using namespace Introspection;

constexpr uint32_t PERSISTENT = 0;

// The message of a thrown runtime error, after its "<file>:<line> " location.
std::string thrownMessage(const std::function<void()>& call) {
    try {
        call();
    } catch (const std::runtime_error& error) {
        const std::string text = error.what();
        constexpr size_t LOCATION = 26; // "%20s:%4i "
        return text.size() >= LOCATION ? text.substr(LOCATION) : text;
    }
    return "(nothing thrown)";
}

uint32_t variableIndex(uint32_t memory, const std::string& name) {
    const std::optional<uint32_t> variable = findVarIndex(memory, name);
    if (!variable) {
        throw std::logic_error("no variable " + name);
    }
    return *variable;
}

// Restores a descriptor that a test changes to reach a case the generated data lacks.
class DescriptorGuard {
public:
    DescriptorGuard(uint32_t memory, uint32_t variable)
        : entry(MEMORY_ARRAY[memory].variables[variable]), saved(entry) {}
    ~DescriptorGuard() {
        entry.event = saved.event;
        entry.min = saved.min;
        entry.max = saved.max;
        entry.arrayLength = saved.arrayLength;
        entry.isArray = saved.isArray;
        entry.baseType = saved.baseType;
    }
    VariableDescriptor& entry;

private:
    VariableDescriptor saved;
};

TEST(Memories, CountNamesAndIndexes) {
    EXPECT_EQ(getMemCount(), 20u);
    EXPECT_STREQ(getMemName(0), "MemPersistent");
    EXPECT_STREQ(getMemName(18), "MemDebug");
    EXPECT_STREQ(getMemName(19), "MemApp");
    for (uint32_t memory = 0; memory < getMemCount(); ++memory) {
        EXPECT_EQ(getMemIndex(getMemName(memory)), memory);
    }
    EXPECT_EQ(thrownMessage([] { getMemName(20); }), "Index exceeds limit");
    EXPECT_EQ(thrownMessage([] { getVarCount(20); }), "Index exceeds limit");
}

TEST(Memories, UnknownMemoryNameThrows) {
    EXPECT_EQ(thrownMessage([] { getMemIndex("MemFoo"); }), "Unknown memory \"MemFoo\"");
    EXPECT_EQ(thrownMessage([] { getMemIndex("memapp"); }), "Unknown memory \"memapp\"");
    EXPECT_EQ(thrownMessage([] { getMemIndex(""); }), "Unknown memory \"\"");
}

TEST(Memories, VariableCounts) {
    const uint32_t expected[] = {140, 92,  90, 112, 11, 33, 15, 31, 52, 46,
                                 5,   177, 36, 12,  17, 11, 38, 8,  1,  17};
    uint32_t total = 0;
    for (uint32_t memory = 0; memory < getMemCount(); ++memory) {
        EXPECT_EQ(getVarCount(memory), expected[memory]) << getMemName(memory);
        total += getVarCount(memory);
    }
    EXPECT_EQ(total, 944u);
}

TEST(Variables, EveryIndexedOperationChecksBothIndexes) {
    const uint32_t count = getVarCount(PERSISTENT);
    const std::vector<std::pair<uint32_t, uint32_t>> outside = {
        {20, 0}, {PERSISTENT, count}, {UINT32_MAX, 0}, {18, 1}};
    for (const auto& [m, v] : outside) {
        SCOPED_TRACE(std::to_string(m) + ", " + std::to_string(v));
        std::string error;
        const std::vector<std::function<void()>> calls = {
            [&] { getVarName(m, v); },
            [&] { getVarType(m, v); },
            [&] { getVarBaseType(m, v); },
            [&] { getVarBaseTypeName(m, v); },
            [&] { getVarArrayLen(m, v); },
            [&] { getVarEvent(m, v); },
            [&] { isArray(m, v); },
            [&] { getElementCount(m, v); },
            [&] { getVarValue(m, v, 0); },
            [&] { setVarValue(m, v, "1"); },
            [&] { setVarValueJson(m, v, {}, 0); },
            [&] { getVarMin(m, v); },
            [&] { getVarMax(m, v); },
            [&] { checkMinMax(m, v, "1", error); },
        };
        for (size_t i = 0; i < calls.size(); ++i) {
            EXPECT_EQ(thrownMessage(calls[i]), "Index exceeds limit") << "call " << i;
        }
    }
    EXPECT_NO_THROW(getVarName(PERSISTENT, count - 1));
    EXPECT_NO_THROW(getVarName(18, 0));
}

TEST(Variables, FindByExactName) {
    EXPECT_EQ(findVarIndex(PERSISTENT, "AUXTorque"), 0u);
    EXPECT_EQ(findVarIndex(PERSISTENT, "ZoomTorque"), getVarCount(PERSISTENT) - 1);
    EXPECT_EQ(findVarIndex(19, "AppLogLevel"), 0u);
    EXPECT_EQ(findVarIndex(PERSISTENT, "auxtorque"), std::nullopt);
    EXPECT_EQ(findVarIndex(PERSISTENT, "AppLogLevel"), std::nullopt);
    EXPECT_EQ(findVarIndex(PERSISTENT, ""), std::nullopt);
    EXPECT_EQ(thrownMessage([] { findVarIndex(20, "AUXTorque"); }), "Index exceeds limit");
}

TEST(Variables, FindsEveryVariableOfEveryMemoryAtItsOwnIndex) {
    for (uint32_t m = 0; m < getMemCount(); ++m) {
        for (uint32_t v = 0; v < getVarCount(m); ++v) {
            const std::string name = getVarName(m, v);
            EXPECT_EQ(findVarIndex(m, name), v) << getMemName(m) << " " << name;
            EXPECT_EQ(findVarIndex(m, name + "_"), std::nullopt) << name;
            EXPECT_NE(findVarIndex(m, name.substr(0, name.size() - 1)), v) << name;
        }
    }
}

TEST(Variables, TellingRowsOfMemPersistent) {
    struct Row {
        const char* name;
        EventId event;
        uint32_t offset;
        const char* type;
        uint32_t base;
        const char* min;
        const char* max;
    };
    const Row rows[] = {
        {"AUXTorque", EventId(173), 56, "int", BaseInt, "1", "4"},
        {"BluetoothPower", EventId(269), 644, "bool", BaseBool, nullptr, nullptr},
        {"ButtonBrightness", EventId(482), 132, "int", BaseInt, "0", "10"},
        {"ButtonsLocked", EventId(334), 184, "bool", BaseBool, nullptr, nullptr},
        {"CinefadeDisplayModeValue", EventId(990), 1132, "CinefadeDisplayMode", BaseEnum, nullptr,
         nullptr},
        {"CinefadeTorque", EventId(177), 64, "int", BaseInt, "1", "4"},
        {"CircleofConfusion", EventId(49), 172, "float", BaseFloat, "0.005", "0.1"},
    };
    for (uint32_t variable = 0; variable < std::size(rows); ++variable) {
        const Row& row = rows[variable];
        SCOPED_TRACE(row.name);
        EXPECT_STREQ(getVarName(PERSISTENT, variable), row.name);
        EXPECT_STREQ(getVarType(PERSISTENT, variable), row.type);
        EXPECT_EQ(getVarBaseType(PERSISTENT, variable), row.base);
        EXPECT_EQ(getVarBaseTypeName(PERSISTENT, variable), row.base);
        const Notify event = getVarEvent(PERSISTENT, variable);
        EXPECT_EQ(event.id, row.event);
        EXPECT_EQ(event.indexed, 0u);
        EXPECT_EQ(event.index, 0u);
        EXPECT_EQ(MEMORY_ARRAY[PERSISTENT].variables[variable].offset, row.offset);
        if (row.min) {
            EXPECT_EQ(getVarMin(PERSISTENT, variable), row.min);
            EXPECT_EQ(getVarMax(PERSISTENT, variable), row.max);
        }
        EXPECT_EQ(getVarArrayLen(PERSISTENT, variable), nullptr);
        EXPECT_FALSE(isArray(PERSISTENT, variable));
    }
}

TEST(Variables, BaseTypeNameIsTheCode) {
    const uint32_t cinefade = variableIndex(PERSISTENT, "CinefadeDisplayModeValue");
    EXPECT_EQ(getVarBaseTypeName(PERSISTENT, cinefade), 5u);
    const std::vector<std::string> names(std::begin(BASE_TYPE_NAME_ARRAY),
                                         std::end(BASE_TYPE_NAME_ARRAY));
    EXPECT_EQ(names,
              (std::vector<std::string>{"int", "float", "bool", "string", "enum", "struct"}));
    for (uint32_t memory = 0; memory < getMemCount(); ++memory) {
        for (uint32_t variable = 0; variable < getVarCount(memory); ++variable) {
            ASSERT_EQ(getVarBaseTypeName(memory, variable), getVarBaseType(memory, variable));
        }
    }
}

TEST(Variables, ArraysAndTheirLengths) {
    const uint32_t recent = variableIndex(PERSISTENT, "RecentLensFiles");
    EXPECT_STREQ(getVarArrayLen(PERSISTENT, recent), "5");
    EXPECT_TRUE(isArray(PERSISTENT, recent));
    const uint32_t folder = variableIndex(PERSISTENT, "LensFileFavouriteFolder");
    EXPECT_STREQ(getVarArrayLen(PERSISTENT, folder), "64");
    EXPECT_FALSE(isArray(PERSISTENT, folder)) << "a string's capacity is no array";
    EXPECT_EQ(getElementCount(PERSISTENT, recent), 5u);
    EXPECT_EQ(getElementCount(PERSISTENT, folder), 1u);
    EXPECT_EQ(getElementCount(PERSISTENT, variableIndex(PERSISTENT, "AUXTorque")), 1u);
}

TEST(Variables, IsArrayDetectsTheBase) {
    const uint32_t recent = variableIndex(PERSISTENT, "RecentLensFiles");
    DescriptorGuard guard(PERSISTENT, recent);
    guard.entry.arrayLength = "0x10";
    EXPECT_TRUE(isArray(PERSISTENT, recent));
    EXPECT_EQ(getElementCount(PERSISTENT, recent), 16u);
    guard.entry.arrayLength = "010";
    EXPECT_TRUE(isArray(PERSISTENT, recent));
    guard.entry.arrayLength = "0";
    EXPECT_TRUE(isArray(PERSISTENT, recent));
    guard.entry.arrayLength = "-1";
    EXPECT_FALSE(isArray(PERSISTENT, recent));
    guard.entry.arrayLength = "-0x1";
    EXPECT_FALSE(isArray(PERSISTENT, recent));
    guard.entry.arrayLength = "5";
    guard.entry.isArray = 0;
    EXPECT_FALSE(isArray(PERSISTENT, recent));
}

TEST(Events, EveryVariableIsFoundByItsEvent) {
    for (uint32_t memory = 0; memory < getMemCount(); ++memory) {
        for (uint32_t variable = 0; variable < getVarCount(memory); ++variable) {
            uint32_t foundMemory = 99;
            uint32_t foundVariable = 99;
            getVarLocation(getVarEvent(memory, variable), foundMemory, foundVariable);
            ASSERT_EQ(foundMemory, memory) << getVarName(memory, variable);
            ASSERT_EQ(foundVariable, variable) << getVarName(memory, variable);
        }
    }
}

TEST(Events, EventsOfNoVariableGiveZeroZero) {
    for (uint32_t id : {0u, 3u, 5u, 17u, EVENT_ID_COUNT, EVENT_ID_COUNT + 1000, UINT32_MAX}) {
        uint32_t memory = 99;
        uint32_t variable = 99;
        getVarLocation({EventId(id), 0, 0}, memory, variable);
        EXPECT_EQ(memory, 0u) << id;
        EXPECT_EQ(variable, 0u) << id;
    }
    uint32_t memory = 99;
    uint32_t variable = 99;
    getVarLocation({VarButtonBrightnessChanged, 1, 7}, memory, variable);
    EXPECT_EQ(memory, 0u);
    EXPECT_EQ(variable, 2u);
    genEventToVar();
    getVarLocation({VarAppLogLevelChanged, 0, 0}, memory, variable);
    EXPECT_STREQ(getVarName(memory, variable), "AppLogLevel");
}

TEST(Values, ClosedMemoryReadsAndWritesNa) {
    const uint32_t torque = variableIndex(PERSISTENT, "AUXTorque");
    const uint32_t recent = variableIndex(PERSISTENT, "RecentLensFiles");
    uint8_t* const open = gMemPersistent;
    gMemPersistent = nullptr;
    EXPECT_EQ(getVarValue(PERSISTENT, torque, 0), "n/a");
    EXPECT_EQ(setVarValue(PERSISTENT, torque, "3"), "n/a");
    EXPECT_EQ(setVarValueJson(PERSISTENT, recent, {}, 0), "n/a");
    gMemPersistent = open;
    EXPECT_EQ(getVarValue(PERSISTENT, torque, 0), "2");
    EXPECT_TRUE(brokerPeer().received().empty());
}

TEST(Values, GetAndSetThroughTheCatalogue) {
    const uint32_t torque = variableIndex(PERSISTENT, "AUXTorque");
    EXPECT_EQ(setVarValue(PERSISTENT, torque, "3"), "");
    EXPECT_EQ(getVarValue(PERSISTENT, torque, 0), "3");
    std::vector<Notify> posted = brokerPeer().received();
    ASSERT_EQ(posted.size(), 1u);
    EXPECT_EQ(posted[0].id, VarAUXTorqueChanged);
    EXPECT_EQ(setVarValue(PERSISTENT, torque, "x"), "Can't convert x to int");
    EXPECT_EQ(setVarValue(PERSISTENT, torque, "2"), "");
    EXPECT_EQ(getVarValue(PERSISTENT, torque, 0), "2");
    EXPECT_EQ(brokerPeer().received().size(), 1u);
}

TEST(Values, SetVarValueJsonKeepsTheElementIndexInTheTable) {
    const uint32_t recent = variableIndex(PERSISTENT, "RecentLensFiles");
    DescriptorGuard guard(PERSISTENT, recent);
    EXPECT_EQ(setVarValueJson(PERSISTENT, recent, {{"LensFileUseCount", {"41", false}}}, 3), "");
    EXPECT_EQ(getVarEvent(PERSISTENT, recent).index, 3u);
    EXPECT_NE(getVarValue(PERSISTENT, recent, 3)
                  .find(R"("LensFileUseCount": {"max":"2147483647","min":"-2147483648",)"
                        R"("type":"int","value":"41"})"),
              std::string::npos);
    std::vector<Notify> posted = brokerPeer().received();
    ASSERT_EQ(posted.size(), 1u);
    EXPECT_EQ(posted[0].id, VarRecentLensFilesChanged);
    EXPECT_EQ(posted[0].indexed, 0u);
    EXPECT_EQ(posted[0].index, 3u);
    // A later write of the whole variable carries the stored index too.
    EXPECT_EQ(setVarValueJson(PERSISTENT, recent, {{"LensFileUseCount", {"0", false}}}, 3), "");
    EXPECT_EQ(brokerPeer().received()[0].index, 3u);
}

TEST(Values, TypedConversionsThroughTheCatalogue) {
    const uint32_t torque = variableIndex(PERSISTENT, "ButtonBrightness");
    EXPECT_EQ(setVarValue(PERSISTENT, torque, "5"), "");
    EXPECT_TRUE(brokerPeer().received().empty()) << "the default is 5: unchanged, no event";
    EXPECT_EQ(setVarValue(PERSISTENT, torque, "1e3"), "");
    EXPECT_EQ(getVarValue(PERSISTENT, torque, 0), "1");
    EXPECT_EQ(setVarValue(PERSISTENT, torque, "x"), "Can't convert x to int");
    EXPECT_EQ(setVarValue(PERSISTENT, torque, "5"), "");
    EXPECT_EQ(brokerPeer().received().size(), 2u);

    const uint32_t name = variableIndex(PERSISTENT, "ProductName");
    ASSERT_STREQ(getVarArrayLen(PERSISTENT, name), "20");
    EXPECT_EQ(setVarValue(PERSISTENT, name, "ABCDEFGHIJKLMNOPQRSTUVWXYZ"), "");
    EXPECT_EQ(getVarValue(PERSISTENT, name, 0), "ABCDEFGHIJKLMNOPQRS");
    EXPECT_EQ(setVarValue(PERSISTENT, name, "ABCDEFGHIJKLMNOPQRS"), "");
    EXPECT_EQ(brokerPeer().received().size(), 2u) << "a string posts on every write";
    EXPECT_EQ(setVarValue(PERSISTENT, name, ""), "");

    const uint32_t radio = variableIndex(PERSISTENT, "RadioModuleList");
    EXPECT_EQ(setVarValue(PERSISTENT, radio, "0aFf"), "");
    EXPECT_EQ(getVarValue(PERSISTENT, radio, 0), "0aff");
    const uint8_t* bytes = MEMORY_ARRAY[PERSISTENT].variables[radio].memoryBase +
                           MEMORY_ARRAY[PERSISTENT].variables[radio].offset;
    EXPECT_EQ(bytes[0], 0x0A);
    EXPECT_EQ(bytes[1], 0xFF);
    EXPECT_EQ(setVarValue(PERSISTENT, radio, "0000"), "");

    const uint32_t bluetooth = variableIndex(PERSISTENT, "BluetoothPower");
    EXPECT_EQ(setVarValue(PERSISTENT, bluetooth, "TRUE"), "Value has to be 'true' or 'false'");
    EXPECT_EQ(getVarValue(PERSISTENT, bluetooth, 0), "false");
    brokerPeer().received();
}

TEST(Values, StringWithoutACapacityIsNotWritten) {
    const uint32_t name = variableIndex(PERSISTENT, "ProductName");
    const std::string before = getVarValue(PERSISTENT, name, 0);
    DescriptorGuard guard(PERSISTENT, name);
    guard.entry.arrayLength = "x";
    EXPECT_EQ(setVarValue(PERSISTENT, name, "abc"), "Can't convert abc to string");
    EXPECT_EQ(getVarValue(PERSISTENT, name, 0), before);
    EXPECT_TRUE(brokerPeer().received().empty());
}

TEST(Values, EnumsThroughTheCatalogue) {
    const uint32_t cinefade = variableIndex(PERSISTENT, "CinefadeDisplayModeValue");
    EXPECT_EQ(setVarValue(PERSISTENT, cinefade, "filter"),
              "filter is not part of enum CinefadeDisplayMode");
    EXPECT_EQ(setVarValue(PERSISTENT, cinefade, "Filter"), "");
    uint8_t* stored = MEMORY_ARRAY[PERSISTENT].variables[cinefade].memoryBase +
                      MEMORY_ARRAY[PERSISTENT].variables[cinefade].offset;
    uint32_t value;
    std::memcpy(&value, stored, 4);
    EXPECT_EQ(value, 1u);
    EXPECT_EQ(brokerPeer().received().size(), 1u);
    EXPECT_EQ(setVarValue(PERSISTENT, cinefade, "Filter"), "");
    EXPECT_TRUE(brokerPeer().received().empty()) << "the stored entry: no event";

    value = 7;
    std::memcpy(stored, &value, 4);
    testsupport::KmsgCapture log;
    EXPECT_EQ(getVarValue(PERSISTENT, cinefade, 0), "INVALID_VALUE: 7");
    const std::vector<std::string> lines = log.lines();
    ASSERT_EQ(lines.size(), 1u);
    EXPECT_NE(lines[0].find("Value 7 of enum CinefadeDisplayMode is above number of entries (3)"),
              std::string::npos)
        << lines[0];
    EXPECT_EQ(setVarValue(PERSISTENT, cinefade, "Default"), "");
    brokerPeer().received();
}

TEST(Ranges, DefaultsByBaseType) {
    const uint32_t bluetooth = variableIndex(PERSISTENT, "BluetoothPower");
    EXPECT_EQ(getVarMin(PERSISTENT, bluetooth), "0");
    EXPECT_EQ(getVarMax(PERSISTENT, bluetooth), "1");

    const uint32_t cinefade = variableIndex(PERSISTENT, "CinefadeDisplayModeValue");
    EXPECT_EQ(getVarMin(PERSISTENT, cinefade), "0");
    EXPECT_EQ(getVarMax(PERSISTENT, cinefade), "2");

    const uint32_t dynamic = getMemIndex("MemDynamic");
    const uint32_t power = variableIndex(dynamic, "PowerStateValue");
    EXPECT_STREQ(getVarType(dynamic, power), "PowerState");
    EXPECT_EQ(getVarMax(dynamic, power), "5") << "PowerState has 6 entries";

    const uint32_t folder = variableIndex(PERSISTENT, "LensFileFavouriteFolder");
    EXPECT_EQ(getVarMin(PERSISTENT, folder), "0");
    EXPECT_EQ(getVarMax(PERSISTENT, folder), "0");

    const uint32_t recent = variableIndex(PERSISTENT, "RecentLensFiles");
    EXPECT_EQ(getVarMin(PERSISTENT, recent), "0");
    EXPECT_EQ(getVarMax(PERSISTENT, recent), "0");

    const uint32_t torque = variableIndex(PERSISTENT, "AUXTorque");
    DescriptorGuard guard(PERSISTENT, torque);
    guard.entry.min = nullptr;
    guard.entry.max = nullptr;
    EXPECT_EQ(getVarMin(PERSISTENT, torque), "-2147483648");
    EXPECT_EQ(getVarMax(PERSISTENT, torque), "2147483647");
    guard.entry.baseType = BaseFloat;
    EXPECT_EQ(getVarMin(PERSISTENT, torque), "-1e38");
    EXPECT_EQ(getVarMax(PERSISTENT, torque), "1e38");
    guard.entry.baseType = BaseString;
    guard.entry.max = "17";
    EXPECT_EQ(getVarMax(PERSISTENT, torque), "17");
    guard.entry.baseType = 4;
    EXPECT_EQ(getVarMin(PERSISTENT, torque), "0");
    EXPECT_EQ(getVarMax(PERSISTENT, torque), "17");
    guard.entry.baseType = 7;
    EXPECT_EQ(getVarMin(PERSISTENT, torque), "0");
    EXPECT_EQ(getVarMax(PERSISTENT, torque), "0");
}

TEST(CheckMinMax, FloatWithOnlyAMaximumRejectsZeroAndNegatives) {
    const uint32_t measure = getMemIndex("MemDistanceMeasure");
    const uint32_t range = variableIndex(measure, "CdmMaxRange");
    ASSERT_EQ(MEMORY_ARRAY[measure].variables[range].min, nullptr);
    ASSERT_STREQ(MEMORY_ARRAY[measure].variables[range].max, "25");
    std::string error;
    EXPECT_FALSE(checkMinMax(measure, range, "0", error));
    EXPECT_FALSE(checkMinMax(measure, range, "-1", error));
    EXPECT_TRUE(checkMinMax(measure, range, "0.5", error));
    EXPECT_TRUE(checkMinMax(measure, range, "25", error));
    EXPECT_FALSE(checkMinMax(measure, range, "25.01", error));
    EXPECT_TRUE(checkMinMax(measure, range, "1e-37", error));
    EXPECT_EQ(error, "");
}

TEST(CheckMinMax, IntRange) {
    const uint32_t torque = variableIndex(PERSISTENT, "AUXTorque");
    std::string error = "kept";
    EXPECT_TRUE(checkMinMax(PERSISTENT, torque, "1", error));
    EXPECT_TRUE(checkMinMax(PERSISTENT, torque, "4", error));
    EXPECT_FALSE(checkMinMax(PERSISTENT, torque, "0", error));
    EXPECT_FALSE(checkMinMax(PERSISTENT, torque, "5", error));
    EXPECT_TRUE(checkMinMax(PERSISTENT, torque, "3abc", error)) << "stoi stops at the letters";
    EXPECT_FALSE(checkMinMax(PERSISTENT, torque, "0x3", error)) << "decimal: 0x3 reads 0";
    EXPECT_EQ(error, "kept") << "the error text is not touched without a conversion error";
}

TEST(CheckMinMax, ConversionErrors) {
    const uint32_t torque = variableIndex(PERSISTENT, "AUXTorque");
    std::string error;
    EXPECT_FALSE(checkMinMax(PERSISTENT, torque, "abc", error));
    EXPECT_EQ(error, "Can't convert \"abc\"\n");
    EXPECT_FALSE(checkMinMax(PERSISTENT, torque, "99999999999", error));
    EXPECT_EQ(error, "Can't convert \"99999999999\"\n");
    const uint32_t confusion = variableIndex(PERSISTENT, "CircleofConfusion");
    EXPECT_FALSE(checkMinMax(PERSISTENT, confusion, "", error));
    EXPECT_EQ(error, "Can't convert \"\"\n");
    EXPECT_TRUE(checkMinMax(PERSISTENT, confusion, "0.05", error));
    EXPECT_FALSE(checkMinMax(PERSISTENT, confusion, "0.2", error));
    EXPECT_FALSE(checkMinMax(PERSISTENT, confusion, "0.001", error));
    EXPECT_EQ(error, "Can't convert \"\"\n");
}

TEST(CheckMinMax, OtherTypesAndMissingRange) {
    std::string error;
    EXPECT_TRUE(checkMinMax(PERSISTENT, variableIndex(PERSISTENT, "BluetoothPower"), "x", error));
    EXPECT_TRUE(
        checkMinMax(PERSISTENT, variableIndex(PERSISTENT, "LensFileFavouriteFolder"), "", error));
    EXPECT_TRUE(checkMinMax(PERSISTENT, variableIndex(PERSISTENT, "CinefadeDisplayModeValue"),
                            "nonsense", error));
    EXPECT_TRUE(checkMinMax(PERSISTENT, variableIndex(PERSISTENT, "RecentLensFiles"), "{", error));
    EXPECT_EQ(error, "");

    const uint32_t torque = variableIndex(PERSISTENT, "AUXTorque");
    DescriptorGuard guard(PERSISTENT, torque);
    guard.entry.min = nullptr;
    guard.entry.max = nullptr;
    EXPECT_TRUE(checkMinMax(PERSISTENT, torque, "abc", error)) << "no range, no conversion";
    guard.entry.max = "4";
    EXPECT_TRUE(checkMinMax(PERSISTENT, torque, "-2147483648", error));
    EXPECT_FALSE(checkMinMax(PERSISTENT, torque, "5", error));
    guard.entry.baseType = BaseFloat;
    guard.entry.max = nullptr;
    EXPECT_TRUE(checkMinMax(PERSISTENT, torque, "abc", error));
    guard.entry.min = "-5";
    EXPECT_TRUE(checkMinMax(PERSISTENT, torque, "3e38", error));
    EXPECT_FALSE(checkMinMax(PERSISTENT, torque, "-6", error));
    EXPECT_EQ(error, "");
    guard.entry.baseType = 4;
    EXPECT_FALSE(checkMinMax(PERSISTENT, torque, "1", error));
    guard.entry.baseType = 7;
    EXPECT_FALSE(checkMinMax(PERSISTENT, torque, "1", error));
    EXPECT_EQ(error, "");
}

} // namespace
