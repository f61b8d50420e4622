// Reading settings documents into MemPersistent: loading a file, applying a
// document with range checks, reporting parse errors, the defaults snapshot
// with the factory reset that replays it, and the start-up load with its
// recovery from a damaged ".current.stp".  The format is settingsstore.h's;
// keys that begin with "Product" are never read back.  Documents of other
// releases are read by the rules of migration.h (former names, former enum
// entries, clamping, retired variables); every key that is not stored as it
// stands is logged with what became of it (migration.h's describe(): at
// LogLight, at Warn when it was kept aside), after the lines that a value out
// of range or a setter's error logs as before.
//
// Choices made here:
// - At start a ".current.stp" that is not complete (documenttext.h), cannot
//   be read, or is not a file is logged, moved to ".current.stp.damaged"
//   (replacing an earlier one), and the backup ".current.stp.backup" is loaded
//   instead; only when the backup is not complete either do the defaults
//   apply.  ".current.stp" is then written again at once.  With neither file
//   there, start-up writes the defaults as before.
// - When neither ".current.stp" nor its backup is a complete document, the
//   lines that can be read (the format holds one variable per line) are
//   applied over the defaults: those of a damaged backup first, then those of
//   the damaged ".current.stp", which is newer.  The first ten lines that
//   cannot be read are logged at Error, with a count of the rest.
// - At start, what ".current.stp" held and this release does not store as it
//   stood is kept aside in ".current.stp.kept" (keptsettings.h).  Entries
//   kept there before are applied after ".current.stp" when this release can
//   store them as they stand (not clamped) and ".current.stp" gave their
//   variable no value, or the variable still holds the value recorded instead;
//   such an entry leaves the file, and so does one whose variable was set
//   since.  The rest stays.  A user setup's load keeps nothing aside (what it
//   cannot store stays in its own file) and drops the kept entries of the
//   variables it stored.
// - A parse error's excerpt never reaches before the text: blanks stand in for
//   the missing characters, so the caret line still points at the error.
// - String values are read back through the escapes of documenttext.h.
// - A struct-array field without "value" is a setter error of that field
//   ("<field>: no \"value\""), reported like the others.
// - An int value is range-checked as the number the setter stores (the setter
//   detects the base, the range check reads decimal): "08" is judged as 0 and
//   "0x7fffffff" as 2147483647, so a document never stores a value outside
//   its range.
// - The defaults are captured at start as a copy of MemPersistent's record
//   (1,136 bytes, before any file is applied); their document is built from
//   that copy the first time it is needed (a factory reset, or a start where
//   neither ".current.stp" nor its backup is a complete document, whose
//   readable lines go over the defaults), not before the service is ready
//   otherwise.  It is the same text that building it at start gave.
#pragma once

#include "collaborators.h"
#include "keptsettings.h"
#include "migration.h"
#include "settings-service/json.h"
#include "settings-service/serverconnection.h"

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <vector>

class SettingsFolder;
class SettingsStore;

class SettingsLoader {
public:
    // Applies documents of `folder` to `memories`' MemPersistent, taking the
    // service off its events on `broker` meanwhile.
    SettingsLoader(const SettingsFolder& folder, SettingsStore& store,
                   const ServiceMemories& memories, const BrokerLink& broker);

    // Loads settings folder + fileName into MemPersistent; with storeAfterLoad
    // ".current.stp" is rewritten at once.  False when the file cannot be read
    // or a value could not be stored.
    bool load(const std::string& fileName, bool storeAfterLoad);
    // Start-up: ".current.stp", or its backup when it is damaged, or the
    // defaults when neither is a complete document.
    void loadCurrent();
    // Applies a settings document to MemPersistent; true when every matched
    // value could be stored (values out of range are skipped, not failures).
    bool apply(const std::string& document);
    // The same for a document already parsed.
    bool apply(const Json& reader);
    // Logs a parse error with 41 characters of text around the position.
    void printJsonError(int position, const std::string& text) const;
    // Captures the defaults (MemPersistent as it is before any file is
    // applied); writes ".current.stp" when neither it nor its backup exists.
    void captureDefaults();
    // The factory reset, when MemGuiLocal's FactoryReset is set: the settings
    // folder is emptied by `emptyFolder`, the defaults are applied and the
    // flag is cleared.
    void factoryReset(const std::function<void()>& emptyFolder);

private:
    using Results = std::vector<Migration::KeyResult>;
    class Logger;

    // Applies the items within the unsubscribe/subscribe bracket, logging
    // each key; the results, and whether every setter succeeded.
    Results applyItems(const std::vector<Json::Item>& items, bool& stored);
    // Applies a settings file; nothing when it cannot be read.
    std::optional<Results> applyFile(const std::string& fileName, bool& stored);
    // The document applied at start; `recovered` when ".current.stp" must be
    // written again.
    Results loadCurrentDocument(bool& recovered);
    std::optional<Results> loadsWhole(const std::string& fileName);
    bool keepDamagedFile();
    Results readDamaged(bool currentDamaged);
    void readLinesOf(const std::string& fileName, std::vector<Json::Item>& items) const;
    // Settles what is kept aside after the start-up load; true when a value
    // kept before was stored again.
    bool keepAside(const Results& current, const std::vector<KeptSettings::Entry>& previous);
    bool holds(uint32_t variable, const KeptSettings::Entry& entry) const;
    // The document of the captured defaults, built on first use.
    const std::string& defaultsDocument();

    const SettingsFolder& folder;
    SettingsStore& store;
    ServiceMemories memories;
    BrokerLink broker;
    uint32_t memory;
    // MemPersistent's record as captureDefaults found it.
    std::vector<uint8_t> defaultRecord;
    std::optional<std::string> defaults;
};
