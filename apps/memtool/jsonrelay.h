// A JSON text (a struct getter's) written as one value of a JsonStream,
// laid out as the stream lays out its own values.
#pragma once

#include "jsonstream.h"

#include <string>

// Throws the parser's error when `json` is not valid JSON; what was written
// before the error stays written.
void relayJson(JsonStream& stream, const std::string& json);
