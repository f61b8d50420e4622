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

} // namespace
