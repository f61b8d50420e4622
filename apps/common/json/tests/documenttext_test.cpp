// Escaping of texts in settings documents and the completeness check.
#include "documenttext.h"
#include "settings-service/json.h"

#include <gtest/gtest.h>

#include <string>

namespace {

// The value that the reader gives for `escaped` written as a quoted value.
std::string readBack(const std::string& escaped) {
    Json reader;
    EXPECT_TRUE(reader.parse("{\"key\": \"" + escaped + "\"}"));
    EXPECT_EQ(reader.state, Json::Finished);
    return reader.items.size() == 1 ? reader.items[0].second.value : std::string("<no item>");
}

std::string everyByte() {
    std::string text;
    for (int byte = 1; byte < 256; ++byte) {
        text += static_cast<char>(byte);
    }
    return text;
}

TEST(DocumentText, TextWithoutSpecialCharactersIsWrittenUnchanged) {
    const std::string text = "/var/LENSFILES/ [A] {B} 'c' \xc3\xa4 & 100%";
    EXPECT_EQ(DocumentText::escape(text), text);
    EXPECT_EQ(DocumentText::unescape(text), text);
}

TEST(DocumentText, QuoteBackslashAndControlCharactersAreWrittenAsUnicodeEscapes) {
    EXPECT_EQ(DocumentText::escape("a\"b"), "a\\u0022b");
    EXPECT_EQ(DocumentText::escape("C:\\dir"), "C:\\u005cdir");
    EXPECT_EQ(DocumentText::escape("line\nnext\ttab\x7f\x01"),
              "line\\u000anext\\u0009tab\\u007f\\u0001");
    EXPECT_EQ(DocumentText::escape("[{x}]"), "[{x}]");
    EXPECT_EQ(DocumentText::escape("[{x}]", true), "\\u005b\\u007bx\\u007d\\u005d");
}

TEST(DocumentText, EveryByteRoundTripsThroughAQuotedValue) {
    const std::string text = everyByte();
    const std::string escaped = DocumentText::escape(text);
    EXPECT_EQ(escaped.find('"'), std::string::npos);
    EXPECT_EQ(DocumentText::unescape(readBack(escaped)), text);
}

TEST(DocumentText, EveryByteRoundTripsInsideANestedValue) {
    const std::string text = everyByte();
    const std::string member =
        "{\"value\":\"" + DocumentText::escape(text, true) + "\", \"type\": \"string\" }";
    Json outer;
    ASSERT_TRUE(outer.parse("{\"list\": [{\"name\": " + member + "}, {}]}"));
    ASSERT_EQ(outer.items.size(), 1u);
    Json elements;
    ASSERT_TRUE(elements.parse(outer.items[0].second.value));
    ASSERT_EQ(elements.items.size(), 2u);
    Json fields;
    ASSERT_TRUE(fields.parse(elements.items[0].second.value));
    ASSERT_EQ(fields.items.size(), 1u);
    Json value;
    ASSERT_TRUE(value.parse(fields.items[0].second.value));
    const Json::ObjectValue* inner = value.find("value");
    ASSERT_NE(inner, nullptr);
    EXPECT_EQ(DocumentText::unescape(inner->value), text);
}

TEST(DocumentText, ATextHoldingAnEscapeSequenceReadsBackAsItself) {
    const std::string text = "\\u0041 and \\u00zz";
    EXPECT_EQ(DocumentText::unescape(readBack(DocumentText::escape(text))), text);
}

TEST(DocumentText, UnescapeKeepsEverythingThatIsNoCompleteSequence) {
    EXPECT_EQ(DocumentText::unescape("\\u0041\\u004A\\u004a"), "AJJ");
    EXPECT_EQ(DocumentText::unescape("\\u0000x").size(), 2u);
    for (const char* kept : {"\\", "\\u", "\\u00", "\\u004", "\\u00g1", "\\u0141", "\\n", "a\\b"}) {
        EXPECT_EQ(DocumentText::unescape(kept), kept);
    }
}

TEST(DocumentText, OnlyAWholeObjectIsACompleteDocument) {
    EXPECT_TRUE(DocumentText::isCompleteDocument("{}"));
    EXPECT_TRUE(DocumentText::isCompleteDocument(" {\n} \n"));
    EXPECT_TRUE(DocumentText::isCompleteDocument("{\n\"a\": 1,\n\"b\": \"x\"\n}\n  "));
    const std::string whole = "{\"a\": 1, \"b\": [1, 2]}";
    for (std::size_t cut = 0; cut < whole.size(); ++cut) {
        EXPECT_FALSE(DocumentText::isCompleteDocument(whole.substr(0, cut))) << cut;
    }
    for (const char* broken :
         {"", "   ", "x", "[1, 2]", "{\"a\" 1}", "{\"a\": 1} x", "\xef\xbb\xbf{}", "{}x", "{x}",
          "{\"a\": 1, \"b\" true, \"c\": 2}"}) {
        EXPECT_FALSE(DocumentText::isCompleteDocument(broken)) << broken;
    }
}

TEST(DocumentText, AParsedReaderIsJudgedAsItsText) {
    const std::string whole = "{\"a\": 1, \"b\": [1, 2]}";
    for (std::size_t cut = 0; cut <= whole.size(); ++cut) {
        const std::string text = whole.substr(0, cut);
        Json reader;
        if (reader.parse(text)) {
            EXPECT_EQ(DocumentText::isCompleteDocument(reader, text),
                      DocumentText::isCompleteDocument(text))
                << cut;
        }
    }
    for (const char* text : {"{}", " {\n} \n", "[1, 2]", "{\"a\": 1} x"}) {
        Json reader;
        if (reader.parse(text)) {
            EXPECT_EQ(DocumentText::isCompleteDocument(reader, text),
                      DocumentText::isCompleteDocument(text))
                << text;
        }
    }
    Json wholeReader;
    ASSERT_TRUE(wholeReader.parse(whole));
    EXPECT_TRUE(DocumentText::isCompleteDocument(wholeReader, whole));
}

TEST(DocumentText, ADamagedDocumentIsReadLineByLine) {
    const std::string text = "{\n"
                             "\"a\": 1,\n"
                             "\"b \": 2,\n"
                             "\"c\": \"x, y\",\n"
                             "\r\n"
                             "\"d\": [{\"m\": {\"value\": \"1\"}}],\n"
                             "\"e\" 5,\n"
                             "\"f\": 6\n"
                             "}";
    const DocumentText::Lines lines = DocumentText::readLines(text);
    ASSERT_EQ(lines.items.size(), 4u);
    EXPECT_EQ(lines.items[0].first, "a");
    EXPECT_EQ(lines.items[0].second.value, "1");
    EXPECT_EQ(lines.items[1].first, "c");
    EXPECT_EQ(lines.items[1].second.value, "x, y");
    EXPECT_EQ(lines.items[2].first, "d");
    EXPECT_TRUE(lines.items[2].second.isObject);
    EXPECT_EQ(lines.items[3].first, "f");
    ASSERT_EQ(lines.unreadable.size(), 2u);
    EXPECT_EQ(lines.unreadable[0], std::make_pair(3, std::string("\"b \": 2,")));
    EXPECT_EQ(lines.unreadable[1], std::make_pair(7, std::string("\"e\" 5,")));
}

TEST(DocumentText, ALineCutShortOrHoldingTwoMembersCannotBeRead) {
    // A last line without its line break may have been cut inside its value.
    const DocumentText::Lines cut = DocumentText::readLines("{\n\"a\": 1,\n\"b\": 12");
    ASSERT_EQ(cut.items.size(), 1u);
    EXPECT_EQ(cut.items[0].first, "a");
    EXPECT_EQ(cut.unreadable, (std::vector<std::pair<int, std::string>>{{3, "\"b\": 12"}}));
    const DocumentText::Lines two = DocumentText::readLines("{\"a\": 1, \"b\": 2}\n");
    EXPECT_TRUE(two.items.empty());
    EXPECT_EQ(two.unreadable.size(), 1u);
    const DocumentText::Lines frame = DocumentText::readLines("{\n\n}");
    EXPECT_TRUE(frame.items.empty());
    EXPECT_TRUE(frame.unreadable.empty());
}

} // namespace
