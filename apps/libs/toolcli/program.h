// The frame shared by the command-line tools: `PROGRAM COMMAND [ARGUMENTS]`
// with a table of commands, `-h`/`--help` and `--version` for the program,
// `COMMAND -h`/`--help` for each command, suggestions for a mistyped
// command, and one way of turning errors into messages and exit statuses:
// UsageError -> "PROGRAM COMMAND: message" and the command's synopsis, exit 2;
// any other error -> "PROGRAM COMMAND: message", exit 1.  A message of several
// lines gets the "PROGRAM COMMAND: " prefix on each.
//
// "-h" and "--help" ask for help wherever they stand before a "--"; a value
// that is one of those words goes after "--".
#pragma once

#include "cli.h"
#include "settings-service/log.h"

#include <exception>
#include <set>
#include <string>
#include <vector>

struct Command {
    const char* name;
    const char* synopsis;    // "memtool get MEMORY VARIABLE [VARIABLE...] [--json]"
    const char* description; // the rest of the command's --help text
    std::set<std::string> flags;
    std::set<std::string> valued;
    int (*run)(const Arguments& arguments);
};

struct Program {
    const char* name;    // as typed: "memtool"
    const char* summary; // what the program does, for --help
    const char* footer;  // the closing paragraph of --help
    std::vector<Command> commands;
};

// Runs the command that `words` (the arguments after the program's name) ask for.
int runProgram(const Program& program, const std::vector<std::string>& words);

// errorMessage (settings-service/log.h) gives an error's text for the terminal.
