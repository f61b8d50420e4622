// Applying settings documents of any release to MemPersistent, by the rules
// that the model's history declares (gen/code/history.h).  The service's
// loader and memtool's preview apply documents through this module alone: the
// loader logs what each key became, the preview prints it.
//
// The rules, key by key in document order:
// - A key beginning with "Product" is skipped (product information is never
//   read back).
// - A key that is a variable's name is that variable; a key that is one of a
//   variable's former names (`formerly`) reads as the variable, unless the
//   document names the variable by its current name too: the current name
//   wins and the former one is kept aside.
// - A key of a retired variable is not stored.
// - An enum value that is a former entry of its enum reads as the entry it is
//   now; so does an enum member of a struct element.
// - A value outside the variable's range is stored as the nearest bound when
//   the variable clamps (`out_of_range = "clamp"`) and may clamp here;
//   otherwise it is kept aside, as is a value the range check cannot read.
// - Whatever else cannot be stored (an unknown key, a setter's error) is kept
//   aside.
// "Kept aside" means not stored; the caller decides where the value is kept
// (".current.stp.kept" for the current settings, its own file for a user
// setup).
//
// Choices made here:
// - The nearest bound of a range is the bound that the range check applies:
//   an int without a minimum is bounded by -2147483648, and a float with a
//   maximum but no minimum by the smallest positive normal float
//   (1.17549435e-38), as the range check has it (valuecodec.h).
// - A value is compared with the range as the number that the setter stores
//   (an int's base is detected), as the range check of the loader always did.
// - A key that names a variable twice (the same name, or two former names)
//   stores each value in turn; the last one stays.
#pragma once

#include "settings-service/json.h"

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace Migration {

// What a document key names in this release.
struct Target {
    enum class Kind { Variable, FormerName, Retired, Product, Unknown };
    Kind kind = Kind::Unknown;
    uint32_t variable = 0;   // Variable and FormerName: the variable's index
    const char* reason = ""; // Retired: why it was retired
};
Target resolve(uint32_t memory, std::string_view key);

// True when the model declares former entries of some enum.
bool hasFormerEntries();
// The former names of a variable, in the model's order.
std::vector<const char*> formerNames(uint32_t memory, uint32_t variable);
// The entry that `text` names now when it is a former entry of the enum
// named `enumName`; nothing otherwise.
std::optional<std::string> currentEntry(std::string_view enumName, std::string_view text);
// The first former name of entry `entry` of the enum named `enumName`, or null.
const char* formerEntry(std::string_view enumName, std::string_view entry);
// The document value text `text` of a variable (documentformat.h) with every
// enum entry that has a former name written as its first former name: for an
// enum variable the entry itself, for a struct the entries of its enum members.
std::string inFormerEntries(uint32_t memory, uint32_t variable, const std::string& text);

// How a key of a document ended.
enum class Outcome {
    Stored,    // stored (perhaps read from a former name, or a former entry mapped)
    Clamped,   // stored as the nearest bound of the variable's range
    Retired,   // not stored: the variable was retired
    KeptAside, // not stored: `reason` says why
    Skipped,   // a "Product" key, never read back
};

struct KeyResult {
    std::string key;   // as the document names it
    std::string value; // the value text as it stood (as the reader gave it)
    Outcome outcome = Outcome::Stored;
    std::optional<uint32_t> variable; // the variable of this release it names, if any
    bool byFormerName = false;        // the key is a former name of the variable
    std::string formerEntry;          // a former entry that was read as ...
    std::string entryNow;             // ... this entry (the first such, in a struct array)
    std::string applied;              // the text given to the setter
    std::string reason;               // Retired and KeptAside: why
    // Kept aside by the range check: its error text, empty when the value read
    // as a number outside the range.
    bool outOfRange = false;
    std::string rangeError;
    // Kept aside by the setter: its error text.
    std::string setterError;
};

// The categories in which keys are counted: "stored", "former name", "mapped
// entry", "clamped", "retired", "kept aside", "skipped".
const char* category(const KeyResult& result);
// One line that says what happened to the key, as the loader logs it and the
// preview prints it, e.g. "AUXTorque: 9 is outside 1..4; stored the nearest
// bound 4".
std::string describe(uint32_t memory, const KeyResult& result);

// Hears, while a document is applied, the parse errors of struct elements and
// what each key became, as it happens.
class Report {
public:
    virtual ~Report() = default;
    virtual void parseError(int position, const std::string& text) = 0;
    virtual void keyDone(const KeyResult& result) = 0;
};

// Decides what the key would become, storing nothing: Stored and Clamped are
// still to be stored (store()), the others are final.  `document` is the
// whole document the key stands in.  Without `clamp` a value outside the
// range is kept aside even where the variable clamps.
KeyResult plan(uint32_t memory, const std::string& key, const std::string& value,
               const std::vector<Json::Item>& document, bool clamp = true);
// Stores a planned Stored or Clamped key through the catalogue's setters
// (which post the change events); a setter's error keeps it aside instead.
// False when a setter reported an error.
bool store(uint32_t memory, KeyResult& result, const std::vector<Json::Item>& document,
           Report& report);
// Plans and stores every item of a document, in order, telling `report` of
// each key when it is done.
std::vector<KeyResult> apply(uint32_t memory, const std::vector<Json::Item>& document,
                             Report& report);

} // namespace Migration
