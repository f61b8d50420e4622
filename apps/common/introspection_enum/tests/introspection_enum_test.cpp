#include "settings-service/introspection_enum.h"

#include "connectedmemories.h"
#include "kmsgcapture.h"
#include "logline.h"
#include "settings-service/converters.h"
#include "settings-service/enums.h"
#include "settings-service/memories.h"

#include <functional>
#include <gtest/gtest.h>
#include <stdexcept>

namespace {

std::string errorText(const std::function<void()>& action) {
    try {
        action();
    } catch (const std::runtime_error& error) {
        return error.what();
    }
    return "no exception";
}

TEST(IntrospectionEnum, TableAccess) {
    EXPECT_EQ(IntrospectionEnum::getEnumCount(), 81u);
    EXPECT_STREQ(IntrospectionEnum::getEnumName(80), "CinefadeDisplayMode");
    EXPECT_EQ(IntrospectionEnum::getEnumEntryCount(80), 3u);
    EXPECT_STREQ(IntrospectionEnum::getEnumEntryName(80, 2), "Distance");
    EXPECT_EQ(IntrospectionEnum::getEnumIndex("LogLevel"), 0u);
    EXPECT_EQ(IntrospectionEnum::getEnumIndex("CinefadeDisplayMode"), 80u);
}

TEST(IntrospectionEnum, IndexesBeyondTheTableThrow) {
    for (auto action :
         std::vector<std::function<void()>>{[] { IntrospectionEnum::getEnumName(81); },
                                            [] { IntrospectionEnum::getEnumEntryCount(81); },
                                            [] { IntrospectionEnum::getEnumEntryName(81, 0); },
                                            [] { IntrospectionEnum::getEnumEntryName(80, 3); }}) {
        EXPECT_TRUE(testsupport::isLocatedMessage(errorText(action), "introspection_enum.cpp",
                                                  "Index exceeds limit"));
    }
}

TEST(IntrospectionEnum, UnknownEnumNamesThrow) {
    EXPECT_TRUE(
        testsupport::isLocatedMessage(errorText([] { IntrospectionEnum::getEnumIndex("Foo"); }),
                                      "introspection_enum.cpp", "Unknown enum \"Foo\""));
    EXPECT_TRUE(
        testsupport::isLocatedMessage(errorText([] { IntrospectionEnum::printEnum("x", "Foo"); }),
                                      "introspection_enum.cpp", "Unknown enum \"Foo\""));
}

TEST(IntrospectionEnum, PrintEnumKeepsItsSpacing) {
    EXPECT_EQ(IntrospectionEnum::printEnum("Filter", "CinefadeDisplayMode"),
              "{ \"value\": \"Filter\", \"type\": \"CinefadeDisplayMode\", \"textid\": [ "
              "\"Default\",\"Filter\",\"Distance\"]}");
}

class EnumValues : public ConnectedMemories {
protected:
    // CinefadeDisplayModeValue: MemPersistent variable 4.
    static std::string set(const char* text) {
        const VariableDescriptor& entry = MEMORY_ARRAY[0].variables[4];
        return entry.setter(gMemPersistent, 0, 4, entry.event, text);
    }
};

TEST_F(EnumValues, AValueBeyondTheEntriesReadsInvalid) {
    gen::memPersistent().CinefadeDisplayModeValue = 7;
    testsupport::KmsgCapture capture;
    EXPECT_EQ(
        getCinefadeDisplayModeIntrospection(&gen::memPersistent().CinefadeDisplayModeValue, 0),
        "INVALID_VALUE: 7");
    auto lines = capture.lines();
    ASSERT_EQ(lines.size(), 1u);
    EXPECT_TRUE(testsupport::isLogLine(lines[0], gen::Error, "introspection_enum.cpp",
                                       "Value 7 of enum CinefadeDisplayMode is above number of "
                                       "entries (3)"));
}

TEST_F(EnumValues, EntryNamesAreExactAndUnchangedValuesPostNothing) {
    gen::memPersistent().CinefadeDisplayModeValue = 0;
    EXPECT_EQ(set("filter"), "filter is not part of enum CinefadeDisplayMode");
    EXPECT_EQ(gen::memPersistent().CinefadeDisplayModeValue, 0u);
    EXPECT_EQ(set("Filter"), "");
    EXPECT_EQ(gen::memPersistent().CinefadeDisplayModeValue, 1u);
    EXPECT_EQ(set("Filter"), "");
    std::vector<Notify> posted = broker->received();
    ASSERT_EQ(posted.size(), 1u);
    EXPECT_EQ(posted[0].id, VarCinefadeDisplayModeValueChanged);
    EXPECT_EQ(
        getCinefadeDisplayModeIntrospection(&gen::memPersistent().CinefadeDisplayModeValue, 0),
        "Filter");
}

TEST_F(EnumValues, EveryEntryOfEveryEnumRoundTrips) {
    for (uint32_t e = 0; e < ENUM_ARRAY_SIZE; ++e) {
        const EnumInfo& info = ENUM_ARRAY[e];
        for (uint32_t entry = 0; entry < info.entryCount; ++entry) {
            uint32_t value = entry;
            EXPECT_EQ(getEnumIntrospection(&value, 0, info.name, info.entries, info.entryCount),
                      info.entries[entry]);
            const VariableDescriptor& variable = MEMORY_ARRAY[0].variables[4];
            EXPECT_EQ(setEnumIntrospection(gMemPersistent, 0, 4, variable.event,
                                           info.entries[entry], info.name, info.entries,
                                           info.entryCount),
                      "");
            EXPECT_EQ(gen::memPersistent().CinefadeDisplayModeValue, entry) << info.name;
            broker->received();
        }
    }
}

} // namespace
