// JsonStream: layout, escapes, and bytes that are not UTF-8.
#include "jsonstream.h"

#include "memoryfile.h"

#include <gtest/gtest.h>

#include <functional>

namespace {

std::string written(int indent, const std::function<void(JsonStream&)>& write) {
    testsupport::MemoryFile out;
    {
        JsonStream stream(out.file(), indent);
        write(stream);
    }
    return out.text();
}

TEST(JsonStream, PrettyAndCompact) {
    const auto document = [](JsonStream& stream) {
        stream.beginObject();
        stream.key("a");
        stream.raw("1");
        stream.key("b");
        stream.beginArray();
        stream.string("x");
        stream.beginObject();
        stream.end();
        stream.end();
        stream.end();
    };
    EXPECT_EQ(written(2, document), "{\n  \"a\": 1,\n  \"b\": [\n    \"x\",\n    {}\n  ]\n}");
    EXPECT_EQ(written(-1, document), "{\"a\":1,\"b\":[\"x\",{}]}");
}

TEST(JsonStream, APieceLaidOutAtItsDepthFitsTheDocument) {
    JsonStream piece(nullptr, 2, 1);
    piece.beginArray();
    piece.raw("1");
    piece.end();
    const std::string bytes = piece.take();
    EXPECT_EQ(bytes, "[\n    1\n  ]");
    EXPECT_EQ(piece.take(), "");
    const std::string document = written(2, [&](JsonStream& stream) {
        stream.beginObject();
        stream.key("a");
        EXPECT_EQ(stream.depth(), 1u);
        stream.raw(bytes);
        stream.end();
    });
    EXPECT_EQ(document, "{\n  \"a\": [\n    1\n  ]\n}");
}

TEST(JsonStream, EscapesAndReplacesWhatIsNotUtf8) {
    const auto text = [](const std::string& value) {
        return written(-1, [&](JsonStream& stream) { stream.string(value); });
    };
    EXPECT_EQ(text("\"\\\b\f\n\r\t\x01\x1f\x7f/"),
              "\"\\\"\\\\\\b\\f\\n\\r\\t\\u0001\\u001f\x7f/\"");
    EXPECT_EQ(text("\xc3\xa9\xe2\x82\xac\xf0\x9f\x98\x80"),
              "\"\xc3\xa9\xe2\x82\xac\xf0\x9f\x98\x80\"");
    const std::string replacement = "\xEF\xBF\xBD";
    EXPECT_EQ(text("a\xff"
                   "b"),
              "\"a" + replacement + "b\"");
    EXPECT_EQ(text("\xc3"), "\"" + replacement + "\"") << "cut short";
    EXPECT_EQ(text("\xc0\xaf"), "\"" + replacement + replacement + "\"") << "overlong";
    EXPECT_EQ(text("\xed\xa0\x80"), "\"" + replacement + replacement + replacement + "\"")
        << "a surrogate";
    EXPECT_EQ(text("\xf4\x90\x80\x80"),
              "\"" + replacement + replacement + replacement + replacement + "\"")
        << "beyond U+10FFFF";
}

} // namespace
