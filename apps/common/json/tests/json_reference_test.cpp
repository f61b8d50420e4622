// The reader against a standard JSON parser: generated documents (objects of
// scalar members, nested objects and arrays, random blanks) must give the same
// member names, in the same order, with the same raw values.  Strings avoid
// what the settings format does not know (escapes, brackets inside nested
// values), since there the reader deliberately differs.
#include "settings-service/json.h"

#include <nlohmann/json.hpp>

#include <gtest/gtest.h>

#include <random>
#include <set>
#include <string>

namespace {

using Reference = nlohmann::ordered_json;

class Generator {
public:
    explicit Generator(unsigned seed) : random(seed) {}

    std::string object(int depth) {
        std::string text = "{" + blanks();
        std::set<std::string> names;
        const int count = pick(0, 6);
        for (int i = 0; i < count; ++i) {
            std::string name = identifier();
            if (!names.insert(name).second)
                continue;
            if (names.size() > 1)
                text += "," + blanks();
            text += "\"" + name + "\"" + blanks() + ":" + blanks() + value(depth) + blanks();
        }
        return text + "}";
    }

private:
    std::mt19937 random;

    int pick(int low, int high) { return std::uniform_int_distribution<int>(low, high)(random); }

    std::string blanks() {
        static const char BLANKS[] = {' ', '\t', '\n', '\r'};
        std::string text;
        for (int n = pick(0, 3) == 0 ? pick(1, 3) : 0; n > 0; --n)
            text += BLANKS[pick(0, 3)];
        return text;
    }

    std::string identifier() {
        static const std::string CHARS =
            "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789_-.";
        std::string text;
        for (int n = pick(1, 12); n > 0; --n)
            text += CHARS[pick(0, static_cast<int>(CHARS.size()) - 1)];
        return text;
    }

    std::string string() {
        std::string text;
        for (int n = pick(0, 16); n > 0; --n) {
            char c = static_cast<char>(pick(0x20, 0x7e));
            if (c == '"' || c == '\\' || c == '[' || c == ']' || c == '{' || c == '}')
                c = pick(0, 1) ? ' ' : ':';
            text += c;
        }
        return "\"" + text + "\"";
    }

    std::string number() {
        switch (pick(0, 3)) {
        case 0:
            return std::to_string(pick(-100000, 100000));
        case 1:
            return std::to_string(pick(-1000, 1000)) + "." + std::to_string(pick(0, 999999));
        case 2:
            return std::to_string(pick(1, 9)) + "e" + std::to_string(pick(-30, 30));
        default:
            return "-0." + std::to_string(pick(1, 99)) + "E+" + std::to_string(pick(0, 9));
        }
    }

    std::string scalar() {
        switch (pick(0, 5)) {
        case 0:
            return "true";
        case 1:
            return "false";
        case 2:
            return "null";
        case 3:
        case 4:
            return string();
        default:
            return number();
        }
    }

    std::string array(int depth) {
        std::string text = "[" + blanks();
        for (int n = pick(0, 5), i = 0; i < n; ++i)
            text += (i ? "," + blanks() : "") + value(depth) + blanks();
        return text + "]";
    }

    std::string value(int depth) {
        const int kind = depth > 0 ? pick(0, 5) : 0;
        if (kind == 4)
            return object(depth - 1);
        if (kind == 5)
            return array(depth - 1);
        return scalar();
    }
};

void compare(const std::string& text, const Reference& reference) {
    Json json;
    ASSERT_TRUE(json.parse(text)) << text << "\nerror at " << json.errorPosition;
    ASSERT_EQ(json.items.size(), reference.size()) << text;
    size_t i = 0;
    for (const auto& element : reference.items()) {
        const auto& [name, value] = json.items[i++];
        if (reference.is_object())
            EXPECT_EQ(name, element.key()) << text;
        else
            EXPECT_EQ(name, "") << text;
        const Reference& expected = element.value();
        if (expected.is_string()) {
            EXPECT_FALSE(value.isObject) << text;
            EXPECT_EQ(value.value, expected.get<std::string>()) << text;
        } else if (expected.is_structured()) {
            EXPECT_TRUE(value.isObject) << text;
            EXPECT_EQ(Reference::parse(value.value), expected) << text;
            compare(value.value, expected);
        } else {
            EXPECT_FALSE(value.isObject) << text;
            EXPECT_EQ(Reference::parse(value.value), expected) << value.value << " in " << text;
        }
    }
}

TEST(JsonReference, GeneratedDocumentsAgreeWithStandardParser) {
    for (unsigned seed = 1; seed <= 3000; ++seed) {
        Generator generator(seed);
        const std::string text = generator.object(3);
        SCOPED_TRACE("seed " + std::to_string(seed));
        compare(text, Reference::parse(text));
        if (HasFatalFailure())
            return;
    }
}

} // namespace
