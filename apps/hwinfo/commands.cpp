// hwinfo's commands; see commands.h.
#include "commands.h"

#include "closest.h"
#include "jsonstream.h"

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

// The field of `key`; a usage error naming the closest keys when there is none.
Result<Field> knownField(std::string const& key) {
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
    return usageError("unknown key: " + key + (hint.empty() ? "" : ". " + hint));
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

using Opened = std::unique_ptr<HwInfo>;

// Opens and maps both devices, saying which ones when it cannot: read-write
// for the commands that write, read-only otherwise.
Result<Opened> openDevices(OpenDevices const& open, HwInfo::Use use) {
    try {
        return open(use);
    } catch (std::exception const& error) {
        return failure("cannot open the hardware record (/dev/mmcblk1) and the boot status "
                       "register (/dev/mem): " +
                       errorMessage(error));
    }
}

// Opens the devices read-only and declares the fields; fails, writing nothing,
// unless the record is valid.
Result<Opened> openForReading(OpenDevices const& open) {
    Opened hwInfo = TRY(openDevices(open, HwInfo::Use::Inspect));
    hwInfo->declareFields();
    std::string const problem = recordProblem(hwInfo->checkRecord());
    if (!problem.empty()) {
        return failure("the hardware record is not valid: " + problem +
                       "; it is left as it is (hwinfo reset writes the defaults)");
    }
    return hwInfo;
}

// Flushes what was written to the devices before success is reported.
Result<int> syncDevices(HwInfo const& hwInfo) {
    try {
        hwInfo.sync();
    } catch (std::exception const& error) {
        return failure("the record was written but could not be flushed to the device: " +
                       errorMessage(error));
    }
    return ExitSuccess;
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

Result<int> print(OpenDevices const& open, Arguments const& arguments) {
    TRY(arguments.expectPositional(0, 0));
    Opened const hwInfo = TRY(openForReading(open));
    if (!arguments.has("--json")) {
        hwInfo->printAll();
        return ExitSuccess;
    }
    {
        JsonStream stream(stdout, 2);
        stream.beginObject();
        for (Field const& field : HwInfo::fields()) {
            if (!isHidden(field)) {
                stream.key(field.key);
                writeJsonValue(stream, field, textOf(*hwInfo, field));
            }
        }
        stream.end();
    }
    std::fputc('\n', stdout);
    return ExitSuccess;
}

Result<int> parameters(OpenDevices const& open, Arguments const& arguments) {
    TRY(arguments.expectPositional(0, 0));
    Opened const hwInfo = TRY(openForReading(open));
    hwInfo->printParameters(stdout);
    std::fputc('\n', stdout);
    return ExitSuccess;
}

Result<int> get(OpenDevices const& open, Arguments const& arguments) {
    TRY(arguments.expectPositional(1, 1));
    Field const field = TRY(knownField(arguments.positional()[0]));
    Opened const hwInfo = TRY(openForReading(open));
    std::string const value = textOf(*hwInfo, field);
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

Result<int> keys(Arguments const& arguments) {
    TRY(arguments.expectPositional(0, 0));
    for (Field const& field : HwInfo::fields()) {
        if (arguments.has("--writable") ? field.flags == 0 : !isHidden(field)) {
            std::printf("%s\n", field.key);
        }
    }
    return ExitSuccess;
}

// Why the assignment cannot be written, or "".  A hidden field (reserved bits
// of the register) is refused as a private one is.  The record's own checks
// raise their exceptions; they become the reasons here.
std::string rejection(HwInfo const& hwInfo, Field const& field, std::string const& assignment,
                      std::string const& key, std::string const& value) {
    if (isHidden(field)) {
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

// The field that `assignment` ("KEY=VALUE") writes, or a usage error.
Result<Field> assignedField(std::string const& assignment) {
    std::string key;
    std::string value;
    if (!HwInfo::splitAssignment(assignment, key, value)) {
        return usageError("not a KEY=VALUE assignment: " + assignment);
    }
    return knownField(key);
}

Result<int> set(OpenDevices const& open, Arguments const& arguments) {
    TRY(arguments.expectPositional(1, SIZE_MAX));
    std::vector<std::string> wrongUsage;
    std::vector<Field> fields;
    for (std::string const& assignment : arguments.positional()) {
        if (Result<Field> const field = assignedField(assignment); field.ok()) {
            fields.push_back(*field);
        } else {
            wrongUsage.push_back(field.error().text);
        }
    }
    if (!wrongUsage.empty()) {
        return usageError(problemList(wrongUsage));
    }
    Opened const opened = TRY(openDevices(open, HwInfo::Use::Write));
    HwInfo& hwInfo = *opened;
    hwInfo.declareFields();
    std::vector<std::string> refused;
    for (size_t i = 0; i < fields.size(); ++i) {
        std::string const& assignment = arguments.positional()[i];
        std::string key;
        std::string value;
        HwInfo::splitAssignment(assignment, key, value);
        if (std::string reason = rejection(hwInfo, fields[i], assignment, key, value);
            !reason.empty()) {
            refused.push_back(reason);
        }
    }
    if (!refused.empty()) {
        return failure(problemList(refused));
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
    return syncDevices(hwInfo);
}

Result<int> reset(OpenDevices const& open, Arguments const& arguments) {
    TRY(arguments.expectPositional(0, 0));
    Opened const hwInfo = TRY(openDevices(open, HwInfo::Use::Write));
    hwInfo->initialize();
    hwInfo->clear();
    return syncDevices(*hwInfo);
}

} // namespace

Program hwinfoProgram(OpenDevices open) {
    // Each command with the opener of the devices.
    const auto with = [open](Result<int> (*command)(OpenDevices const&, Arguments const&)) {
        return [open, command](Arguments const& arguments) { return command(open, arguments); };
    };
    return {"hwinfo",
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
                 with(print)},
                {"parameters",
                 "hwinfo parameters",
                 "Prints the keys of the fields that set writes, on one line.",
                 {},
                 {},
                 with(parameters)},
                {"get",
                 "hwinfo get KEY [--json]",
                 "Prints the value of one field; with --json as a JSON number or string.",
                 {"--json"},
                 {},
                 with(get)},
                {"set",
                 "hwinfo set KEY=VALUE...",
                 "Writes one or more fields and refreshes the record's checksum.  Every\n"
                 "assignment is checked first (key known, not private, text short enough,\n"
                 "number valid); if any is rejected, all rejections are printed and nothing\n"
                 "is written.  The value is all text after the first \"=\".",
                 {},
                 {},
                 with(set)},
                {"reset",
                 "hwinfo reset",
                 "Resets the record to its defaults (serial 0000, board prototype, revision\n"
                 "1.0, everything else empty or 0); the register is kept.",
                 {},
                 {},
                 with(reset)},
                {"keys",
                 "hwinfo keys [--writable]",
                 "Prints the keys that get reads, except the hidden \"unused\" (with\n"
                 "--writable: the keys that set writes), one per line, without opening any\n"
                 "device: for shell completion and scripts.",
                 {"--writable"},
                 {},
                 keys},
            }};
}
