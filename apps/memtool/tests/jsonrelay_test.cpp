// JsonStream with relayed JSON texts lays a document out byte for byte as the
// JSON library's dump does, pretty and compact.
#include "jsonrelay.h"

#include "memoryfile.h"

#include <nlohmann/json.hpp>

#include <gtest/gtest.h>

namespace {

using Ordered = nlohmann::ordered_json;

const char* const SAMPLES[] = {
    R"({"A": {"max":"1","min":"0","type":"int","value":"5"}, "B": [ {"x": 1}, {"y": [true, null]} ]})",
    R"({"Empty": {}, "None": [], "Nested": [[], [{}], [[1.5, -0.0, 1e300, 7]]]})",
    R"({"Text": "q\"b\\s\/\n\t\u0001\u00e9 \u20ac", "N": -12, "U": 18446744073709551615})",
    R"([1, "two", {"three": 3}])",
    R"("alone")",
    "42",
};

// What the stream writes for {"value": <json>, "after": [a text]} with this indent, or
// "error: " and the reason when <json> is not JSON.
std::string streamed(const std::string& json, int indent) {
    testsupport::MemoryFile out;
    {
        JsonStream stream(out.file(), indent);
        stream.beginObject();
        stream.key("value");
        if (const Result<void> relayed = relayJson(stream, json); !relayed) {
            return "error: " + relayed.error().text;
        }
        stream.key("after");
        stream.beginArray();
        stream.string("a\x7f\xff");
        stream.end();
        stream.end();
    }
    return out.text();
}

TEST(JsonRelay, LaysOutAsTheLibrarysDump) {
    for (const char* sample : SAMPLES) {
        const Ordered document = {{"value", Ordered::parse(sample)},
                                  {"after", Ordered::array({"a\x7f\xEF\xBF\xBD"})}};
        EXPECT_EQ(streamed(sample, 2), document.dump(2)) << sample;
        EXPECT_EQ(streamed(sample, -1), document.dump(-1)) << sample;
        EXPECT_EQ(streamed(sample, 4), document.dump(4)) << sample;
    }
}

TEST(JsonRelay, InvalidJsonIsAnErrorWithTheParsersReason) {
    EXPECT_EQ(streamed(R"({"a": [1,],})", 2).rfind("error: [json.exception.parse_error", 0), 0u);
    EXPECT_EQ(streamed("{\"a\": \"\xff\"}", 2).rfind("error: [json.exception.parse_error", 0), 0u);
}

// What RepeatingRelay writes for {"a": T1, "b": [T2, T3]}.
std::string repeated(const std::string& first, const std::string& second,
                     const std::string& third) {
    testsupport::MemoryFile out;
    {
        JsonStream stream(out.file(), 2);
        RepeatingRelay relay(2);
        stream.beginObject();
        stream.key("a");
        EXPECT_TRUE(relay.write(stream, first).ok());
        stream.key("b");
        stream.beginArray();
        EXPECT_TRUE(relay.write(stream, second).ok());
        EXPECT_TRUE(relay.write(stream, third).ok());
        stream.end();
        stream.end();
    }
    return out.text();
}

TEST(RepeatingRelay, ARepeatedTextIsLaidOutForItsOwnDepth) {
    const std::string text = R"({"x": [1]})";
    const Ordered value = Ordered::parse(text);
    const Ordered document = {{"a", value}, {"b", Ordered::array({value, value})}};
    EXPECT_EQ(repeated(text, text, text), document.dump(2));
    const Ordered other = Ordered::parse("[true]");
    EXPECT_EQ(repeated(text, "[true]", text),
              Ordered({{"a", value}, {"b", Ordered::array({other, value})}}).dump(2));
}

TEST(RepeatingRelay, AnEmptyTextIsRefusedEvenFirst) {
    testsupport::MemoryFile out;
    JsonStream stream(out.file(), 2);
    RepeatingRelay relay(2);
    EXPECT_FALSE(relay.write(stream, "").ok());
    EXPECT_FALSE(relay.write(stream, "{").ok());
    stream.flush();
    EXPECT_EQ(out.text(), "") << "nothing of an invalid text is written";
}

} // namespace
