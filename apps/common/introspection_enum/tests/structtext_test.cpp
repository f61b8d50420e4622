#include "settings-service/introspection_enum.h"

#include "printers.h"
#include "settings-service/introspection.h"
#include "settings-service/memories.h"
#include "settings-service/records.h"

#include <cstring>
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>
#include <vector>

namespace {

const StructTypeInfo& structType(const char* name) {
    const StructTypeInfo* type = Introspection::findStructType(name);
    if (type == nullptr) {
        throw std::runtime_error(name);
    }
    return *type;
}

TEST(StructText, StringMembersKeepTheirSpacing) {
    gen::HostUpdateFileStruct file{};
    std::strcpy(file.HostUpdateFileName.data(), "a.bin");
    std::strcpy(file.HostUpdateFileVersion.data(), "2.1");
    file.HostUpdateFileSizeKb = 12;
    file.HostUpdateFileValid = true;
    EXPECT_EQ(getStructIntrospection(&file, 0, structType("HostUpdateFileStruct")),
              "{\"HostUpdateFileName\": {\"value\":\"a.bin\", \"type\": \"string\" },"
              "\"HostUpdateFileVersion\": {\"value\":\"2.1\", \"type\": \"string\" },"
              "\"HostUpdateFileSizeKb\": "
              "{\"max\":\"2147483647\",\"min\":\"-2147483648\",\"type\":\"int\",\"value\":\"12\"},"
              "\"HostUpdateFileValid\": { \"value\": \"true\", \"type\": \"bool\", \"textid\": [ "
              "\"false\", \"true\" ]}}");
}

TEST(StructText, FloatsEnumsAndTheSelectedElement) {
    gen::CameraSupplyStruct supplies[2]{};
    supplies[1].SupplyVoltage = 14.5f;
    supplies[1].SupplyLevel = -3;
    supplies[1].SupplyUnitValue = 1;
    supplies[1].SupplyWarningValue = 2;
    std::strcpy(supplies[1].SupplyName.data(), "Main");
    EXPECT_EQ(getStructIntrospection(supplies, 1, structType("CameraSupplyStruct")),
              "{\"SupplyVoltage\": "
              "{\"max\":\"1e+38\",\"min\":\"-1e+38\",\"type\":\"float\",\"value\":\"14.500000\"},"
              "\"SupplyLevel\": "
              "{\"max\":\"2147483647\",\"min\":\"-2147483648\",\"type\":\"int\",\"value\":\"-3\"},"
              "\"SupplyUnitValue\": { \"value\": \"Percent\", \"type\": \"SupplyUnit\", "
              "\"textid\": [ \"Volt\",\"Percent\",\"Minutes\"]},"
              "\"SupplyWarningValue\": { \"value\": \"Critical\", \"type\": \"SupplyWarning\", "
              "\"textid\": [ \"None\",\"Low\",\"Critical\"]},"
              "\"SupplyName\": {\"value\":\"Main\", \"type\": \"string\" }}");
}

TEST(StructText, ArrayMembersCarryTheirSeparator) {
    auto table = std::make_unique<gen::LensTable>();
    std::memset(table.get(), 0, sizeof *table);
    table->LensTableValueList[1].EncoderValue = 77;
    std::string text = getStructIntrospection(table.get(), 0, structType("LensTable"));
    const std::string head = "\"LensTableValueListSize\": "
                             "{\"max\":\"2147483647\",\"min\":\"-2147483648\",\"type\":\"int\","
                             "\"value\":\"0\"},\"LensTableValueList\":[{\"TableEntryFlags\": ";
    EXPECT_NE(text.find(head), std::string::npos);
    EXPECT_NE(text.find("}}],\"LensTableMotorAtLeftSide\": { \"value\""), std::string::npos);
    nlohmann::json parsed = nlohmann::json::parse(text);
    EXPECT_EQ(parsed["LensTableValueList"].size(), 256u);
    EXPECT_EQ(parsed["LensTableValueList"][1]["EncoderValue"]["value"], "77");
}

TEST(StructText, StringMembersAreEscaped) {
    gen::UserSetupFiles file{};
    std::strcpy(file.UserSetupFileName.data(), "a\"b");
    Introspection::setEscapeCharacters("[\"\\\\]");
    const std::string text = getStructIntrospection(&file, 0, structType("UserSetupFiles"));
    Introspection::setEscapeCharacters("");
    EXPECT_EQ(text, "{\"UserSetupFileName\": {\"value\":\"a\\\"b\", \"type\": \"string\" }}");
}

TEST(StructText, EveryStructTypeReadsAsJson) {
    for (uint32_t s = 0; s < STRUCT_ARRAY_SIZE; ++s) {
        std::vector<uint8_t> element(STRUCT_ARRAY[s].size, 0);
        const std::string text = getStructIntrospection(element.data(), 0, STRUCT_ARRAY[s]);
        EXPECT_TRUE(nlohmann::json::accept(text)) << STRUCT_ARRAY[s].name << ": " << text;
    }
}

} // namespace
