// Change tracking and writing settings documents from the live values of
// MemPersistent.
//
// A settings document (".current.stp" and the user setups "<name>.stp" in
// the settings folder) holds one line per variable of MemPersistent:
//   {
//   "<name>": <value>,
//   ...
//   "<name>": <value>
//   }
// with no line break after the closing brace.  Ints, floats, bools and
// structs are written bare, every other type in double quotes; arrays of
// types other than string and buffer as "[" elements joined by "," "]".
// The product information is copied into MemPersistent before every document
// is built.
//
// Choices made here:
// - String values are written with the escapes of documenttext.h (struct
//   string members too, see printers.h).
// - Settings files are written all-or-nothing (atomicfile.h).  A failed write
//   is logged at Error ("Could not save <file>: <reason>"; a failure of
//   ".current.stp" that repeats the previous one is not logged again), leaves
//   the previous file, and keeps the settings dirty, so the loop retries at
//   every once-a-second check.
// - Before ".current.stp" is replaced, the file being replaced becomes the
//   hidden backup ".current.stp.backup" (a hard link), if it is a complete
//   document (documenttext.h); an incomplete one never replaces a good backup.
//   A file that is still the one this store wrote (same device, inode, size
//   and modification time) is known to be complete and is not read again;
//   any other is read and checked.
// - After each save of ".current.stp" the values kept aside beside it
//   (keptsettings.h) are saved when they changed; a change of a persistent
//   variable drops what was kept aside for it, whatever the log level.
// - A change's value text is read only when the log level asks for its
//   "%s changed to %s" line; with the line filtered out nothing else is
//   logged either (an enum value beyond its entries is then not reported
//   at that moment, but at the next save, which reads every value).
#pragma once

#include "keptsettings.h"
#include "notify.h"

#include <cstdint>
#include <optional>
#include <sstream>
#include <string>
#include <vector>

class ProductInfo;
class SettingsFolder;

class SettingsStore {
public:
    SettingsStore(const SettingsFolder& folder, const ProductInfo& product, uint32_t memory);

    // Records that the variable of `event` changed: logs it and marks the
    // settings dirty.
    void addUpdate(EventId event);
    // The settings document of the live values of MemPersistent.
    std::stringstream currentValues() const;
    // A copy of MemPersistent's record as it is now (the product information
    // copied in first), for a document built later with documentOf().
    std::vector<uint8_t> snapshot() const;
    // The settings document of a record that snapshot() took: the document
    // that currentValues() gave at that moment.
    std::string documentOf(const std::vector<uint8_t>& record) const;
    // Writes settings folder + name + ".stp"; false (and logged) when it
    // could not be written.
    bool store(const char* name);
    // Writes ".current.stp"; when that fails the settings stay dirty.
    bool saveCurrent();
    // Writes ".current.stp" when the settings are dirty; they stay dirty when
    // the write failed.
    void saveIfDirty();

    bool isDirty() const { return dirty; }
    void markDirty() { dirty = true; }
    // What ".current.stp" held and this release did not store as it stood.
    KeptSettings& kept() { return keptSettings; }

private:
    // The settings document of `record` (a snapshot()), or of the live values
    // when it is null.
    std::stringstream document(const uint8_t* record) const;
    void keepBackup();

    // What tells a file from another, and a rewritten file from the one it was.
    struct FileIdentity {
        uint64_t device;
        uint64_t inode;
        int64_t size;
        int64_t modifiedSeconds;
        int64_t modifiedNanoseconds;
        bool operator==(const FileIdentity&) const = default;
    };
    static std::optional<FileIdentity> identityOf(const std::string& path);

    const SettingsFolder& folder;
    const ProductInfo& product;
    uint32_t memory;
    KeptSettings keptSettings;
    bool dirty = false;
    // ".current.stp" as this store last wrote it, a complete document.
    std::optional<FileIdentity> writtenCurrent;
    // The last failure of writing ".current.stp", empty after a success.
    std::string currentSaveError;
};
