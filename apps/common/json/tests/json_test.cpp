#include "settings-service/json.h"

#include <gtest/gtest.h>

#include <stdexcept>

namespace {

struct Expected {
    std::string name;
    std::string value;
    bool isObject;
};

void expectItems(const Json& json, const std::vector<Expected>& expected) {
    ASSERT_EQ(json.items.size(), expected.size());
    for (size_t i = 0; i < expected.size(); ++i) {
        EXPECT_EQ(json.items[i].first, expected[i].name) << "item " << i;
        EXPECT_EQ(json.items[i].second.value, expected[i].value) << "item " << i;
        EXPECT_EQ(json.items[i].second.isObject, expected[i].isObject) << "item " << i;
    }
}

TEST(Json, FreshInstanceIsEmpty) {
    Json json;
    EXPECT_TRUE(json.items.empty());
    EXPECT_EQ(json.errorPosition, -1);
    EXPECT_EQ(json.state, Json::Begin);
    EXPECT_EQ(json.outerClose, 0);
    EXPECT_FALSE(json.outerIsArray);
}

TEST(Json, StateNumbers) {
    EXPECT_EQ(Json::Begin, 0);
    EXPECT_EQ(Json::NameStart, 1);
    EXPECT_EQ(Json::Name, 2);
    EXPECT_EQ(Json::NameEnd, 3);
    EXPECT_EQ(Json::ValueStart, 4);
    EXPECT_EQ(Json::Value, 5);
    EXPECT_EQ(Json::ValueEnd, 6);
    EXPECT_EQ(Json::Finished, 7);
    EXPECT_EQ(Json::Failed, 8);
}

TEST(Json, CharacterClasses) {
    for (char c : {' ', '\t', '\n', '\r'})
        EXPECT_TRUE(Json::isWhitespace(c));
    for (char c : {'\v', '\f', 'a', '\0', ','})
        EXPECT_FALSE(Json::isWhitespace(c));
    EXPECT_TRUE(Json::isString('"'));
    EXPECT_TRUE(Json::isString('\''));
    EXPECT_FALSE(Json::isString('`'));
    EXPECT_EQ(Json::isObjectStart('['), ']');
    EXPECT_EQ(Json::isObjectStart('{'), '}');
    EXPECT_EQ(Json::isObjectStart('('), 0);
    EXPECT_EQ(Json::isObjectStart('}'), 0);
}

TEST(Json, SingleScalarMember) {
    Json json;
    EXPECT_TRUE(json.parse("{'a':1}"));
    expectItems(json, {{"a", "1", false}});
    EXPECT_EQ(json.errorPosition, -1);
    EXPECT_EQ(json.state, Json::Finished);
}

TEST(Json, NestedValueKeptVerbatim) {
    Json json;
    EXPECT_TRUE(json.parse("{'a': {'b': [1, 2]}, 'c': 'x y'}"));
    expectItems(json, {{"a", "{'b': [1, 2]}", true}, {"c", "x y", false}});
}

TEST(Json, ArrayTopLevelHasEmptyNames) {
    Json json;
    EXPECT_TRUE(json.parse("[1, 2, 3]"));
    expectItems(json, {{"", "1", false}, {"", "2", false}, {"", "3", false}});
    EXPECT_TRUE(json.outerIsArray);
    EXPECT_EQ(json.outerClose, ']');
}

TEST(Json, CutShortDropsTheOpenValue) {
    Json json;
    EXPECT_TRUE(json.parse("{'a':1"));
    EXPECT_TRUE(json.items.empty());

    Json withComma;
    EXPECT_TRUE(withComma.parse("{'a':1,"));
    expectItems(withComma, {{"a", "1", false}});
}

TEST(Json, GarbageAfterQuotedName) {
    Json json;
    EXPECT_FALSE(json.parse("{'a' x}"));
    EXPECT_EQ(json.errorPosition, 5);
    EXPECT_TRUE(json.items.empty());
}

TEST(Json, GarbageAfterDocument) {
    Json json;
    EXPECT_FALSE(json.parse("{'a':1} x"));
    EXPECT_EQ(json.errorPosition, 8);
    expectItems(json, {{"a", "1", false}});

    Json blanks;
    EXPECT_TRUE(blanks.parse("{'a':1} \t\r\n "));
    expectItems(blanks, {{"a", "1", false}});
}

TEST(Json, FirstCharacterMustOpen) {
    Json json;
    EXPECT_FALSE(json.parse("x{'a':1}"));
    EXPECT_EQ(json.errorPosition, 0);

    Json afterBlanks;
    EXPECT_FALSE(afterBlanks.parse("  x"));
    EXPECT_EQ(afterBlanks.errorPosition, 2);
}

TEST(Json, BlankInsideQuotedNameEndsTheName) {
    Json json;
    EXPECT_FALSE(json.parse("{'my name': 1}"));
    EXPECT_EQ(json.errorPosition, 5);
    EXPECT_EQ(json.name, "my");
}

TEST(Json, ColonInsideQuotedNameEndsTheName) {
    Json json;
    EXPECT_FALSE(json.parse("{'a:b': 1}"));
    // "a" then ':' starts the bare value "b':" which ends at the blank; '1' is not a separator.
    EXPECT_EQ(json.errorPosition, 8);
    expectItems(json, {{"a", "b':", false}});
}

TEST(Json, EmptyTextIsAccepted) {
    Json json;
    EXPECT_TRUE(json.parse(""));
    EXPECT_TRUE(json.items.empty());
    EXPECT_EQ(json.state, Json::Begin);
}

TEST(Json, EmptyObjectAndArray) {
    Json object;
    EXPECT_TRUE(object.parse("{}"));
    EXPECT_TRUE(object.items.empty());

    Json array;
    EXPECT_TRUE(array.parse("[]"));
    EXPECT_TRUE(array.items.empty());
}

TEST(Json, NoEscapeSequences) {
    Json json;
    EXPECT_TRUE(json.parse(R"({"a": "x\", "b": 2})"));
    expectItems(json, {{"a", "x\\", false}, {"b", "2", false}});
}

TEST(Json, OtherQuoteKindIsOrdinaryInsideString) {
    Json json;
    EXPECT_TRUE(json.parse(R"({"a": "it's", 'b': 'say "hi"'})"));
    expectItems(json, {{"a", "it's", false}, {"b", "say \"hi\"", false}});
}

TEST(Json, ClosingBracketInNestedStringEndsNesting) {
    Json json;
    EXPECT_FALSE(json.parse("{'a': {'b': '}'}, 'c': 1}"));
    // The nested value ends at the '}' inside the string; the quote after it is rejected.
    expectItems(json, {{"a", "{'b': '}", true}});
    EXPECT_EQ(json.errorPosition, 14);
}

TEST(Json, OnlyTheOpeningBracketKindIsCounted) {
    Json square;
    EXPECT_TRUE(square.parse("{'a': [{]}"));
    expectItems(square, {{"a", "[{]", true}});

    Json curly;
    EXPECT_TRUE(curly.parse("{'b': {[}}"));
    expectItems(curly, {{"b", "{[}", true}});
}

TEST(Json, UnbalancedOtherBracketRejected) {
    Json json;
    // The nested value "[{]" ends early; its '}' closes the document and the ']' after it fails.
    EXPECT_FALSE(json.parse("{'a': [{]}], 'b': 1}"));
    EXPECT_EQ(json.errorPosition, 10);
    expectItems(json, {{"a", "[{]", true}});
}

TEST(Json, DeeplyNestedSameKind) {
    Json json;
    EXPECT_TRUE(json.parse("{\"s\":{\"a\":{\"b\":{}},\"c\":[]},\"t\":[[1],[2,[3]]]}"));
    expectItems(json, {{"s", "{\"a\":{\"b\":{}},\"c\":[]}", true}, {"t", "[[1],[2,[3]]]", true}});
}

TEST(Json, BareValuesAreNotValidated) {
    Json json;
    EXPECT_TRUE(json.parse("{a: tru, b:-0x1F, c:null\n,d:1e3}"));
    expectItems(
        json,
        {{"a", "tru", false}, {"b", "-0x1F", false}, {"c", "null", false}, {"d", "1e3", false}});
}

TEST(Json, BareNameEndsAtQuote) {
    Json json;
    // A bare name has no quote; a NUL would end it, an ordinary quote is kept.
    EXPECT_TRUE(json.parse("{ab'c: 1}"));
    expectItems(json, {{"ab'c", "1", false}});
}

TEST(Json, DuplicatesKeptInOrder) {
    Json json;
    EXPECT_TRUE(json.parse("{'a':1,'b':2,'a':3}"));
    expectItems(json, {{"a", "1", false}, {"b", "2", false}, {"a", "3", false}});
    EXPECT_EQ(json["a"].value, "1");
    EXPECT_EQ(json["b"].value, "2");
}

TEST(Json, AbsentNameThrowsNotFound) {
    Json json;
    ASSERT_TRUE(json.parse("{'a':1}"));
    EXPECT_EQ(json.find("b"), nullptr);
    ASSERT_NE(json.find("a"), nullptr);
    EXPECT_EQ(json.find("a")->value, "1");
    try {
        (void)json["b"];
        FAIL() << "no exception";
    } catch (const std::runtime_error& error) {
        EXPECT_STREQ(error.what(), "Not found");
    }
    EXPECT_THROW((void)json["A"], std::runtime_error);
}

TEST(Json, CommaWithoutValueStartsNextItem) {
    Json json;
    EXPECT_TRUE(json.parse("[1,,2]"));
    expectItems(json, {{"", "1", false}, {"", ",2", false}});
}

TEST(Json, ValueEndRejectsAnythingButSeparator) {
    Json json;
    EXPECT_FALSE(json.parse("{'a':'x' 'b':2}"));
    EXPECT_EQ(json.errorPosition, 9);
    expectItems(json, {{"a", "x", false}});
}

TEST(Json, NameEndRejectsAnythingButColon) {
    Json json;
    EXPECT_FALSE(json.parse("{a b:1}"));
    EXPECT_EQ(json.errorPosition, 3);
}

TEST(Json, EmptyQuotedValue) {
    Json json;
    EXPECT_TRUE(json.parse("{'a':'','b':\"\"}"));
    expectItems(json, {{"a", "", false}, {"b", "", false}});
}

TEST(Json, SettingsDocumentShape) {
    const std::string document = "{\n"
                                 "\"AUXTorque\": 2,\n"
                                 "\"CircleofConfusion\": 0.025000,\n"
                                 "\"ButtonsLocked\": false,\n"
                                 "\"CinefadeDisplayModeValue\": \"Filter\",\n"
                                 "\"RecentLensFiles\": [1,2,3]\n"
                                 "}";
    Json json;
    EXPECT_TRUE(json.parse(document));
    expectItems(json, {{"AUXTorque", "2", false},
                       {"CircleofConfusion", "0.025000", false},
                       {"ButtonsLocked", "false", false},
                       {"CinefadeDisplayModeValue", "Filter", false},
                       {"RecentLensFiles", "[1,2,3]", true}});
}

TEST(Json, ReparseKeepsItemsAndTopLevelKind) {
    Json json;
    ASSERT_TRUE(json.parse("[1]"));
    // The array top level stays set: the quoted name reads as an unnamed value and
    // the colon after it is rejected.
    EXPECT_FALSE(json.parse("{'a':2}"));
    EXPECT_EQ(json.errorPosition, 4);
    expectItems(json, {{"", "1", false}, {"", "a", false}});
}

TEST(Json, ErrorPositionResetOnNextParse) {
    Json json;
    ASSERT_FALSE(json.parse("x"));
    EXPECT_EQ(json.errorPosition, 0);
    EXPECT_TRUE(json.parse("{}"));
    EXPECT_EQ(json.errorPosition, -1);
}

} // namespace
