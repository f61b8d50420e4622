// hwinfo: reads and writes the hardware record and the boot status register
// from the command line, for the factory and for service work.
//
// The reading commands (print, get, parameters) never write: they judge the
// record as the settings service does at start, and a record with a wrong
// length or checksum is reported, left exactly as it is, and the command
// fails.  Only set and reset write.  set first repairs a record that is not
// valid (a shorter record is extended, a wrong one reset to its defaults) and
// says so; the service reads such a record as that repair would leave it but
// never writes it.
//
// "set" checks every assignment (key known, not private, text short enough,
// number valid) before it writes any, so a rejected command line leaves the
// record and the register exactly as they were.  A number is taken up to its
// first non-digit, as the record's own conversion does ("12abc" stores 12).
//
// print, get and parameters open the devices read-only.  set and reset flush
// their writes to the devices (msync and fsync) before they report success.
// A hidden field ("unused", reserved bits of the boot register) is refused by
// set like a private one.
//
// Exit status: 0 done, 1 the command failed and nothing was written, 2 wrong
// usage (an unknown command, option or key included).
#include "closest.h"
#include "hwinfo.h"
#include "jsonstream.h"
#include "program.h"

#include <cstdio>
#include <stdexcept>
#include <string>
#include <vector>

namespace {

using Field = HwInfo::Field;

bool isNumber(Field const& field) {
    return field.kind != PersistentInfo::TextKind;
}

bool isHidden(Field const& field) {
    return (field.flags & PersistentInfo::Hidden) != 0;
}

// The field of `key`; a UsageError naming the closest keys when there is none.
Field const& knownField(std::string const& key) {
    static std::vector<Field> const fields = HwInfo::fields();
    std::vector<std::string> keys;
    for (Field const& field : fields) {
        if (key == field.key) {
            return field;
        }
        if (!isHidden(field)) {
            keys.emplace_back(field.key);
        }
    }
    std::string const hint = suggestion(key, keys);
    throw UsageError("unknown key: " + key + (hint.empty() ? "" : ". " + hint));
}

// What is wrong with the stored record, or "" when it is valid.
std::string recordProblem(HwInfo::RecordCheck const& check) {
    char text[160];
    switch (check.state) {
    case HwInfo::RecordState::Valid:
        return "";
    case HwInfo::RecordState::ShortLength:
        std::snprintf(text, sizeof text, "its stored length %u is shorter than the record's layout",
                      check.length);
        break;
    case HwInfo::RecordState::LengthBeyondRegion:
        std::snprintf(text, sizeof text, "its stored length %u reaches past the record's region",
                      check.length);
        break;
    case HwInfo::RecordState::WrongChecksum:
        std::snprintf(text, sizeof text,
                      "its stored checksum 0x%08x does not match its contents (0x%08x)",
                      check.checksum, check.expected);
        break;
    }
    return text;
}

// Opens and maps both devices, saying which ones when it cannot: read-write
// for the commands that write, read-only otherwise.
HwInfo openDevices(HwInfo::Use use) {
    try {
        return HwInfo(use);
    } catch (std::exception const& error) {
        throw Failure("cannot open the hardware record (/dev/mmcblk1) and the boot status "
                      "register (/dev/mem): " +
                      errorMessage(error));
    }
}

// Declares the fields and fails, writing nothing, unless the record is valid.
void checkForReading(HwInfo& hwInfo) {
    hwInfo.declareFields();
    std::string const problem = recordProblem(hwInfo.checkRecord());
    if (!problem.empty()) {
        throw Failure("the hardware record is not valid: " + problem +
                      "; it is left as it is (hwinfo reset writes the defaults)");
    }
}

// Flushes what was written to the devices before success is reported.
void syncDevices(HwInfo const& hwInfo) {
    try {
        hwInfo.sync();
    } catch (std::exception const& error) {
        throw Failure("the record was written but could not be flushed to the device: " +
                      errorMessage(error));
    }
}

std::string textOf(HwInfo& hwInfo, Field const& field) {
    std::string value;
    hwInfo.read(field.key, value);
    return value;
}

void writeJsonValue(JsonStream& stream, Field const& field, std::string const& value) {
    if (isNumber(field)) {
        stream.raw(value);
    } else {
        stream.string(value);
    }
}

int print(Arguments const& arguments) {
    arguments.expectPositional(0, 0);
    HwInfo hwInfo = openDevices(HwInfo::Use::Inspect);
    checkForReading(hwInfo);
    if (!arguments.has("--json")) {
        hwInfo.printAll();
        return ExitSuccess;
    }
    {
        JsonStream stream(stdout, 2);
        stream.beginObject();
        for (Field const& field : HwInfo::fields()) {
            if (!isHidden(field)) {
                stream.key(field.key);
                writeJsonValue(stream, field, textOf(hwInfo, field));
            }
        }
        stream.end();
    }
    std::fputc('\n', stdout);
    return ExitSuccess;
}

int parameters(Arguments const& arguments) {
    arguments.expectPositional(0, 0);
    HwInfo hwInfo = openDevices(HwInfo::Use::Inspect);
    checkForReading(hwInfo);
    hwInfo.printParameters(stdout);
    std::fputc('\n', stdout);
    return ExitSuccess;
}

int get(Arguments const& arguments) {
    arguments.expectPositional(1, 1);
    Field const& field = knownField(arguments.positional()[0]);
    HwInfo hwInfo = openDevices(HwInfo::Use::Inspect);
    checkForReading(hwInfo);
    std::string const value = textOf(hwInfo, field);
    if (!arguments.has("--json")) {
        std::printf("%s\n", value.c_str());
        return ExitSuccess;
    }
    {
        JsonStream stream(stdout, 2);
        writeJsonValue(stream, field, value);
    }
    std::fputc('\n', stdout);
    return ExitSuccess;
}

int keys(Arguments const& arguments) {
    arguments.expectPositional(0, 0);
    for (Field const& field : HwInfo::fields()) {
        if (arguments.has("--writable") ? field.flags == 0 : !isHidden(field)) {
            std::printf("%s\n", field.key);
        }
    }
    return ExitSuccess;
}

// Why the assignment cannot be written, or "".  A hidden field (reserved bits
// of the register) is refused as a private one is.
std::string rejection(HwInfo const& hwInfo, std::string const& assignment, std::string const& key,
                      std::string const& value) {
    if (isHidden(knownField(key))) {
        return key + ": " + key + " is hidden.";
    }
    try {
        hwInfo.check(assignment);
    } catch (std::invalid_argument const&) {
        return key + ": not a number: " + value;
    } catch (std::out_of_range const&) {
        return key + ": number out of range: " + value;
    } catch (std::exception const& error) {
        return key + ": " + errorMessage(error);
    }
    return "";
}

// Every problem, one per line, and that nothing was written.
std::string problemList(std::vector<std::string> const& problems) {
    std::string text;
    for (std::string const& problem : problems) {
        text += problem + "\n";
    }
    return text + "nothing written";
}

int set(Arguments const& arguments) {
    arguments.expectPositional(1, SIZE_MAX);
    std::vector<std::string> wrongUsage;
    for (std::string const& assignment : arguments.positional()) {
        std::string key;
        std::string value;
        try {
            if (!HwInfo::splitAssignment(assignment, key, value)) {
                throw UsageError("not a KEY=VALUE assignment: " + assignment);
            }
            knownField(key);
        } catch (UsageError const& error) {
            wrongUsage.emplace_back(error.what());
        }
    }
    if (!wrongUsage.empty()) {
        throw UsageError(problemList(wrongUsage));
    }
    HwInfo hwInfo = openDevices(HwInfo::Use::Write);
    hwInfo.declareFields();
    std::vector<std::string> refused;
    for (std::string const& assignment : arguments.positional()) {
        std::string key;
        std::string value;
        HwInfo::splitAssignment(assignment, key, value);
        if (std::string reason = rejection(hwInfo, assignment, key, value); !reason.empty()) {
            refused.push_back(reason);
        }
    }
    if (!refused.empty()) {
        throw Failure(problemList(refused));
    }
    if (std::string const problem = recordProblem(hwInfo.checkRecord()); !problem.empty()) {
        std::fprintf(stderr,
                     "hwinfo set: the hardware record was not valid (%s); it is repaired first "
                     "with the record's defaults\n",
                     problem.c_str());
        hwInfo.repairRecord();
    }
    for (std::string const& assignment : arguments.positional()) {
        hwInfo.write(assignment);
    }
    syncDevices(hwInfo);
    return ExitSuccess;
}

int reset(Arguments const& arguments) {
    arguments.expectPositional(0, 0);
    HwInfo hwInfo = openDevices(HwInfo::Use::Write);
    hwInfo.initialize();
    hwInfo.clear();
    syncDevices(hwInfo);
    return ExitSuccess;
}

Program const HWINFO = {
    "hwinfo",
    "Reads and writes the unit's hardware record (1 MiB into /dev/mmcblk1) and its\n"
    "boot status register (through /dev/mem).",
    "print, get and parameters only read: a record with a wrong length or checksum\n"
    "is reported and left as it is (exit status 1).  set and reset write; set\n"
    "first repairs a record that is not valid, as the settings service does at\n"
    "start.  Exit status: 0 done, 1 failed (nothing written), 2 wrong usage (an\n"
    "unknown key included).",
    {
        {"print",
         "hwinfo print [--json]",
         "Prints every field except hidden ones with its value: the record's fields,\n"
         "then the register's.  With --json: one object, key -> value (numbers for\n"
         "the integer and bit fields, strings for the texts).",
         {"--json"},
         {},
         print},
        {"parameters",
         "hwinfo parameters",
         "Prints the keys of the fields that set writes, on one line.",
         {},
         {},
         parameters},
        {"get",
         "hwinfo get KEY [--json]",
         "Prints the value of one field; with --json as a JSON number or string.",
         {"--json"},
         {},
         get},
        {"set",
         "hwinfo set KEY=VALUE...",
         "Writes one or more fields and refreshes the record's checksum.  Every\n"
         "assignment is checked first (key known, not private, text short enough,\n"
         "number valid); if any is rejected, all rejections are printed and nothing\n"
         "is written.  The value is all text after the first \"=\".",
         {},
         {},
         set},
        {"reset",
         "hwinfo reset",
         "Resets the record to its defaults (serial 0000, board prototype, revision\n"
         "1.0, everything else empty or 0); the register is kept.",
         {},
         {},
         reset},
        {"keys",
         "hwinfo keys [--writable]",
         "Prints the keys that get reads, except the hidden \"unused\" (with\n"
         "--writable: the keys that set writes), one per line, without opening any\n"
         "device: for shell completion and scripts.",
         {"--writable"},
         {},
         keys},
    }};

} // namespace

int main(int argc, char** argv) {
    return runProgram(HWINFO, std::vector<std::string>(argv + 1, argv + argc));
}
