// The frame shared by the command-line tools: `PROGRAM COMMAND [ARGUMENTS]`
// with a table of commands, `-h`/`--help` and `--version` for the program,
// `COMMAND -h`/`--help` for each command, suggestions for a mistyped
// command, and one way of turning errors into messages and exit statuses.
// A command returns its exit status or an Error (result.h):
// Error::WrongUsage -> "PROGRAM COMMAND: message" and the command's synopsis,
// exit 2; any other error -> "PROGRAM COMMAND: message", exit 1.  A message of
// several lines gets the "PROGRAM COMMAND: " prefix on each.  Commands print
// nothing about their own errors: the frame does.
//
// The exceptions of the interfaces whose failure form is fixed (throwError of
// the infrastructure: the broker connection, the event loop; the hardware
// record's exceptions) are turned into messages in one place, the frame's
// dispatch: an exception that leaves a command is printed as an error, its
// source location left out (errorMessage), exit 1.
//
// "-h" and "--help" ask for help wherever they stand before a "--"; a value
// that is one of those words goes after "--".
#pragma once

#include "cli.h"
#include "settings-service/log.h"

#include <functional>
#include <set>
#include <string>
#include <vector>

struct Command {
    const char* name;
    const char* synopsis;    // "memtool get MEMORY VARIABLE [VARIABLE...] [--json]"
    const char* description; // the rest of the command's --help text
    std::set<std::string> flags;
    std::set<std::string> valued;
    // The exit status, or the error that the frame prints.
    std::function<Result<int>(const Arguments& arguments)> run;
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
