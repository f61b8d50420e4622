// Generated from gen/model by gen/generator. Do not edit.
// The log levels: the entries of the catalogue's enum Level, in value order. The higher the
// level, the more severe the line; a line is written when its level is not below the component's.
#pragma once

namespace gen {

enum LogLevel : int {
    Low = 0,
    Mid = 1,
    High = 2,
};

} // namespace gen
