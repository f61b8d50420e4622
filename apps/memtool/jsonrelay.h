// A JSON text (a struct getter's) written as one value of a JsonStream,
// laid out as the stream lays out its own values.
#pragma once

#include "jsonstream.h"
#include "result.h"

#include <string>

// The parser's error when `json` is not valid JSON; what was written before
// the error stays written.
Result<void> relayJson(JsonStream& stream, const std::string& json);

// relayJson for a run of texts that often repeat (the elements of a struct
// array: defaults, empty slots).  A text equal to the one before it, going to
// the same depth, is written from the bytes laid out for that one.  `indent`
// is the indent of the streams written to.
class RepeatingRelay {
public:
    explicit RepeatingRelay(int indent) : indent(indent) {}

    // As relayJson, except that nothing of a text that is not valid JSON is written.
    Result<void> write(JsonStream& stream, std::string json);

private:
    int indent;
    std::string lastJson;
    size_t lastDepth = 0;
    std::string lastBytes;
};
