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
// - ".current.stp" is written only when the document built differs from the
//   file's content: the content read at start (readCurrentFile), then the
//   last text written.  This holds for every write of it (the once-a-second
//   save, the save after a load, the shutdown save); a file that is no
//   longer the one remembered (its inode, size or time of change differs, it
//   was removed) is read again before the comparison.  A change event whose
//   value did not change, or a stop after no change, writes nothing and keeps
//   the backup as it is.  An unchanged document counts as saved.
// - Before ".current.stp" is replaced, the file being replaced becomes the
//   hidden backup ".current.stp.backup" (a hard link), if it is a complete
//   document (documenttext.h); an incomplete one never replaces a good backup.
// - After each save of ".current.stp" the values kept aside beside it
//   (keptsettings.h) are saved when they changed; a change of a persistent
//   variable drops what was kept aside for it.
#pragma once

#include "keptsettings.h"
#include "notify.h"

#include <cstdint>
#include <ctime>
#include <optional>
#include <sstream>
#include <string>
#include <sys/types.h>

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
    // Writes settings folder + name + ".stp"; false (and logged) when it
    // could not be written.
    bool store(const char* name);
    // Remembers the content of ".current.stp" as it is now (none when it is
    // missing or unreadable), to compare the next document with.
    void readCurrentFile();
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
    // True when ".current.stp" holds `document` already.
    bool currentFileHolds(const std::string& document);
    void keepBackup();

    const SettingsFolder& folder;
    const ProductInfo& product;
    uint32_t memory;
    KeptSettings keptSettings;
    bool dirty = false;
    // The last failure of writing ".current.stp", empty after a success.
    std::string currentSaveError;
    // What tells a file apart from the one remembered: inode, size and time
    // of the last change; all zero for a missing file or one that is not a
    // regular file.
    struct FileStamp {
        ino_t inode = 0;
        off_t size = 0;
        time_t seconds = 0;
        long nanoseconds = 0;
        static FileStamp of(const std::string& path);
        bool operator==(const FileStamp&) const = default;
    };

    // The content of ".current.stp" as read at start or last written, and
    // the stamp of the file it was read from or written to.
    std::optional<std::string> currentFile;
    bool currentFileKnown = false;
    FileStamp currentStamp;
};
