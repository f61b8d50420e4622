#include "hwinfo.h"

#include "constants.h"

#include <initializer_list>
#include <memory>
#include <utility>

namespace {

constexpr char const* BOOT_REGISTER_DEVICE = "/dev/mem";
constexpr unsigned int BOOT_REGISTER_ADDRESS = 0x020CC068;
constexpr unsigned int BOOT_REGISTER_LENGTH = 4;

constexpr char const* MMC_DEVICE = "/dev/mmcblk1";
constexpr unsigned int MMC_BLOCK_OFFSET = 0x100000;
constexpr unsigned int MMC_BLOCK_LENGTH = 0x10000;

constexpr char const* VERSION = "version";
constexpr char const* LENGTH = "length";
constexpr char const* CHECKSUM = "checksum";

constexpr unsigned int TEXT_WIDTH = 30;
constexpr unsigned int KNOB_LINEARIZATION_WIDTH = 180;

enum class Block { Record, Register };

struct FieldSpec {
    Block block;
    HwInfo::Field field;
    unsigned int width; // bytes of a String, bits of a Bits field
};

using PI = PersistentInfo;

// The fields in the order in which initialize() declares them.
constexpr FieldSpec FIELD_SPECS[] = {
    {Block::Record, {VERSION, PI::IntKind, PI::Private}, 0},
    {Block::Record, {LENGTH, PI::IntKind, PI::Private}, 0},
    {Block::Record, {CHECKSUM, PI::IntKind, PI::Private}, 0},
    {Block::Record, {Constants::HWINFO_SERIAL, PI::TextKind, 0}, TEXT_WIDTH},
    {Block::Record, {Constants::HWINFO_BOARD, PI::TextKind, 0}, TEXT_WIDTH},
    {Block::Record, {Constants::HWINFO_REVISION, PI::TextKind, 0}, TEXT_WIDTH},
    {Block::Record, {Constants::HWINFO_K, PI::TextKind, 0}, TEXT_WIDTH},
    {Block::Record, {Constants::KNOB_POS_MIN, PI::IntKind, 0}, 0},
    {Block::Record, {Constants::KNOB_POS_MAX, PI::IntKind, 0}, 0},
    {Block::Record, {Constants::SLIDER_POS_MIN, PI::IntKind, 0}, 0},
    {Block::Record, {Constants::SLIDER_POS_MAX, PI::IntKind, 0}, 0},
    {Block::Record, {Constants::JOYSTICK_ZERO_POS_X, PI::IntKind, 0}, 0},
    {Block::Record, {Constants::JOYSTICK_ZERO_POS_Y, PI::IntKind, 0}, 0},
    {Block::Record, {Constants::VIBRATION_BEMF_GAIN, PI::IntKind, 0}, 0},
    {Block::Record, {Constants::VIBRATION_CAL_COMP, PI::IntKind, 0}, 0},
    {Block::Record, {Constants::VIBRATION_CAL_BEMF, PI::IntKind, 0}, 0},
    {Block::Register, {Constants::HWINFO_UPDATE_REQ, PI::BitsKind, 0}, 1},
    {Block::Register, {Constants::HWINFO_UNUSED, PI::BitsKind, PI::Hidden}, 26},
    {Block::Register, {Constants::HWINFO_BOOT_FAILED, PI::BitsKind, 0}, 1},
    {Block::Register, {Constants::HWINFO_BOOT_FAILED_COUNTER, PI::BitsKind, 0}, 4},
    {Block::Record,
     {Constants::HWINFO_KNOB_LINEARIZATION, PI::TextKind, 0},
     KNOB_LINEARIZATION_WIDTH},
};

std::unique_ptr<PI::Base> makeField(FieldSpec const& spec) {
    switch (spec.field.kind) {
    case PI::IntKind:
        return std::make_unique<PI::Int>(spec.field.key, spec.field.flags);
    case PI::BitsKind:
        return std::make_unique<PI::Bits>(spec.field.key, spec.field.flags, spec.width);
    default:
        return std::make_unique<PI::String>(spec.field.key, spec.field.flags, spec.width);
    }
}

} // namespace

HwInfo::HwInfo(Use use)
    : mmcBlock(MMC_DEVICE, MMC_BLOCK_OFFSET, MMC_BLOCK_LENGTH,
               use == Use::Write ? PI::Access::ReadWrite : PI::Access::PrivateCopy),
      logLevel(nullptr), use(use) {
    if (use != Use::Identity) {
        bootRegister.emplace(BOOT_REGISTER_DEVICE, BOOT_REGISTER_ADDRESS, BOOT_REGISTER_LENGTH,
                             use == Use::Write ? PI::Access::ReadWrite : PI::Access::ReadOnly);
    }
}

std::vector<HwInfo::Field> HwInfo::fields() {
    std::vector<Field> list;
    for (Block block : {Block::Record, Block::Register}) {
        for (FieldSpec const& spec : FIELD_SPECS) {
            if (spec.block == block) {
                list.push_back(spec.field);
            }
        }
    }
    return list;
}

void HwInfo::initialize() {
    declareFields();
    repairRecord();
}

void HwInfo::declareFields() {
    for (FieldSpec const& spec : FIELD_SPECS) {
        if (spec.block == Block::Record) {
            mmcBlock.addInfo(makeField(spec));
        } else if (bootRegister) {
            bootRegister->addInfo(makeField(spec));
        }
    }
}

HwInfo::RecordCheck HwInfo::checkRecord() const {
    RecordCheck check{RecordState::Valid, 0, 0, 0};
    mmcBlock.get<PI::Int, unsigned int>(LENGTH, check.length);
    mmcBlock.get<PI::Int, unsigned int>(CHECKSUM, check.checksum);
    if (check.length < mmcBlock.size()) {
        check.state = RecordState::ShortLength;
    } else if (check.length > mmcBlock.blockLength) {
        check.state = RecordState::LengthBeyondRegion;
    } else {
        check.expected = mmcBlock.checksum(check.length);
        if (check.checksum != check.expected) {
            check.state = RecordState::WrongChecksum;
        }
    }
    return check;
}

void HwInfo::repairRecord() {
    RecordCheck const check = checkRecord();
    switch (check.state) {
    case RecordState::Valid:
        return;
    case RecordState::ShortLength:
        // The extended record carries a fresh checksum over the new length.
        logMessage(logLevel, gen::Error, __FILE__, __LINE__,
                   "Differents length, setting new values to default.");
        if (use == Use::Identity && mmcBlock.isZero(mmcBlock.size())) {
            clear();
        } else {
            initNewMemory(check.length);
        }
        return;
    case RecordState::LengthBeyondRegion:
        logMessage(logLevel, gen::Error, __FILE__, __LINE__,
                   "Stored length %u is larger than the record region of %u bytes.", check.length,
                   mmcBlock.blockLength);
        break;
    case RecordState::WrongChecksum:
        break;
    }
    logMessage(logLevel, gen::Error, __FILE__, __LINE__, "Wrong checksum, setting defaults.");
    clear();
}

bool HwInfo::read(char const* key, unsigned int& value) {
    return mmcBlock.get<PersistentInfo::Int, unsigned int>(key, value) ||
           (bootRegister && bootRegister->get<PersistentInfo::Int, unsigned int>(key, value));
}

bool HwInfo::read(char const* key, std::string& value) {
    return mmcBlock.get<PersistentInfo::Base, std::string>(key, value) ||
           (bootRegister && bootRegister->get<PersistentInfo::Base, std::string>(key, value));
}

bool HwInfo::write(char const* key, unsigned int value) {
    if (!mmcBlock.set<PersistentInfo::Int, unsigned int>(key, value, false) &&
        !(bootRegister &&
          bootRegister->set<PersistentInfo::Int, unsigned int>(key, value, false))) {
        return false;
    }
    updateChecksum();
    return true;
}

bool HwInfo::write(char const* key, char const* text) {
    if (!mmcBlock.set<PersistentInfo::Base, char const*>(key, text, false)) {
        return false;
    }
    updateChecksum();
    return true;
}

bool HwInfo::splitAssignment(std::string const& assignment, std::string& key, std::string& value) {
    std::string::size_type equals = assignment.find('=');
    if (equals == std::string::npos) {
        return false;
    }
    key = assignment.substr(0, equals);
    value = assignment.substr(equals + 1);
    return true;
}

bool HwInfo::write(std::string assignment) {
    std::string key;
    std::string value;
    if (!splitAssignment(assignment, key, value)) {
        return false;
    }
    char const* text = value.c_str();
    if (!mmcBlock.set<PersistentInfo::Base, char const*>(key.c_str(), text, false) &&
        !(bootRegister &&
          bootRegister->set<PersistentInfo::Base, char const*>(key.c_str(), text, false))) {
        return false;
    }
    updateChecksum();
    return true;
}

bool HwInfo::check(std::string const& assignment) const {
    std::string key;
    std::string value;
    if (!splitAssignment(assignment, key, value)) {
        return false;
    }
    return mmcBlock.check(key.c_str(), value.c_str(), false) ||
           (bootRegister && bootRegister->check(key.c_str(), value.c_str(), false));
}

void HwInfo::clear() {
    mmcBlock.clearAll();
    mmcBlock.set<PersistentInfo::Int, unsigned int>(VERSION, MMC_BLOCK_VERSION, true);
    mmcBlock.set<PersistentInfo::Int, unsigned int>(LENGTH, mmcBlock.size(), true);
    for (auto [key, text] : {std::pair{Constants::HWINFO_SERIAL, "0000"},
                             std::pair{Constants::HWINFO_BOARD, "prototype"},
                             std::pair{Constants::HWINFO_REVISION, "1.0"}}) {
        mmcBlock.set<PersistentInfo::Base, char const*>(key, text, false);
    }
    updateChecksum();
}

void HwInfo::initNewMemory(unsigned int oldLength) {
    mmcBlock.setNewMemToDefault(oldLength, mmcBlock.size());
    mmcBlock.set<PersistentInfo::Int, unsigned int>(LENGTH, mmcBlock.size(), true);
    mmcBlock.set<PersistentInfo::Int, unsigned int>(CHECKSUM, mmcBlock.checksum(mmcBlock.size()),
                                                    true);
    unsigned int version = 0;
    mmcBlock.get<PersistentInfo::Int, unsigned int>(VERSION, version);
    if (version != MMC_BLOCK_VERSION) {
        mmcBlock.set<PersistentInfo::Int, unsigned int>(VERSION, MMC_BLOCK_VERSION, true);
    }
}

void HwInfo::updateChecksum() {
    unsigned int length = 0;
    mmcBlock.get<PersistentInfo::Int, unsigned int>(LENGTH, length);
    mmcBlock.set<PersistentInfo::Int, unsigned int>(CHECKSUM, mmcBlock.checksum(length), true);
}

void HwInfo::sync() const {
    mmcBlock.sync();
    if (bootRegister) {
        bootRegister->sync();
    }
}

void HwInfo::printAll() const {
    mmcBlock.printAll();
    if (bootRegister) {
        bootRegister->printAll();
    }
}

void HwInfo::printParameters(FILE* stream) const {
    mmcBlock.printParameters(stream);
    if (bootRegister) {
        std::fputc(' ', stream);
        bootRegister->printParameters(stream);
    }
}
