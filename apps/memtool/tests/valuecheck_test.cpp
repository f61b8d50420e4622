// The check that memtool makes before a setter sees a text: what is stored
// exactly as written, and why everything else is refused.
#include "valuecheck.h"

#include "settings-service/introspection.h"

#include <gtest/gtest.h>

namespace {

std::string check(const std::string& memory, const std::string& variable, const std::string& text) {
    const uint32_t m = Introspection::getMemIndex(memory);
    return refusal(m, *Introspection::findVarIndex(m, variable), text);
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

} // namespace
