// memtool: reads and writes the device's memories and talks to the message
// broker, for people who work on the device and for scripts.
//
// It opens the memories that the settings service created, as they are, and
// connects to the broker only for the commands that post or listen.  Values
// are written through the catalogue's setters, so range checks and change
// events happen as for any other process.  Exit status: 0 success, 1 the
// operation failed, 2 the command line is wrong.
#include "closest.h"
#include "commands.h"
#include "log.h"
#include "serverconnection.h"

#include <cstdio>
#include <exception>
#include <string>
#include <vector>

namespace {

// memtool's own log level: only warnings and errors reach the kernel log.
gen::LogLevel memtoolLogLevel = gen::Warn;

const std::vector<Command> COMMANDS = {
    {"memories",
     "memtool memories [--json]",
     "Lists the memories of the catalogue: index, name, number of variables and\n"
     "whether the memory is present on the device.",
     {"--json"},
     {},
     listMemories},
    {"vars",
     "memtool vars MEMORY [--json]",
     "Lists a memory's variables: index, name, type, array length, range\n"
     "(min..max; \"-\" for strings and structs) and change event (id and name).",
     {"--json"},
     {},
     listVariables},
    {"get",
     "memtool get MEMORY VARIABLE [INDEX] [--json]",
     "Prints a variable's value as text: one element of an array when INDEX is\n"
     "given, else every element, one per line.  With --json the value is typed\n"
     "JSON (an array for a whole array, an object for a struct).",
     {"--json"},
     {},
     getValue},
    {"set",
     "memtool set MEMORY VARIABLE [INDEX] VALUE",
     "Writes VALUE through the catalogue's setter after the range check; the\n"
     "setter posts the variable's change event when the text says it does.  An\n"
     "array needs the element INDEX.  A struct takes a JSON object of members,\n"
     "each a bare value or an object with \"value\" (as `get` prints it).  A\n"
     "range or conversion error is printed and the exit status is 1.",
     {},
     {},
     setValue},
    {"post",
     "memtool post EVENT [--index N]",
     "Posts an event, given by name or number, to the broker; --index N posts it\n"
     "for element N of an array (indexed 1).",
     {},
     {"--index"},
     postEventCommand},
    {"watch",
     "memtool watch [EVENT...] [--count N] [--timeout SECONDS] [--json]",
     "Subscribes to the named events (to every event when none is named) and\n"
     "prints each record as it arrives: \"NAME INDEXED INDEX\", or one JSON object\n"
     "per line with --json.  Runs until interrupted, until N records were\n"
     "printed, or until SECONDS have passed; fewer than N records when the time\n"
     "is up gives exit status 1.",
     {"--json"},
     {"--count", "--timeout"},
     watchEvents},
    {"dump",
     "memtool dump [MEMORY...] [--compact]",
     "Prints the named memories (every memory when none is named) as one JSON\n"
     "object: memory name -> variable name -> typed value.",
     {"--compact"},
     {},
     dumpMemories},
    {"request",
     "memtool request MEMORY VARIABLE [--timeout SECONDS]",
     "Runs a request: sets the bool flag true, posts its change event and waits\n"
     "until the serving process clears it (default time-out 10 s; 0 waits for\n"
     "ever).  Exit status 1 when it is not cleared in time.",
     {},
     {"--timeout"},
     runRequest},
};

void printUsage(FILE* out) {
    std::fprintf(out, "Usage: memtool COMMAND [ARGUMENTS] (memtool COMMAND --help for more)\n\n");
    for (const Command& command : COMMANDS) {
        std::fprintf(out, "  %s\n", command.synopsis);
    }
    std::fprintf(out, "\nMEMORY, VARIABLE and EVENT are names or numbers.  Exit status: 0 done,\n"
                      "1 the operation failed, 2 the command line is wrong.\n");
}

const Command* findCommand(const std::string& name) {
    for (const Command& command : COMMANDS) {
        if (name == command.name) {
            return &command;
        }
    }
    return nullptr;
}

int runCommand(const Command& command, const std::vector<std::string>& words) {
    for (const std::string& word : words) {
        if (word == "--") {
            break;
        }
        if (word == "--help") {
            std::printf("Usage: %s\n\n%s\n", command.synopsis, command.description);
            return ExitSuccess;
        }
    }
    try {
        return command.run(Arguments(words, command.flags, command.valued));
    } catch (const UsageError& error) {
        std::fprintf(stderr, "memtool %s: %s\nUsage: %s\n", command.name, error.what(),
                     command.synopsis);
        return ExitUsage;
    } catch (const std::exception& error) {
        std::fprintf(stderr, "memtool %s: %s\n", command.name, error.what());
        return ExitFailure;
    }
}

} // namespace

int main(int argc, char** argv) {
    gComponentLogLevel = &memtoolLogLevel;
    const std::vector<std::string> words(argv + 1, argv + argc);
    if (words.empty() || words[0] == "--help" || words[0] == "help") {
        printUsage(words.empty() ? stderr : stdout);
        return words.empty() ? ExitUsage : ExitSuccess;
    }
    const Command* command = findCommand(words[0]);
    if (command == nullptr) {
        std::vector<std::string> names;
        for (const Command& known : COMMANDS) {
            names.emplace_back(known.name);
        }
        const std::string hint = suggestion(words[0], names);
        std::fprintf(stderr, "memtool: unknown command \"%s\"%s%s\n", words[0].c_str(),
                     hint.empty() ? "" : ". ", hint.c_str());
        printUsage(stderr);
        return ExitUsage;
    }
    const int status = runCommand(*command, {words.begin() + 1, words.end()});
    gen::closeServerConnection();
    return status;
}
