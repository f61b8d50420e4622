// Command-line parsing for memtool: the words after the command name split
// into positional arguments and options ("--name", "--name VALUE" or
// "--name=VALUE"); "--" ends the options.  A single dash is not an option
// prefix, so negative numbers pass as values.
#pragma once

#include <map>
#include <optional>
#include <set>
#include <stdexcept>
#include <string>
#include <vector>

// Exit statuses of memtool.
enum ExitStatus : int {
    ExitSuccess = 0,
    ExitFailure = 1, // the operation failed: range or conversion error, no broker, time-out
    ExitUsage = 2,   // the command line is wrong: unknown command, option or name
};

// A wrong command line; main prints it with the command's synopsis, status 2.
class UsageError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

// An operation that could not be done; main prints it, status 1.
class Failure : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

class Arguments {
public:
    // Throws UsageError for an option not in `flags` or `valued`, or a valued
    // option without its value.
    Arguments(const std::vector<std::string>& words, const std::set<std::string>& flags,
              const std::set<std::string>& valued);

    const std::vector<std::string>& positional() const { return words; }
    bool has(const std::string& flag) const { return present.count(flag) != 0; }
    std::optional<std::string> value(const std::string& option) const;
    // The option's value as a non-negative number, or `fallback` when absent;
    // throws UsageError when it is not one.
    unsigned number(const std::string& option, unsigned fallback) const;
    // Throws UsageError unless the count of positional arguments is within the bounds.
    void expectPositional(size_t least, size_t most) const;

private:
    std::vector<std::string> words;
    std::set<std::string> present;
    std::map<std::string, std::string> values;
};

// A non-negative decimal number, or nullopt when `text` is not one.
std::optional<unsigned> parseNumber(const std::string& text);
