// The result type of the project's own code.
#include "result.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <filesystem>
#include <stdexcept>
#include <string>

namespace {

Result<int> half(int value) {
    if (value % 2 != 0) {
        return failure("odd: " + std::to_string(value));
    }
    return value / 2;
}

TEST(Result, AValueIsHeldAndCompared) {
    const Result<int> result = half(8);
    ASSERT_TRUE(result.ok());
    EXPECT_TRUE(static_cast<bool>(result));
    EXPECT_EQ(*result, 4);
    EXPECT_EQ(result, 4);
    EXPECT_FALSE(result == 5);
    EXPECT_THROW(result.error(), std::logic_error);
}

TEST(Result, AnErrorCarriesItsCodeTextAndWhereItWasFound) {
    const Result<int> result = half(7);
    ASSERT_FALSE(result.ok());
    EXPECT_EQ(result.error().code, 0);
    EXPECT_EQ(result.error().text, "odd: 7");
    EXPECT_EQ(std::filesystem::path(result.error().file).filename(), "result_test.cpp");
    EXPECT_EQ(result.error().line, 15);
    EXPECT_FALSE(result == 0) << "an error equals no value";
    EXPECT_THROW(result.value(), std::logic_error);
}

TEST(Result, NothingOrAnErrorWithTheSystemsCode) {
    const Result<void> done;
    EXPECT_TRUE(done.ok());
    EXPECT_THROW(done.error(), std::logic_error);
    const Result<void> failed = failure("open /x: No such file or directory", ENOENT);
    ASSERT_FALSE(failed.ok());
    EXPECT_EQ(failed.error().code, ENOENT);
    EXPECT_EQ(failed.error().text, "open /x: No such file or directory");
}

TEST(Result, AnErrorPassesUpUnchanged) {
    const auto outer = []() -> Result<void> {
        const Result<int> inner = half(3);
        if (!inner) {
            return inner.error();
        }
        return {};
    };
    const Result<void> result = outer();
    ASSERT_FALSE(result.ok());
    EXPECT_EQ(result.error().text, "odd: 3");
    EXPECT_EQ(result.error().line, 15) << "still where it was found";
}

Result<int> quarter(int value) {
    const int halved = TRY(half(value));
    return TRY(half(halved));
}

Result<void> checkEven(int value) {
    TRY(half(value));
    return {};
}

Result<std::string> twice(Result<std::string> text) {
    std::string taken = TRY(std::move(text));
    return taken + taken;
}

TEST(Result, TryGivesTheValueOrPassesTheErrorUp) {
    EXPECT_EQ(quarter(12), 3);
    const Result<int> odd = quarter(6);
    ASSERT_FALSE(odd.ok());
    EXPECT_EQ(odd.error().text, "odd: 3");
    EXPECT_EQ(odd.error().line, 15) << "still where it was found";
    EXPECT_TRUE(checkEven(4).ok());
    ASSERT_FALSE(checkEven(5).ok());
    EXPECT_EQ(checkEven(5).error().text, "odd: 5");
}

TEST(Result, TryMovesTheValueOut) {
    EXPECT_EQ(twice(std::string("ab")), "abab");
    const Result<std::string> failed = twice(failure("none"));
    ASSERT_FALSE(failed.ok());
    EXPECT_EQ(failed.error().text, "none");
}

TEST(Result, AWrongRequestHasItsOwnCode) {
    EXPECT_LT(Error::WrongUsage, 0) << "never an errno value";
    const Result<void> wrong = failure("unknown memory \"x\"", Error::WrongUsage);
    ASSERT_FALSE(wrong.ok());
    EXPECT_EQ(wrong.error().code, Error::WrongUsage);
    EXPECT_EQ(Error{}.code, 0);
}

} // namespace
