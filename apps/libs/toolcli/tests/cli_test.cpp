#include "cli.h"

#include <gtest/gtest.h>

namespace {

using Words = std::vector<std::string>;

// The arguments of a command line that must parse.
Arguments parsed(const Words& words, const std::set<std::string>& flags,
                 const std::set<std::string>& valued) {
    Result<Arguments> arguments = Arguments::parse(words, flags, valued);
    if (!arguments.ok()) {
        ADD_FAILURE() << arguments.error().text;
        return Arguments::parse({}, {}, {}).take();
    }
    return std::move(arguments).take();
}

template <class T> bool isUsageError(const Result<T>& result) {
    return !result.ok() && result.error().code == Error::WrongUsage;
}

TEST(Arguments, SplitsPositionalsFlagsAndValues) {
    const Arguments arguments =
        parsed({"MemApp", "--json", "-5", "--count", "3", "--timeout=7", "x"}, {"--json"},
               {"--count", "--timeout"});
    EXPECT_EQ(arguments.positional(), (Words{"MemApp", "-5", "x"}));
    EXPECT_TRUE(arguments.has("--json"));
    EXPECT_EQ(arguments.value("--count"), "3");
    EXPECT_EQ(arguments.number("--count", 0), 3u);
    EXPECT_EQ(arguments.number("--timeout", 0), 7u);
    EXPECT_EQ(arguments.number("--index", 42), 42u);
    EXPECT_FALSE(arguments.value("--index").has_value());
}

TEST(Arguments, DoubleDashEndsOptions) {
    const Arguments arguments = parsed({"a", "--", "--json", "--x"}, {"--json"}, {});
    EXPECT_EQ(arguments.positional(), (Words{"a", "--json", "--x"}));
    EXPECT_FALSE(arguments.has("--json"));
}

TEST(Arguments, UnknownOptionNamesTheClosest) {
    const Result<Arguments> arguments = Arguments::parse({"--jsn"}, {"--json"}, {"--count"});
    ASSERT_TRUE(isUsageError(arguments));
    EXPECT_EQ(arguments.error().text, "unknown option --jsn. Did you mean: --json?");
}

TEST(Arguments, ValuedOptionNeedsValue) {
    EXPECT_TRUE(isUsageError(Arguments::parse({"--count"}, {}, {"--count"})));
    EXPECT_TRUE(isUsageError(Arguments::parse({"--json=1"}, {"--json"}, {})));
    const Arguments arguments = parsed({"--count", "x"}, {}, {"--count"});
    EXPECT_TRUE(isUsageError(arguments.number("--count", 0)));
}

TEST(Arguments, PositionalBounds) {
    const Arguments arguments = parsed({"a", "b"}, {}, {});
    EXPECT_TRUE(arguments.expectPositional(2, 2).ok());
    EXPECT_TRUE(isUsageError(arguments.expectPositional(3, 4)));
    EXPECT_TRUE(isUsageError(arguments.expectPositional(0, 1)));
}

TEST(UsageError, IsAWrongUsageFoundWhereItIsMade) {
    const Error error = usageError("no such thing");
    EXPECT_EQ(error.code, Error::WrongUsage);
    EXPECT_EQ(error.text, "no such thing");
    EXPECT_NE(std::string(error.file).find("cli_test.cpp"), std::string::npos);
    EXPECT_EQ(error.line, __LINE__ - 4);
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
