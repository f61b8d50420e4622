// hwinfo: reads and writes the hardware record and the boot status register
// from the command line, for the factory and for service work.
//
// Every command opens the record the way the settings service does at start
// (HwInfo::initialize), so a shorter record is extended and a record with a
// wrong checksum is reset to its defaults before the command runs.
//
// "set" checks every assignment (key known, not private, text short enough,
// number valid) before it writes any, so a rejected command line leaves the
// record and the register exactly as they were.  A number is taken up to its
// first non-digit, as the record's own conversion does ("12abc" stores 12).
//
// Exit status: 0 done, 1 the command failed and nothing was written, 2 wrong
// usage.
#include "hwinfo.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <stdexcept>
#include <string>
#include <vector>

namespace {

constexpr int EXIT_FAILED = 1;
constexpr int EXIT_USAGE = 2;

constexpr char const* USAGE =
    "Usage: hwinfo COMMAND\n"
    "Reads and writes the unit's hardware record (1 MiB into /dev/mmcblk1) and its\n"
    "boot status register (through /dev/mem).\n"
    "\n"
    "Commands:\n"
    "  print              every field except hidden ones, with its value\n"
    "  parameters         the names of the fields that can be written\n"
    "  get KEY            the value of one field\n"
    "  set KEY=VALUE...   writes one or more fields; all are checked first and\n"
    "                     nothing is written if any is rejected\n"
    "  reset              resets the record to its defaults (the register is kept)\n"
    "  --help             this text\n"
    "\n"
    "Opening the record checks it as the settings service does: a shorter record\n"
    "is extended, a record with a wrong checksum is reset to its defaults.\n"
    "Exit status: 0 done, 1 failed (nothing written), 2 wrong usage.\n";

int usageError() {
    std::fputs(USAGE, stderr);
    return EXIT_USAGE;
}

int failed(std::string const& message) {
    std::fprintf(stderr, "hwinfo: %s\n", message.c_str());
    return EXIT_FAILED;
}

// The message of an error: logged errors carry their source location
// ("file.cpp:  12 message"), which stays in the kernel log and is dropped here.
std::string errorText(std::exception const& error) {
    std::string text = error.what();
    std::string::size_type colon = text.find(':');
    std::string::size_type number = text.find_first_not_of(' ', colon + 1);
    std::string::size_type blank = text.find(' ', number);
    if (colon == std::string::npos || blank == std::string::npos ||
        text.find_first_not_of("0123456789", number) != blank) {
        return text;
    }
    return text.substr(blank + 1);
}

int get(HwInfo& hwInfo, char const* key) {
    std::string value;
    if (!hwInfo.read(key, value)) {
        return failed(std::string("unknown key: ") + key);
    }
    std::printf("%s\n", value.c_str());
    return EXIT_SUCCESS;
}

// Returns an empty text if the assignment can be written, else the reason.
std::string rejection(HwInfo const& hwInfo, std::string const& assignment) {
    std::string key;
    std::string value;
    if (!HwInfo::splitAssignment(assignment, key, value)) {
        return "not a KEY=VALUE assignment: " + assignment;
    }
    try {
        if (!hwInfo.check(assignment)) {
            return "unknown key: " + key;
        }
    } catch (std::invalid_argument const&) {
        return key + ": not a number: " + value;
    } catch (std::out_of_range const&) {
        return key + ": number out of range: " + value;
    } catch (std::exception const& error) {
        return key + ": " + errorText(error);
    }
    return {};
}

int set(HwInfo& hwInfo, std::vector<std::string> const& assignments) {
    for (std::string const& assignment : assignments) {
        std::string reason = rejection(hwInfo, assignment);
        if (!reason.empty()) {
            return failed(reason + " (nothing written)");
        }
    }
    for (std::string const& assignment : assignments) {
        hwInfo.write(assignment);
    }
    return EXIT_SUCCESS;
}

// The command and its argument count have been checked by knownUsage.
int run(std::string const& command, std::vector<std::string> const& arguments) {
    HwInfo hwInfo;
    hwInfo.initialize();
    if (command == "print") {
        hwInfo.printAll();
    } else if (command == "parameters") {
        hwInfo.printParameters(stdout);
        std::fputc('\n', stdout);
    } else if (command == "get") {
        return get(hwInfo, arguments[0].c_str());
    } else if (command == "set") {
        return set(hwInfo, arguments);
    } else {
        hwInfo.clear();
    }
    return EXIT_SUCCESS;
}

bool knownUsage(std::string const& command, std::size_t argumentCount) {
    return ((command == "print" || command == "parameters" || command == "reset") &&
            argumentCount == 0) ||
           (command == "get" && argumentCount == 1) || (command == "set" && argumentCount > 0);
}

} // namespace

int main(int argc, char** argv) {
    if (argc == 2 && std::strcmp(argv[1], "--help") == 0) {
        std::fputs(USAGE, stdout);
        return EXIT_SUCCESS;
    }
    if (argc < 2 || !knownUsage(argv[1], static_cast<std::size_t>(argc - 2))) {
        return usageError();
    }
    try {
        return run(argv[1], std::vector<std::string>(argv + 2, argv + argc));
    } catch (std::exception const& error) {
        return failed(errorText(error));
    }
}
