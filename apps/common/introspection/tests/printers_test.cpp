#include "printers.h"

#include <gtest/gtest.h>

namespace {

TEST(Printers, PrintBoolKeepsItsSpacing) {
    EXPECT_EQ(Introspection::printBool(true),
              "{ \"value\": \"true\", \"type\": \"bool\", \"textid\": [ \"false\", \"true\" ]}");
    EXPECT_EQ(Introspection::printBool(false),
              "{ \"value\": \"false\", \"type\": \"bool\", \"textid\": [ \"false\", \"true\" ]}");
}

TEST(Printers, PrintValueIsCompactWithSortedKeys) {
    EXPECT_EQ(Introspection::printValue("5", "int", "-2147483648", "2147483647"),
              "{\"max\":\"2147483647\",\"min\":\"-2147483648\",\"type\":\"int\",\"value\":\"5\"}");
    EXPECT_EQ(Introspection::printValue("a\"b", "string", "", ""),
              "{\"max\":\"\",\"min\":\"\",\"type\":\"string\",\"value\":\"a\\\"b\"}");
}

TEST(Printers, EscapeFollowsThePattern) {
    EXPECT_EQ(Introspection::escape("a\"b\\c"), "a\"b\\c");
    Introspection::setEscapeCharacters("[\"\\\\]");
    EXPECT_EQ(Introspection::escape("a\"b\\c"), "a\\\"b\\\\c");
    Introspection::setEscapeCharacters("");
    EXPECT_EQ(Introspection::escape("a\"b"), "a\"b");
}

TEST(Printers, ADocumentEscapeWritesSettingsDocumentEscapesWhileItLives) {
    Introspection::setEscapeCharacters("[a]");
    {
        const Introspection::DocumentEscape outer;
        {
            const Introspection::DocumentEscape inner;
            EXPECT_EQ(Introspection::escape("a\"{x}\\\n"), "a\\u0022\\u007bx\\u007d\\u005c\\u000a");
        }
        EXPECT_EQ(Introspection::escape("[a]"), "\\u005ba\\u005d");
    }
    EXPECT_EQ(Introspection::escape("[a]"), "[\\a]");
    Introspection::setEscapeCharacters("");
}

} // namespace
