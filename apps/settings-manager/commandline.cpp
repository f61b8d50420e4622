#include "commandline.h"

#include "version.h"

#include <cstring>

namespace CommandLine {

namespace {

constexpr const char* HELP =
    "Usage: settings-manager [--help | --version]\n"
    "\n"
    "The settings service of the device.  It creates the shared memories, loads\n"
    "the settings from /var//SETUPS/.current.stp, saves changes at most once a\n"
    "second, and serves the user interface's requests (user setups, factory\n"
    "reset).  The device's supervisor starts it without arguments and waits for\n"
    "its SIGUSR1; only one instance runs at a time.\n"
    "\n"
    "  --help     print this text and exit\n"
    "  --version  print the version and exit\n";

} // namespace

Action parse(int argc, const char* const argv[], std::FILE* out, std::FILE* err) {
    if (argc <= 1) {
        return Run;
    }
    if (argc == 2 && std::strcmp(argv[1], "--help") == 0) {
        std::fputs(HELP, out);
        return Done;
    }
    if (argc == 2 && std::strcmp(argv[1], "--version") == 0) {
        std::fprintf(out, "settings-manager %s\n", Constants::PROJECT_VERSION);
        return Done;
    }
    std::fprintf(err,
                 "settings-manager: unexpected argument '%s'\n"
                 "Usage: settings-manager [--help | --version]\n",
                 argv[1]);
    return UsageError;
}

} // namespace CommandLine
