// The struct setter's rules: value forms, conversions, nested structs and
// arrays, unknown members and bad values, element bounds and posting.
#include "catalogueenvironment.h"
#include "setjson.h"
#include "settings-service/enums.h"
#include "settings-service/introspection.h"
#include "settings-service/memories.h"

#include <gtest/gtest.h>

#include <cstring>
#include <optional>
#include <string>

namespace {

using namespace Introspection;

constexpr uint32_t PERSISTENT = 0;

uint32_t variableIndex(uint32_t memory, const std::string& name) {
    const std::optional<uint32_t> variable = findVarIndex(memory, name);
    if (!variable) {
        throw std::logic_error("no variable " + name);
    }
    return *variable;
}

std::vector<Json::Item> members(const std::string& text) {
    Json json;
    EXPECT_TRUE(json.parse(text)) << text;
    return json.items;
}

// RecentLensFiles (an array of five LensFile) of MemPersistent.
class LensFileTest : public testing::Test {
protected:
    void SetUp() override {
        records =
            reinterpret_cast<gen::MemPersistentRecord*>(gMemPersistent)->RecentLensFiles.data();
        std::memset(records, 0, 5 * sizeof(gen::LensFile));
        brokerPeer().received();
    }
    void TearDown() override { std::memset(records, 0, 5 * sizeof(gen::LensFile)); }

    std::string set(const std::string& text, int index) {
        return setVarValueJson(PERSISTENT, recent, members(text), index);
    }

    const uint32_t recent = variableIndex(PERSISTENT, "RecentLensFiles");
    gen::LensFile* records = nullptr;
};

TEST_F(LensFileTest, BareValuesOfEveryType) {
    EXPECT_EQ(set(R"({"LensFileName": "Prime 50", "LensFileBrand": "Kestrel Lenses",
                      "LensFileMinFocus": 0.45, "LensFileCalibrated": true,
                      "LensFileUseCount": -12, "LensFileSerial": 'SN-1'})",
                  2),
              "");
    const gen::LensFile& file = records[2];
    EXPECT_STREQ(file.LensFileName.data(), "Prime 50");
    EXPECT_EQ(file.LensFileBrand, 5u);
    EXPECT_STREQ(LENSBRAND_NAME_ARRAY[file.LensFileBrand], "Kestrel Lenses");
    EXPECT_FLOAT_EQ(file.LensFileMinFocus, 0.45f);
    EXPECT_TRUE(file.LensFileCalibrated);
    EXPECT_EQ(file.LensFileUseCount, -12);
    EXPECT_STREQ(file.LensFileSerial.data(), "SN-1");
    for (int other : {0, 1, 3, 4}) {
        EXPECT_EQ(records[other].LensFileUseCount, 0) << "element " << other << " untouched";
        EXPECT_STREQ(records[other].LensFileName.data(), "");
    }
}

TEST_F(LensFileTest, ObjectValuesAsTheGetterPrintsThem) {
    records[1].LensFileUseCount = 7;
    records[1].LensFileCalibrated = true;
    records[1].LensFileBrand = 3;
    std::strcpy(records[1].LensFileName.data(), "Zoom 24-290");
    records[1].LensFileMaxAperture = 2.8f;
    const std::string text = getVarValue(PERSISTENT, recent, 1);
    std::memset(&records[1], 0, sizeof(gen::LensFile));
    EXPECT_EQ(set(text, 1), "");
    EXPECT_EQ(records[1].LensFileUseCount, 7);
    EXPECT_TRUE(records[1].LensFileCalibrated);
    EXPECT_EQ(records[1].LensFileBrand, 3u);
    EXPECT_STREQ(records[1].LensFileName.data(), "Zoom 24-290");
    EXPECT_FLOAT_EQ(records[1].LensFileMaxAperture, 2.8f);
}

TEST_F(LensFileTest, IntegersDetectTheirBase) {
    EXPECT_EQ(set(R"({"LensFileUseCount": "0x1F"})", 0), "");
    EXPECT_EQ(records[0].LensFileUseCount, 31);
    EXPECT_EQ(set(R"({"LensFileUseCount": "010"})", 0), "");
    EXPECT_EQ(records[0].LensFileUseCount, 8);
    EXPECT_EQ(set(R"({"LensFileUseCount": 1e3})", 0), "");
    EXPECT_EQ(records[0].LensFileUseCount, 1);
}

TEST_F(LensFileTest, StringsAreCutToTheirCapacity) {
    const std::string longText(40, 'x');
    EXPECT_EQ(set("{\"LensFileSerial\": \"" + longText + "\"}", 0), "");
    EXPECT_EQ(std::string(records[0].LensFileSerial.data()), std::string(15, 'x'));
    EXPECT_EQ(records[0].LensFileUnit, 0u) << "nothing written past the member";
    EXPECT_EQ(set(R"({"LensFileSerial": ""})", 0), "");
    EXPECT_STREQ(records[0].LensFileSerial.data(), "");
}

TEST_F(LensFileTest, BadMembersAreReportedAndTheOthersApplied) {
    const std::string error = set(R"({"LensFileUseCount": "x", "Bogus": 1,
                                      "LensFileCalibrated": "TRUE", "LensFileBrand": "veltar",
                                      "LensFileMinFocus": "far", "LensFileHasZoom": true,
                                      "LensFileName": {"type": "string"},
                                      "LensFileMaxAperture": {"value": "1.4"}})",
                                  4);
    EXPECT_EQ(error, "LensFileUseCount: Can't convert x to int; "
                     "Bogus: not a member of LensFile; "
                     "LensFileCalibrated: Value has to be 'true' or 'false'; "
                     "LensFileBrand: veltar is not part of enum LensBrand; "
                     "LensFileMinFocus: Can't convert far to float; "
                     "LensFileName: no \"value\" in {\"type\": \"string\"}");
    EXPECT_TRUE(records[4].LensFileHasZoom);
    EXPECT_FLOAT_EQ(records[4].LensFileMaxAperture, 1.4f);
    EXPECT_EQ(records[4].LensFileUseCount, 0);
    EXPECT_FALSE(records[4].LensFileCalibrated);
    EXPECT_EQ(brokerPeer().received().size(), 1u) << "the applied members changed the element";
}

TEST_F(LensFileTest, MissingMembersStayAsTheyWere) {
    records[0].LensFileUseCount = 5;
    std::strcpy(records[0].LensFileName.data(), "kept");
    EXPECT_EQ(set(R"({"LensFileHasZoom": true})", 0), "");
    EXPECT_EQ(records[0].LensFileUseCount, 5);
    EXPECT_STREQ(records[0].LensFileName.data(), "kept");
    EXPECT_TRUE(records[0].LensFileHasZoom);
    EXPECT_EQ(set("{}", 0), "");
    EXPECT_EQ(records[0].LensFileUseCount, 5);
}

TEST_F(LensFileTest, DuplicatesApplyInOrder) {
    EXPECT_EQ(set(R"({"LensFileUseCount": 1, "LensFileUseCount": 2})", 0), "");
    EXPECT_EQ(records[0].LensFileUseCount, 2);
}

TEST_F(LensFileTest, WrongShapesAreErrors) {
    EXPECT_EQ(set(R"({"LensFileUseCount": [1, 2]})", 0),
              "LensFileUseCount: no \"value\" in [1, 2]");
    EXPECT_EQ(set(R"({"LensFileUseCount": {"value": [1]}})", 0),
              "LensFileUseCount: no \"value\" in {\"value\": [1]}");
    EXPECT_EQ(set(R"({"LensFileUseCount": {"value" 1}})", 0),
              "LensFileUseCount: no \"value\" in {\"value\" 1}");
    EXPECT_EQ(records[0].LensFileUseCount, 0);
}

TEST_F(LensFileTest, ElementBeyondTheArrayWritesNothing) {
    EXPECT_EQ(set(R"({"LensFileUseCount": 9})", 5), "Element 5 exceeds the array length 5");
    EXPECT_EQ(set(R"({"LensFileUseCount": 9})", -1),
              "Element 4294967295 exceeds the array length 5");
    EXPECT_TRUE(brokerPeer().received().empty());
    EXPECT_EQ(set(R"({"LensFileUseCount": 9})", 4), "");
    EXPECT_EQ(records[4].LensFileUseCount, 9);
}

TEST_F(LensFileTest, PostsOncePerCallAndOnlyOnAChange) {
    EXPECT_EQ(set(R"({"LensFileUseCount": 3, "LensFileHasZoom": true, "LensFileName": "a"})", 2),
              "");
    std::vector<Notify> posted = brokerPeer().received();
    ASSERT_EQ(posted.size(), 1u);
    EXPECT_EQ(posted[0].id, VarRecentLensFilesChanged);
    EXPECT_EQ(posted[0].index, 2u);

    EXPECT_EQ(set(R"({"LensFileUseCount": 3, "LensFileHasZoom": true, "LensFileName": "a"})", 2),
              "");
    EXPECT_TRUE(brokerPeer().received().empty()) << "an unchanged element posts nothing";

    EXPECT_NE(set(R"({"LensFileUseCount": "x", "Bogus": 1})", 2), "");
    EXPECT_TRUE(brokerPeer().received().empty()) << "nothing written, nothing posted";

    EXPECT_EQ(set(R"({"LensFileName": "ab"})", 2), "");
    EXPECT_EQ(brokerPeer().received().size(), 1u) << "a longer text is a change";
    EXPECT_EQ(set(R"({"LensFileName": "a"})", 2), "");
    EXPECT_EQ(brokerPeer().received().size(), 1u) << "a shorter text is a change";
}

TEST(SetJson, NotAStructVariable) {
    const uint32_t torque = variableIndex(PERSISTENT, "AUXTorque");
    EXPECT_EQ(setJson(gMemPersistent, PERSISTENT, torque, getVarEvent(PERSISTENT, torque),
                      members(R"({"a": 1})")),
              "AUXTorque is not a struct");
}

// FocusLensTable of MemLens: a single LensTable holding 256 ScaleValues.
class LensTableTest : public testing::Test {
protected:
    void SetUp() override {
        table = &reinterpret_cast<gen::MemLensRecord*>(gMemLens)->FocusLensTable;
        std::memset(table, 0, sizeof *table);
        brokerPeer().received();
    }
    void TearDown() override { std::memset(table, 0, sizeof *table); }

    std::string set(const std::string& text) {
        return setVarValueJson(lens, focus, members(text), 0);
    }

    const uint32_t lens = getMemIndex("MemLens");
    const uint32_t focus = variableIndex(lens, "FocusLensTable");
    gen::LensTable* table = nullptr;
};

TEST_F(LensTableTest, NestedStructArrayElementByElement) {
    EXPECT_EQ(set(R"({"TableActive": true, "LensTableValueList": [
                        {"EncoderValue": 100, "EngravedValue": {"value": "0.5"}},
                        {"PrimaryEngravedValueAsString": "1 m", "TableEntryFlags": 3}],
                      "LensTableInverse": {"value": "true", "type": "bool"}})"),
              "");
    EXPECT_TRUE(table->TableActive);
    EXPECT_TRUE(table->LensTableInverse);
    EXPECT_EQ(table->LensTableValueList[0].EncoderValue, 100);
    EXPECT_FLOAT_EQ(table->LensTableValueList[0].EngravedValue, 0.5f);
    EXPECT_STREQ(table->LensTableValueList[1].PrimaryEngravedValueAsString.data(), "1 m");
    EXPECT_EQ(table->LensTableValueList[1].TableEntryFlags, 3);
    EXPECT_EQ(table->LensTableValueList[2].EncoderValue, 0);
    EXPECT_EQ(brokerPeer().received().size(), 1u);
}

TEST_F(LensTableTest, ErrorsInsideNestedElementsNameThePath) {
    EXPECT_EQ(set(R"({"LensTableValueList": [{"EncoderValue": 1}, {"Bogus": 2, "EncoderValue": "q"},
                                             7], "TableActive": true})"),
              "LensTableValueList[1].Bogus: not a member of ScaleValues; "
              "LensTableValueList[1].EncoderValue: Can't convert q to int; "
              "LensTableValueList[2]: Can't convert 7 to ScaleValues");
    EXPECT_EQ(table->LensTableValueList[0].EncoderValue, 1);
    EXPECT_TRUE(table->TableActive);
}

TEST_F(LensTableTest, ArrayMemberNeedsAnArray) {
    EXPECT_EQ(set(R"({"LensTableValueList": 5})"),
              "LensTableValueList: Can't convert 5 to an array of ScaleValues");
    EXPECT_EQ(set(R"({"LensTableValueList": {"EncoderValue": 5}})"),
              "LensTableValueList: Can't convert {\"EncoderValue\": 5} to an array of ScaleValues");
    EXPECT_TRUE(brokerPeer().received().empty());
}

TEST_F(LensTableTest, TooManyElementsApplyTheFirstOnes) {
    std::string list;
    for (int k = 0; k < 257; ++k) {
        list += (k ? "," : "") + std::string("{\"EncoderValue\":") + std::to_string(k + 1) + "}";
    }
    EXPECT_EQ(set("{\"LensTableValueList\": [" + list + "]}"),
              "LensTableValueList: more than 256 elements");
    EXPECT_EQ(table->LensTableValueList[0].EncoderValue, 1);
    EXPECT_EQ(table->LensTableValueList[255].EncoderValue, 256);
    EXPECT_FALSE(table->LensTableMotorAtLeftSide) << "nothing written past the array";
}

TEST_F(LensTableTest, NonArrayVariableTakesOnlyElementZero) {
    EXPECT_EQ(setVarValueJson(lens, focus, members(R"({"TableActive": true})"), 1),
              "Element 1 exceeds the array length 1");
    EXPECT_FALSE(table->TableActive);
}

} // namespace
