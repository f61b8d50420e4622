// Fuzz entry for the settings reader: any bytes must parse without reading
// past the input, and the result must be self-consistent.
#include "settings-service/json.h"

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>

namespace {

void check(bool condition) {
    if (!condition)
        std::abort();
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const std::string text(reinterpret_cast<const char*>(data), size);
    Json json;
    const bool accepted = json.parse(text);
    if (accepted) {
        check(json.errorPosition == -1);
    } else {
        check(json.state == Json::Failed);
        check(json.errorPosition >= 0 && static_cast<size_t>(json.errorPosition) < size);
        check(!Json::isWhitespace(text[json.errorPosition]));
    }
    for (const Json::Item& item : json.items) {
        check(item.first.size() + item.second.value.size() <= size);
        if (item.second.isObject) {
            const std::string& value = item.second.value;
            check(value.size() >= 2 && Json::isObjectStart(value.front()) == value.back());
        }
        check(json.find(item.first) != nullptr);
    }
    return 0;
}
