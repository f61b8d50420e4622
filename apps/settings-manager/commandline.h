// The command line of settings-manager: the service takes no arguments;
// "--help" and "--version" print and end the program, anything else is a
// usage error.  Nothing else happens in parse, so these end the program
// without touching the device.
#pragma once

#include <cstdio>

namespace CommandLine {

enum Action {
    Run,        // no arguments: start the service
    Done,       // help or version printed: exit 0
    UsageError, // a usage error printed: exit USAGE_ERROR
};

constexpr int USAGE_ERROR = 2;

// Prints help and version to `out`, usage errors to `err`.
Action parse(int argc, const char* const argv[], std::FILE* out, std::FILE* err);

} // namespace CommandLine
