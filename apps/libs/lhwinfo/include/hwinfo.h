// The unit's hardware identity and factory calibration: a checksummed record
// 1 MiB into the eMMC device "/dev/mmcblk1" (a 64 KiB region) and the boot
// status register, one 32-bit word at physical address 0x020CC068 reached
// through "/dev/mem".
//
// Record layout (version 5, 348 bytes, integers unsigned 32-bit little-endian):
// "version", "length", "checksum" (Private, outside the checksum), the texts
// "serial", "board", "revision", "k" (30 bytes each), nine calibration
// integers, and the text "knob_linearization" (180 bytes).  "checksum" is the
// CRC-32/MPEG-2 of bytes 12 up to the stored "length".  Register: bit 31
// "update_requested", bits 30 to 5 "unused" (Hidden), bit 4 "boot_failed",
// bits 3 to 0 "boot_failed_counter".
//
// initialize() declares the fields and repairs the record: a stored length
// shorter than the layout is extended (new bytes 0, checksum and version
// refreshed, the old bytes taken over unverified); a wrong checksum resets the
// record to its defaults.  A stored length larger than the 64 KiB region (an
// erased device reads all ones) is treated as a wrong checksum: it is logged
// ("Stored length %u is larger than the record region of %u bytes."), the
// checksum is never computed over it, and the record is reset.  Texts are read
// up to their terminator but never past their own field.
//
// Read-only users (a tool that only prints) call declareFields() and
// checkRecord() instead of initialize(): the record is then judged without
// any byte of it being written; repairRecord() does the rest of
// initialize() when writing is wanted after all.
//
// Access (Use): a tool that writes opens both devices read-write (the
// default).  Use::Inspect opens both read-only, the record as a private copy:
// checks and repairs happen in this process's memory only.  Use::Identity
// (the settings service) opens the record alone that way and never opens
// "/dev/mem": the record is read as initialize() would leave it (an older,
// shorter layout extended, a record with a wrong checksum cleared, each with
// its log line), while the device keeps its bytes for the factory tool to
// repair.  The register's keys are unknown then.  sync() flushes a writer's
// changes to the devices (msync and fsync).
//
// Choice made here: under Use::Identity a blank record (its whole layout
// zero, as on a device never initialised) is logged like a shorter one
// ("Differents length, setting new values to default.") and then read as a
// cleared record ("0000", "prototype", "1.0"), as one with a wrong checksum
// is.  A writer's initialize() extends it with zeros, as any shorter record.
//
// write(key, text) is meant for the String fields; given an integer field's
// key it converts the text as a number, as the assignment form does.
#pragma once

#include "persistentinfo.h"

#include "settings-service/log.h"

#include <cstdio>
#include <optional>
#include <string>
#include <vector>

class HwInfo {
public:
    static constexpr unsigned int MMC_BLOCK_VERSION = 5;

    enum class Use { Write, Inspect, Identity };

    // Opens and maps the devices for `use`; throws "open" or "mmap" errors.
    explicit HwInfo(Use use = Use::Write);

    // The state of the stored record, as initialize() judges it.
    enum class RecordState {
        Valid,
        ShortLength,        // the stored length is shorter than the layout: it would be extended
        LengthBeyondRegion, // the stored length reaches past the region: it would be reset
        WrongChecksum,      // it would be reset
    };
    struct RecordCheck {
        RecordState state;
        unsigned int length;   // as stored
        unsigned int checksum; // as stored
        unsigned int expected; // over the stored length; 0 unless the length is in the region
    };

    // One field: its key, its PersistentInfo::Kind and PersistentInfo::Flags.
    struct Field {
        char const* key;
        unsigned int kind;
        unsigned int flags;
    };
    // Every field of the record and then of the register, in the order of
    // printAll(); known without opening any device.
    static std::vector<Field> fields();

    // Declares the fields and checks the record; call exactly once, first.
    // Equal to declareFields() and then repairRecord().
    void initialize();
    // Declares the fields; call exactly once, first, when initialize() is not called.
    void declareFields();
    // Judges the stored record; writes nothing.
    RecordCheck checkRecord() const;
    // initialize()'s repair of the record, for declared fields: a shorter
    // record is extended, a wrong one reset, each with its log line.
    void repairRecord();

    // Reads from the record, else from the register; false for an unknown key.
    bool read(char const* key, unsigned int& value);
    bool read(char const* key, std::string& value);

    // Every successful write refreshes the record's checksum.
    bool write(char const* key, unsigned int value);
    bool write(char const* key, char const* text);
    // "key=value", split at the first "="; false without "=" or for an unknown key.
    bool write(std::string assignment);
    // The checks of write(assignment) without writing anything: false where
    // it would return false, the errors it would raise.
    bool check(std::string const& assignment) const;
    // Splits "key=value" at the first "="; false if there is no "=".
    static bool splitAssignment(std::string const& assignment, std::string& key,
                                std::string& value);

    // Resets the record to its defaults; the register is kept.
    void clear();
    // Extends a record of oldLength bytes to the current layout.
    void initNewMemory(unsigned int oldLength);
    void updateChecksum();
    // Flushes the writes to the devices (PersistentInfo::sync).
    void sync() const;

    // The record's fields and then the register's, as PersistentInfo prints them.
    void printAll() const;
    void printParameters(FILE* stream) const;

private:
    std::optional<PersistentInfo> bootRegister;
    PersistentInfo mmcBlock;
    gen::LogLevel* logLevel;
    Use use;
};
