// Reading settings documents into MemPersistent: loading a file, applying a
// document with range checks, reporting parse errors, the defaults snapshot
// with the factory reset that replays it, and the start-up load with its
// recovery from a damaged ".current.stp".  The format is settingsstore.h's;
// keys that begin with "Product" are never read back.
//
// Choices made here:
// - At start a ".current.stp" that is not complete (documenttext.h), cannot
//   be read, or is not a file is logged, moved to ".current.stp.damaged"
//   (replacing an earlier one), and the backup ".current.stp.backup" is loaded
//   instead; only when the backup is not complete either do the defaults
//   apply.  ".current.stp" is then written again at once.  With neither file
//   there, start-up writes the defaults as before.
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
//   that copy the first time it is needed (a factory reset, or a start whose
//   files are both damaged), not before the service is ready.  It is the same
//   text that building it at start gave.
#pragma once

#include "json.h"

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <vector>

class SettingsFolder;
class SettingsStore;

class SettingsLoader {
public:
    SettingsLoader(const SettingsFolder& folder, SettingsStore& store, uint32_t memory);

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
    bool loadsWhole(const std::string& fileName);
    void keepDamagedFile();
    bool applyValue(const std::string& key, const std::string& value,
                    const std::vector<Json::Item>& document);
    std::string setStructArray(uint32_t variable, const std::string& value);
    // The document of the captured defaults, built on first use.
    const std::string& defaultsDocument();

    const SettingsFolder& folder;
    SettingsStore& store;
    uint32_t memory;
    // MemPersistent's record as captureDefaults found it.
    std::vector<uint8_t> defaultRecord;
    std::optional<std::string> defaults;
};
