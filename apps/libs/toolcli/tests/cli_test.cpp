#include "cli.h"

#include <gtest/gtest.h>

namespace {

using Words = std::vector<std::string>;

TEST(Arguments, SplitsPositionalsFlagsAndValues) {
    const Arguments arguments({"MemApp", "--json", "-5", "--count", "3", "--timeout=7", "x"},
                              {"--json"}, {"--count", "--timeout"});
    EXPECT_EQ(arguments.positional(), (Words{"MemApp", "-5", "x"}));
    EXPECT_TRUE(arguments.has("--json"));
    EXPECT_EQ(arguments.value("--count"), "3");
    EXPECT_EQ(arguments.number("--count", 0), 3u);
    EXPECT_EQ(arguments.number("--timeout", 0), 7u);
    EXPECT_EQ(arguments.number("--index", 42), 42u);
    EXPECT_FALSE(arguments.value("--index").has_value());
}

TEST(Arguments, DoubleDashEndsOptions) {
    const Arguments arguments({"a", "--", "--json", "--x"}, {"--json"}, {});
    EXPECT_EQ(arguments.positional(), (Words{"a", "--json", "--x"}));
    EXPECT_FALSE(arguments.has("--json"));
}

TEST(Arguments, UnknownOptionNamesTheClosest) {
    try {
        Arguments({"--jsn"}, {"--json"}, {"--count"});
        FAIL() << "no exception";
    } catch (const UsageError& error) {
        EXPECT_STREQ(error.what(), "unknown option --jsn. Did you mean: --json?");
    }
}

TEST(Arguments, ValuedOptionNeedsValue) {
    EXPECT_THROW(Arguments({"--count"}, {}, {"--count"}), UsageError);
    EXPECT_THROW(Arguments({"--json=1"}, {"--json"}, {}), UsageError);
    const Arguments arguments({"--count", "x"}, {}, {"--count"});
    EXPECT_THROW(arguments.number("--count", 0), UsageError);
}

TEST(Arguments, PositionalBounds) {
    const Arguments arguments({"a", "b"}, {}, {});
    EXPECT_NO_THROW(arguments.expectPositional(2, 2));
    EXPECT_THROW(arguments.expectPositional(3, 4), UsageError);
    EXPECT_THROW(arguments.expectPositional(0, 1), UsageError);
}

TEST(ParseNumber, OnlyPlainDecimal) {
    EXPECT_EQ(parseNumber("0"), 0u);
    EXPECT_EQ(parseNumber("4294967295"), 4294967295u);
    EXPECT_FALSE(parseNumber("4294967296").has_value());
    EXPECT_FALSE(parseNumber("").has_value());
    EXPECT_FALSE(parseNumber("-1").has_value());
    EXPECT_FALSE(parseNumber("12a").has_value());
    EXPECT_FALSE(parseNumber("0x10").has_value());
}

} // namespace
