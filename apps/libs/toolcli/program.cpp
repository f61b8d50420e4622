#include "program.h"

#include "closest.h"
#include "version.h"

#include <algorithm>
#include <cstdio>

namespace {

bool isHelp(const std::string& word) {
    return word == "--help" || word == "-h";
}

void printUsage(const Program& program, FILE* out) {
    std::fprintf(out, "Usage: %s COMMAND [ARGUMENTS]   (%s COMMAND --help for more)\n%s\n\n",
                 program.name, program.name, program.summary);
    for (const Command& command : program.commands) {
        std::fprintf(out, "  %s\n", command.synopsis);
    }
    std::fprintf(out,
                 "\n  %s -h, --help        this text\n"
                 "  %s --version         the version of the program\n\n%s\n",
                 program.name, program.name, program.footer);
}

const Command* findCommand(const Program& program, const std::string& name) {
    for (const Command& command : program.commands) {
        if (name == command.name) {
            return &command;
        }
    }
    return nullptr;
}

int unknownCommand(const Program& program, const std::string& word) {
    std::vector<std::string> names;
    for (const Command& command : program.commands) {
        names.emplace_back(command.name);
    }
    const std::string hint = suggestion(word, names);
    std::fprintf(stderr, "%s: unknown command \"%s\"%s%s\n", program.name, word.c_str(),
                 hint.empty() ? "" : ". ", hint.c_str());
    printUsage(program, stderr);
    return ExitUsage;
}

bool asksForHelp(const std::vector<std::string>& words) {
    for (const std::string& word : words) {
        if (word == "--") {
            return false;
        }
        if (isHelp(word)) {
            return true;
        }
    }
    return false;
}

// Each line of the message as "PROGRAM COMMAND: line".
void printError(const Program& program, const Command& command, const std::string& message) {
    for (size_t start = 0; start <= message.size();) {
        const size_t end = std::min(message.find('\n', start), message.size());
        std::fprintf(stderr, "%s %s: %.*s\n", program.name, command.name,
                     static_cast<int>(end - start), message.data() + start);
        start = end + 1;
    }
}

// The command's status or error.  The one place where the exceptions of the
// infrastructure become errors: their text without the source location.
Result<int> parseAndRun(const Command& command, const std::vector<std::string>& words) {
    const Arguments arguments = TRY(Arguments::parse(words, command.flags, command.valued));
    try {
        return command.run(arguments);
    } catch (const std::exception& error) {
        return failure(errorMessage(error));
    }
}

int runCommand(const Program& program, const Command& command,
               const std::vector<std::string>& words) {
    if (asksForHelp(words)) {
        std::printf("Usage: %s\n\n%s\n", command.synopsis, command.description);
        return ExitSuccess;
    }
    const Result<int> status = parseAndRun(command, words);
    if (status.ok()) {
        return *status;
    }
    printError(program, command, status.error().text);
    if (status.error().code == Error::WrongUsage) {
        std::fprintf(stderr, "Usage: %s\n", command.synopsis);
        return ExitUsage;
    }
    return ExitFailure;
}

} // namespace

int runProgram(const Program& program, const std::vector<std::string>& words) {
    if (words.empty()) {
        printUsage(program, stderr);
        return ExitUsage;
    }
    if (words[0] == "help" && words.size() == 2 && findCommand(program, words[1]) != nullptr) {
        return runCommand(program, *findCommand(program, words[1]), {"--help"});
    }
    if (isHelp(words[0]) || words[0] == "help") {
        printUsage(program, stdout);
        return ExitSuccess;
    }
    if (words[0] == "--version") {
        std::printf("%s %s\n", program.name, Constants::PROJECT_VERSION);
        return ExitSuccess;
    }
    const Command* command = findCommand(program, words[0]);
    if (command == nullptr) {
        return unknownCommand(program, words[0]);
    }
    return runCommand(program, *command, {words.begin() + 1, words.end()});
}
