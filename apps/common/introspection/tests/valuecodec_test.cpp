// The value codec: the strict check that memtool and the inspector make
// before a setter sees a text (what is stored exactly as written, and why
// everything else is refused), the setters' reading, the clamps, and the table
// of cases that the generator's own implementation of the rules runs too.
#include "settings-service/introspection.h"
#include "settings-service/valuecodec.h"

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <cerrno>
#include <cfloat>
#include <climits>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <fstream>

namespace {

std::string check(const std::string& memory, const std::string& variable, const std::string& text) {
    const uint32_t m = Introspection::getMemIndex(memory);
    return ValueCodec::refusal(m, *Introspection::findVarIndex(m, variable), text);
}

TEST(ValueCheck, IntsAreDecimalAndReadWhole) {
    EXPECT_EQ(check("MemPersistent", "DisplayBrightness", "7"), "");
    EXPECT_EQ(check("MemPersistent", "DisplayBrightness", "+7"), "");
    EXPECT_EQ(check("MemPersistent", "DisplayBrightness", "0"), "");
    EXPECT_EQ(check("MemHwControl", "KnobLinearizationTable", "-2147483648"), "");
    EXPECT_EQ(check("MemPersistent", "DisplayBrightness", "0x20"),
              "\"0x20\" is not a decimal integer: the range check would read 0 and the setter 32");
    EXPECT_EQ(check("MemPersistent", "DisplayBrightness", "010"),
              "\"010\" is not a decimal integer: the range check would read 10 and the setter 8");
    EXPECT_EQ(check("MemPersistent", "DisplayBrightness", "08"),
              "only \"0\" of \"08\" would be read");
    EXPECT_EQ(check("MemPersistent", "DisplayBrightness", "7abc"),
              "only \"7\" of \"7abc\" would be read");
    EXPECT_EQ(check("MemPersistent", "DisplayBrightness", "1e1"),
              "only \"1\" of \"1e1\" would be read");
    EXPECT_EQ(check("MemPersistent", "DisplayBrightness", "5.5"),
              "only \"5\" of \"5.5\" would be read");
    EXPECT_EQ(check("MemHwControl", "KnobLinearizationTable", "0x20"),
              "\"0x20\" is not a decimal integer: the range check would read 0 and the setter 32")
        << "also where there is no range";
    EXPECT_EQ(check("MemHwControl", "KnobLinearizationTable", "x"), "Can't convert x to int");
    EXPECT_EQ(check("MemHwControl", "KnobLinearizationTable", "2147483648"),
              "Can't convert 2147483648 to int");
    EXPECT_EQ(check("MemPersistent", "DisplayBrightness", "11"),
              "Value must be between min: 0 and max: 10, but is: 11");
    EXPECT_EQ(check("MemPersistent", "DisplayBrightness", "abc"), "Can't convert \"abc\"");
}

TEST(ValueCheck, FloatsAreReadWholeAndHeldExactly) {
    EXPECT_EQ(check("MemPersistent", "CircleofConfusion", "0.05"), "");
    EXPECT_EQ(check("MemPersistent", "CircleofConfusion", "5e-2"), "");
    EXPECT_EQ(check("MemPersistent", "CircleofConfusion", "0.050000"), "");
    EXPECT_EQ(check("MemPersistent", "CircleofConfusion", "0.05x"),
              "only \"0.05\" of \"0.05x\" would be read");
    EXPECT_EQ(check("MemPersistent", "CircleofConfusion", "0.5"),
              "Value must be between min: 0.005 and max: 0.1, but is: 0.5");
    EXPECT_EQ(check("MemDynamic", "FocusDisplayValue", "16777216"), "");
    EXPECT_EQ(check("MemDynamic", "FocusDisplayValue", "16777217"),
              "a float cannot hold \"16777217\" exactly: it would be stored as 16777216");
    EXPECT_EQ(check("MemDynamic", "FocusDisplayValue", "0.1234567891"),
              "a float cannot hold \"0.1234567891\" exactly: it would be stored as 0.123456791");
    EXPECT_EQ(check("MemDynamic", "FocusDisplayValue", "123456.789062"), "")
        << "what dump prints of a float reads back";
    EXPECT_EQ(check("MemDynamic", "FocusDisplayValue", "1e39"), "Can't convert 1e39 to float");
    EXPECT_EQ(check("MemDynamic", "FocusDisplayValue", "-0"), "");
}

TEST(ValueCheck, BoolsEnumsStringsAndBuffers) {
    EXPECT_EQ(check("MemPersistent", "BluetoothPower", "true"), "");
    EXPECT_EQ(check("MemPersistent", "BluetoothPower", "1"), "Value has to be 'true' or 'false'");
    EXPECT_EQ(check("MemPersistent", "CinefadeDisplayModeValue", "Filter"), "");
    EXPECT_EQ(check("MemPersistent", "CinefadeDisplayModeValue", "1"),
              "1 is not part of enum CinefadeDisplayMode");
    EXPECT_EQ(check("MemPersistent", "LensFileFavouriteFolder", std::string(63, 'a')), "");
    EXPECT_EQ(check("MemPersistent", "LensFileFavouriteFolder", std::string(400, 'a')),
              "the text has 400 characters; at most 63 fit (capacity 64 bytes with the "
              "terminator)");
    EXPECT_EQ(check("MemPersistent", "LensFileFavouriteFolder", std::string("a\0b", 3)),
              "the text holds a NUL character, which would end it there");
    EXPECT_EQ(check("MemPersistent", "MruLensFileList", "0aFf"), "");
    EXPECT_EQ(check("MemPersistent", "MruLensFileList", std::string(128, 'a')), "");
    EXPECT_EQ(check("MemPersistent", "MruLensFileList", std::string(130, 'a')),
              "the buffer holds 64 bytes (128 hex digits); the text has 130 digits");
    EXPECT_EQ(check("MemPersistent", "MruLensFileList", "0aF"),
              "\"0aF\" has an odd number of hex digits: a buffer takes two per byte");
    EXPECT_EQ(check("MemPersistent", "MruLensFileList", "0g"),
              "\"0g\" is not hexadecimal: a buffer takes two hex digits per byte");
    EXPECT_EQ(check("MemStatic", "FpgaVersion", "00"), "FpgaVersion is read-only");
}

TEST(ValueCheck, StructMembersFollowTheSameRules) {
    EXPECT_EQ(check("MemPersistent", "RecentLensFiles",
                    R"({"LensFileUseCount": 5, "LensFileName": {"value": "Tele"}})"),
              "");
    EXPECT_EQ(check("MemPersistent", "RecentLensFiles",
                    R"({"LensFileUseCount": "0x10", "LensFileMinFocus": {"value": "0.1x"},
                        "LensFileName": ")" +
                        std::string(32, 'n') + R"(", "LensFileBrand": "Nobody", "Bogus": 1,
                        "LensFileHasZoom": {"type": "bool"}})"),
              "LensFileUseCount: \"0x10\" is not a decimal integer: the range check would read 0 "
              "and the setter 16; LensFileMinFocus: only \"0.1\" of \"0.1x\" would be read; "
              "LensFileName: the text has 32 characters; at most 31 fit (capacity 32 bytes with "
              "the terminator); LensFileBrand: Nobody is not part of enum LensBrand; Bogus: not a "
              "member of LensFile; LensFileHasZoom: no \"value\" in {\"type\": \"bool\"}");
    EXPECT_EQ(check("MemPersistent", "RecentLensFiles", "[1]"),
              "the value of a struct must be a JSON object");
}

TEST(ValueCheck, ReadOnlyComesFirstAndStructsFollowTheSetterWalk) {
    EXPECT_EQ(check("MemStatic", "FpgaVersion", "zz"), "FpgaVersion is read-only");
    EXPECT_EQ(check("MemPersistent", "RecentLensFiles", R"({"LensFileUseCount": [1]})"),
              "LensFileUseCount: no \"value\" in [1]");
    EXPECT_EQ(check("MemPersistent", "RecentLensFiles", R"({"LensFileUseCount": {"value": {}}})"),
              "LensFileUseCount: no \"value\" in {\"value\": {}}");
}

const StructTypeInfo& structNamed(const char* name) {
    const StructTypeInfo* type = Introspection::findStructType(name);
    if (type == nullptr) {
        throw std::logic_error(std::string("no struct ") + name);
    }
    return *type;
}

TEST(StructCheck, ArraysAndNestedStructsAreCheckedLikeTheSetterAppliesThem) {
    const StructTypeInfo& table = structNamed("LensTable");
    EXPECT_EQ(ValueCodec::structRefusal(table, {{"LensTableValueList", {"5", false}}}),
              "LensTableValueList: not an array of ScaleValues");
    EXPECT_EQ(ValueCodec::structRefusal(table, {{"LensTableValueList", {"[7]", true}}}),
              "LensTableValueList[0]: not an object of ScaleValues");
    EXPECT_EQ(ValueCodec::structRefusal(
                  table, {{"LensTableValueList", {R"([{"EncoderValue": "0x10"}])", true}}}),
              "LensTableValueList[0].EncoderValue: \"0x10\" is not a decimal integer: the range "
              "check would read 0 and the setter 16");
    EXPECT_EQ(ValueCodec::structRefusal(
                  table, {{"LensTableValueList", {R"([{"EncoderValue": 16}])", true}},
                          {"TableActive", {"true", false}}}),
              "");
}

std::string bytes(const ValueCodec::Reading& reading) {
    return reading.error.empty()
               ? ValueCodec::bufferText(reinterpret_cast<const uint8_t*>(reading.bytes.data()),
                                        static_cast<unsigned>(reading.bytes.size()))
               : reading.error;
}

TEST(Reading, TheSettersRules) {
    const ElementType integer{ValueKind::Int, 0, nullptr, nullptr};
    EXPECT_EQ(bytes(ValueCodec::read(integer, "0x1F")), "1f000000");
    EXPECT_EQ(bytes(ValueCodec::read(integer, "010")), "08000000");
    EXPECT_EQ(bytes(ValueCodec::read(integer, "1e3")), "01000000");
    EXPECT_EQ(bytes(ValueCodec::read(integer, "x")), "Can't convert x to int");
    const ElementType real{ValueKind::Float, 0, nullptr, nullptr};
    EXPECT_EQ(bytes(ValueCodec::read(real, "1.5")), "0000c03f");
    EXPECT_EQ(bytes(ValueCodec::read(real, "1e39")), "Can't convert 1e39 to float");
    const ElementType flag{ValueKind::Bool, 0, nullptr, nullptr};
    EXPECT_EQ(bytes(ValueCodec::read(flag, "true")), "01");
    EXPECT_EQ(bytes(ValueCodec::read(flag, "TRUE")), "Value has to be 'true' or 'false'");
    const ElementType text{ValueKind::String, 4, nullptr, nullptr};
    EXPECT_EQ(bytes(ValueCodec::read(text, "abcdef")), "61626300");
    EXPECT_EQ(bytes(ValueCodec::read(text, std::string("a\0b", 3))), "6100");
    const ElementType buffer{ValueKind::Buffer, 3, nullptr, nullptr};
    EXPECT_EQ(bytes(ValueCodec::read(buffer, "0aFf")), "0aff00");
    EXPECT_EQ(bytes(ValueCodec::read(buffer, "0aFz")), "Can't convert 0aFz to buffer");
    const EnumInfo& mode = Catalogue::enumNamed("CinefadeDisplayMode");
    const ElementType choice{ValueKind::Enum, 0, &mode, nullptr};
    EXPECT_EQ(bytes(ValueCodec::read(choice, "Filter")), "01000000");
    EXPECT_EQ(bytes(ValueCodec::read(choice, "filter")),
              "filter is not part of enum CinefadeDisplayMode");
}

TEST(Reading, AFloatTextIsReadAlikeOnEveryTarget) {
    // Texts a hair below the smallest normal float: read as it where they round to it (a bare
    // std::stof refuses them on a core that finds a number tiny before rounding), refused where
    // they round to a denormal.
    EXPECT_EQ(ValueCodec::readFloat("1.17549435e-38"), FLT_MIN);
    EXPECT_EQ(ValueCodec::readFloat("-1.1754943e-38"), -FLT_MIN);
    EXPECT_EQ(ValueCodec::readFloat("1.1754942e-38"), std::nullopt);
    EXPECT_EQ(ValueCodec::readFloat("1e-40"), std::nullopt);
    EXPECT_EQ(ValueCodec::readFloat("1e-50"), std::nullopt) << "a number that rounds to zero";
    EXPECT_EQ(ValueCodec::readFloat("0x1p-140"), std::ldexp(1.0F, -140))
        << "a denormal written exactly loses nothing";
    EXPECT_EQ(ValueCodec::readFloat("3.40282357e38"), std::nullopt);
    EXPECT_EQ(ValueCodec::readFloat("-inf"), -INFINITY) << "infinity written as such";
    size_t used = 0;
    EXPECT_EQ(ValueCodec::readFloat(" 1.17549435e-38x", &used), FLT_MIN);
    EXPECT_EQ(used, 15U);
    EXPECT_EQ(ValueCodec::readFloat(" "), std::nullopt);

    const ElementType real{ValueKind::Float, 0, nullptr, nullptr};
    EXPECT_EQ(bytes(ValueCodec::read(real, "1.17549435e-38")), "00008000");
    EXPECT_EQ(check("MemDynamic", "FocusDisplayValue", "1.17549435e-38"), "");
    EXPECT_EQ(
        check("MemDynamic", "FocusDisplayValue", "1.1754943e-38"),
        "a float cannot hold \"1.1754943e-38\" exactly: it would be stored as 1.17549435e-38");
}

TEST(Reading, ABufferIsWrittenUpToTheFirstCharacterThatIsNoDigit) {
    uint8_t target[4] = {9, 9, 9, 9};
    EXPECT_EQ(ValueCodec::readBuffer("7fAzz", target, 4), std::optional<char>('z'));
    EXPECT_EQ(target[0], 0x7f);
    EXPECT_EQ(target[1], 9) << "the byte of the bad digit is not written";
    EXPECT_EQ(ValueCodec::readBuffer("0a", target, 4), std::nullopt);
    EXPECT_EQ(ValueCodec::bufferText(target, 4), "0a000000") << "a NUL ends the text";
}

TEST(Range, TheLoaderJudgesTheNumberThatTheSetterStores) {
    EXPECT_EQ(ValueCodec::storedValueText(BaseInt, "08"), "0");
    EXPECT_EQ(ValueCodec::storedValueText(BaseInt, "0x7fffffff"), "2147483647");
    EXPECT_EQ(ValueCodec::storedValueText(BaseInt, "abc"), "abc");
    EXPECT_EQ(ValueCodec::storedValueText(BaseFloat, "0x10"), "0x10");
    EXPECT_EQ(ValueCodec::unreadable("abc"), "Can't convert \"abc\"\n");
    EXPECT_EQ(ValueCodec::outsideRange("1", "4", "9"),
              "Value must be between min: 1 and max: 4, but is: 9");
}

TEST(Range, TheNearestBoundIsTheBoundTheRangeCheckApplies) {
    EXPECT_EQ(ValueCodec::nearestBound(BaseInt, "1", "4", "9"), "4");
    EXPECT_EQ(ValueCodec::nearestBound(BaseInt, "1", "4", "-0x10"), "1");
    EXPECT_EQ(ValueCodec::nearestBound(BaseInt, nullptr, "4", "9"), "4");
    EXPECT_EQ(ValueCodec::nearestBound(BaseInt, "1", nullptr, "0"), "1");
    EXPECT_EQ(ValueCodec::nearestBound(BaseInt, nullptr, "4", "0x80000000"), "4");
    EXPECT_EQ(ValueCodec::nearestBound(BaseInt, "1", nullptr, "0x999999999999999999"), std::nullopt)
        << "no 64-bit number: kept aside";
    EXPECT_EQ(ValueCodec::nearestBound(BaseFloat, nullptr, "25", "0"), "1.175494351e-38");
    EXPECT_EQ(ValueCodec::nearestBound(BaseFloat, "0.005", "0.1", "0.2"), "0.1");
    EXPECT_EQ(ValueCodec::nearestBound(BaseFloat, "-5", nullptr, "3.4e38"), "3.40282347e+38");
    EXPECT_EQ(ValueCodec::nearestBound(BaseFloat, "0", "1", "nan"), std::nullopt);
    EXPECT_EQ(ValueCodec::readFloat(*ValueCodec::nearestBound(BaseFloat, nullptr, "25", "-1")),
              FLT_MIN)
        << "the limit's text reads back as the limit";
    EXPECT_EQ(ValueCodec::readFloat(*ValueCodec::nearestBound(BaseFloat, "0", nullptr, "3.4e38")),
              FLT_MAX);
    for (const char* limit : {"1.175494351e-38", "3.40282347e+38"}) {
        errno = 0;
        const float read = std::strtof(limit, nullptr);
        EXPECT_EQ(errno, 0) << limit << ": a bare std::stof on any target reads it too";
        EXPECT_TRUE(read == FLT_MIN || read == FLT_MAX) << limit;
    }
    EXPECT_EQ(
        ValueCodec::readInt(*ValueCodec::nearestBound(BaseInt, nullptr, "0", "-0x80000001"), 10),
        INT_MIN);
}

// The cases that gen/tests/test_values.py runs against the generator's rules.
nlohmann::json cases() {
    std::ifstream file(VALUECODEC_CASES);
    return nlohmann::json::parse(file);
}

uint32_t baseType(const std::string& kind) {
    return kind == "int"     ? BaseInt
           : kind == "float" ? BaseFloat
           : kind == "bool"  ? BaseBool
                             : BaseEnum;
}

const char* textOrNull(const nlohmann::json& value) {
    return value.is_null() ? nullptr : value.get_ref<const std::string&>().c_str();
}

TEST(Cases, NumbersAsTheRangeCheckReadsThem) {
    const nlohmann::json table = cases()["numbers"];
    ASSERT_FALSE(table.empty());
    for (const nlohmann::json& row : table) {
        const std::string text = row["text"];
        SCOPED_TRACE(row.dump());
        size_t used = 0;
        if (row["kind"] == "int") {
            const std::optional<int32_t> number = ValueCodec::readInt(text, 10, &used);
            if (row["number"].is_null()) {
                EXPECT_FALSE(number);
            } else {
                ASSERT_TRUE(number);
                EXPECT_EQ(used, text.size());
                EXPECT_EQ(*number, row["number"].get<int64_t>());
            }
        } else {
            const std::optional<float> number = ValueCodec::readFloat(text, &used);
            if (row["number"].is_null()) {
                EXPECT_FALSE(number);
            } else {
                ASSERT_TRUE(number);
                EXPECT_EQ(used, text.size());
                const float want = std::strtof(row["number"].get<std::string>().c_str(), nullptr);
                EXPECT_EQ(std::memcmp(&*number, &want, sizeof want), 0) << *number << " " << want;
            }
        }
    }
}

TEST(Cases, TheRangeCheckOfAValueText) {
    const nlohmann::json table = cases()["ranges"];
    ASSERT_FALSE(table.empty());
    for (const nlohmann::json& row : table) {
        SCOPED_TRACE(row.dump());
        const ValueCodec::RangeResult result = ValueCodec::checkRange(
            baseType(row["kind"]), textOrNull(row["min"]), textOrNull(row["max"]), row["text"]);
        const std::string name = result == ValueCodec::RangeResult::Inside    ? "inside"
                                 : result == ValueCodec::RangeResult::Outside ? "outside"
                                                                              : "unreadable";
        EXPECT_EQ(name, row["result"]);
    }
}

TEST(Cases, TheTextsOfStoredValues) {
    const nlohmann::json table = cases()["texts"];
    ASSERT_FALSE(table.empty());
    for (const nlohmann::json& row : table) {
        SCOPED_TRACE(row.dump());
        if (row["kind"] == "int") {
            EXPECT_EQ(ValueCodec::intText(row["value"].get<int32_t>()), row["text"]);
        } else if (row["kind"] == "float") {
            EXPECT_EQ(ValueCodec::floatText(static_cast<float>(row["value"].get<double>())),
                      row["text"]);
        } else {
            EXPECT_EQ(ValueCodec::boolText(row["value"].get<bool>()), row["text"]);
        }
    }
}

} // namespace
