// ".current.stp.kept": what ".current.stp" held and this release did not store
// as it stood, so that no value is lost to an update, or to a step back to an
// earlier release, and comes back whenever a release can hold it.
//
// The file is a JSON object keyed by the document's keys, one entry per line:
//   {
//   "<key>": {"value": "<value text as it stood>", "instead": "<value held instead>"},
//   ...
//   }
// "instead" is there where the variable exists in the release that kept the
// value: the value (as the document writes it) that the variable held instead.
// Both texts are escaped as documenttext.h escapes texts inside nested values.
// Entries are kept for unknown keys, refused values, the original of a clamped
// value and the value of a retired variable (SettingsLoader decides, at
// start).  Beside them the file holds, for each variable with former names,
// its current value under each former name, and for a value that is an enum
// entry with a former name, that former entry (also under the variable's
// name, and inside struct values): an earlier release that has this file
// finds there what it knows only by the earlier name.
//
// Choices made here:
// - The file is written all-or-nothing (atomicfile.h) and only when its
//   content changed, after each save of ".current.stp" and at start; it is
//   removed when there is nothing to keep.  A failed write is returned
//   ("Could not save .current.stp.kept: <reason>") for the caller to log
//   (SettingsStore::log: not again while the same failure repeats) and tried
//   again with the next save.
// - A change of a variable by the user (its change event, or a user setup
//   loaded) drops the kept entries of that variable: the value set last wins.
// - Of several former names of one enum entry the first declared is written.
// - Keys that could not be read back as they are (holding a quote, a
//   backslash, a colon, a blank or a control character, which no variable
//   name of any release holds) are not kept.
#pragma once

#include "result.h"

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

class SettingsFolder;

class KeptSettings {
public:
    struct Entry {
        std::string key;
        std::string value;                  // as the reader gave it from the document
        std::optional<std::string> instead; // the variable's document value text instead
    };

    // ".current.stp.kept".
    static std::string fileName();

    KeptSettings(const SettingsFolder& folder, uint32_t memory);

    // The entries of the file as it is (read line by line when it is damaged);
    // none when there is no file.
    std::vector<Entry> read();
    // The entries kept from now on.
    void set(std::vector<Entry> entries);
    const std::vector<Entry>& entries() const { return kept; }
    // The user set the variable: its kept entries are dropped.
    void forget(uint32_t variable);
    // Writes the file when its content changed (or removes it when there is
    // nothing to keep); nothing before the file was read, so that a save made
    // before the start-up load never replaces what an earlier run kept.  The
    // error's code is the errno of the failed call.
    Result<void> save();
    // After a factory reset, which removed the file: nothing is kept.
    void clear();

private:
    std::string content() const;
    void formerNameCopies(std::vector<Entry>& copies) const;

    const SettingsFolder& folder;
    uint32_t memory;
    std::vector<Entry> kept;
    // The file's content as last read or written; empty for no file.
    std::string written;
    // The file was read (or removed by a factory reset): its content is known.
    bool known = false;
};
