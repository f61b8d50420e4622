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
//   leaves the previous file and keeps the settings dirty, so the loop retries
//   at every once-a-second check.  The store logs nothing itself: a save
//   returns its outcome (SaveOutcome, errors "Could not save <file>: <reason>"
//   with the errno of the failed call, found here) and the caller that
//   dispatched the save (the once-a-second check, the stop path, start-up, a
//   request) hands it to log(), which logs each error at Error where it was
//   found.  The store keeps the last failure of ".current.stp" and of the
//   kept values (repeatedfailure.h) because every dispatcher of those saves
//   shares it: a failure that repeats the previous one is not logged again.
// - ".current.stp" is written only when the document built differs from the
//   file's content: the content read at start (readCurrentFile), then the
//   last text written.  This holds for every write of it (the once-a-second
//   save, the save after a load, the shutdown save).  The store remembers
//   one identity of the file beside that content (device, inode, size and
//   time of the last change, taken with lstat; none for a missing file or
//   one that is not a regular file); a file whose identity is no longer the
//   remembered one (removed by a factory reset, replaced or rewritten in
//   place by another program) is read again before the comparison.  A
//   change event whose value did not change, or a stop after no change,
//   writes nothing and keeps the backup as it is.  An unchanged document
//   counts as saved.
// - Before ".current.stp" is replaced, the file being replaced becomes the
//   hidden backup ".current.stp.backup" (a hard link), if it is a complete
//   document (documenttext.h); an incomplete one never replaces a good backup.
//   The check uses the remembered content, so the file is not read again for
//   it: a document this store wrote is known to be complete, a content read
//   at start or after someone else's rewrite is checked once.
// - After each save of ".current.stp" (an unchanged document that counts as
//   saved included) the values kept aside beside it (keptsettings.h) are
//   saved when they changed; a change of a persistent
//   variable drops what was kept aside for it, whatever the log level.
// - A change's value text is read only when the log level asks for its
//   "%s changed to %s" line; with the line filtered out nothing else is
//   logged either (an enum value beyond its entries is then not reported
//   at that moment, but at the next save, which reads every value).
#pragma once

#include "collaborators.h"
#include "keptsettings.h"
#include "repeatedfailure.h"
#include "result.h"
#include "settings-service/notify.h"

#include <cstdint>
#include <optional>
#include <sstream>
#include <string>
#include <vector>

class ProductInfo;
class SettingsFolder;

class SettingsStore {
public:
    // Builds documents of `memories`' MemPersistent, with `product`'s
    // information, and writes them into `folder`.
    SettingsStore(const SettingsFolder& folder, const ProductInfo& product,
                  const ServiceMemories& memories);

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
    // What a save did: the outcome of writing the file and, for
    // ".current.stp", that of keeping a backup of the file it replaced
    // (a failure there is logged at Warn) and that of saving the values kept
    // aside beside it.  A save that did not take place succeeded.
    struct SaveOutcome {
        // What was saved: a user setup, ".current.stp" (and the kept values
        // after it), or the kept values alone.
        enum class Saved { UserSetup, Current, Kept };
        Saved saved = Saved::UserSetup;
        Result<void> file;
        Result<void> backup;
        Result<void> kept;
        bool ok() const { return file.ok(); }
    };

    // Writes settings folder + name + ".stp".
    SaveOutcome store(const char* name);
    // Remembers the content of ".current.stp" as it is now (none when it is
    // missing or unreadable), to compare the next document with.
    void readCurrentFile();
    // Writes ".current.stp"; when that fails the settings stay dirty.
    SaveOutcome saveCurrent();
    // Writes ".current.stp" when the settings are dirty; they stay dirty when
    // the write failed.
    SaveOutcome saveIfDirty();
    // Saves the values kept aside beside ".current.stp" when they changed.
    SaveOutcome saveKept();
    // Logs the failures of `outcome`: a failure of ".current.stp" or of the
    // kept values that repeats the previous one of that file is not logged
    // again.
    void log(const SaveOutcome& outcome);

    bool isDirty() const { return dirty; }
    void markDirty() { dirty = true; }
    // What ".current.stp" held and this release did not store as it stood.
    KeptSettings& kept() { return keptSettings; }

private:
    // The settings document of `record` (a snapshot()), or of the live values
    // when it is null.
    std::stringstream document(const uint8_t* record) const;
    // Makes `currentFile` tell what ".current.stp" is now: read again when the
    // file's identity is not the one remembered.
    void refreshCurrentFile();
    Result<void> keepBackup();

    // What tells a file from another, and a rewritten file from the one it
    // was: device, inode, size and time of the last change.
    struct FileIdentity {
        uint64_t device;
        uint64_t inode;
        int64_t size;
        int64_t modifiedSeconds;
        int64_t modifiedNanoseconds;
        bool operator==(const FileIdentity&) const = default;
    };
    // Nothing for a missing file or one that is not a regular file (a link
    // included).
    static std::optional<FileIdentity> identityOf(const std::string& path);

    // ".current.stp" as this store knows it: read at start or when its
    // identity changed, or as last written.
    struct KnownFile {
        bool known = false;
        std::optional<FileIdentity> identity;
        // Its bytes; nothing when it is missing or cannot be read.
        std::optional<std::string> content;
        // Whether the content is a complete document, once that is known (a
        // document this store wrote is).
        std::optional<bool> complete;
    };

    const SettingsFolder& folder;
    const ProductInfo& product;
    ServiceMemories memories;
    uint32_t memory;
    KeptSettings keptSettings;
    bool dirty = false;
    KnownFile currentFile;
    // The last failures of writing ".current.stp" and the kept values.
    RepeatedFailure currentFailure;
    RepeatedFailure keptFailure;
};
