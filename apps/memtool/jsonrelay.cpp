#include "jsonrelay.h"

#include <nlohmann/json.hpp>

#include <optional>

namespace {

using Json = nlohmann::ordered_json;

// Forwards the parser's events to the stream; keeps the parser's error.
class Relay : public nlohmann::json_sax<Json> {
public:
    explicit Relay(JsonStream& stream) : stream(stream) {}

    bool null() override { return put("null"); }
    bool boolean(bool value) override { return put(value ? "true" : "false"); }
    bool number_integer(number_integer_t value) override { return put(std::to_string(value)); }
    bool number_unsigned(number_unsigned_t value) override { return put(std::to_string(value)); }
    bool number_float(number_float_t value, const string_t&) override {
        return put(Json(value).dump());
    }
    bool string(string_t& value) override {
        stream.string(value);
        return true;
    }
    bool binary(binary_t&) override { return false; }
    bool start_object(std::size_t) override {
        stream.beginObject();
        return true;
    }
    bool key(string_t& name) override {
        stream.key(name);
        return true;
    }
    bool end_object() override {
        stream.end();
        return true;
    }
    bool start_array(std::size_t) override {
        stream.beginArray();
        return true;
    }
    bool end_array() override {
        stream.end();
        return true;
    }
    bool parse_error(std::size_t, const std::string&,
                     const nlohmann::detail::exception& error) override {
        failed = error.what();
        return false;
    }

    std::optional<std::string> failed;

private:
    bool put(std::string_view json) {
        stream.raw(json);
        return true;
    }

    JsonStream& stream;
};

} // namespace

Result<void> relayJson(JsonStream& stream, const std::string& json) {
    Relay relay(stream);
    if (!Json::sax_parse(json, &relay)) {
        return failure(relay.failed.value_or("not JSON: " + json));
    }
    return {};
}

Result<void> RepeatingRelay::write(JsonStream& stream, std::string json) {
    // Valid JSON never lays out to no bytes: empty lastBytes means nothing is kept yet.
    if (json != lastJson || stream.depth() != lastDepth || lastBytes.empty()) {
        JsonStream piece(nullptr, indent, stream.depth());
        TRY(relayJson(piece, json));
        lastBytes = piece.take();
        lastJson = std::move(json);
        lastDepth = stream.depth();
    }
    stream.raw(lastBytes);
    return {};
}
