// Command-line parsing for memtool: the words after the command name split
// into positional arguments and options ("--name", "--name VALUE" or
// "--name=VALUE"); "--" ends the options.  A single dash is not an option
// prefix, so negative numbers pass as values.
//
// A wrong command line is an Error with the code Error::WrongUsage
// (usageError); the frame (program.h) prints it with the command's synopsis.
#pragma once

#include "result.h"

#include <map>
#include <optional>
#include <set>
#include <string>
#include <vector>

// Exit statuses of memtool.
enum ExitStatus : int {
    ExitSuccess = 0,
    ExitFailure = 1, // the operation failed: range or conversion error, no broker, time-out
    ExitUsage = 2,   // the command line is wrong: unknown command, option or name
};

// A wrong command line or request, found where this is called.
inline Error usageError(std::string text,
                        std::source_location where = std::source_location::current()) {
    return failure(std::move(text), Error::WrongUsage, where);
}

class Arguments {
public:
    // A usage error for an option not in `flags` or `valued`, or a valued
    // option without its value.
    static Result<Arguments> parse(const std::vector<std::string>& words,
                                   const std::set<std::string>& flags,
                                   const std::set<std::string>& valued);

    const std::vector<std::string>& positional() const { return words; }
    bool has(const std::string& flag) const { return present.count(flag) != 0; }
    std::optional<std::string> value(const std::string& option) const;
    // The option's value as a non-negative number, or `fallback` when absent;
    // a usage error when it is not one.
    Result<unsigned> number(const std::string& option, unsigned fallback) const;
    // A usage error unless the count of positional arguments is within the bounds.
    Result<void> expectPositional(size_t least, size_t most) const;

private:
    Arguments() = default;

    std::vector<std::string> words;
    std::set<std::string> present;
    std::map<std::string, std::string> values;
};

// A non-negative decimal number, or nullopt when `text` is not one.
std::optional<unsigned> parseNumber(const std::string& text);
