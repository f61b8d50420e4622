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

template <class Field, class... Arguments>
void add(PersistentInfo& block, char const* name, unsigned int flags, Arguments... arguments) {
    block.addInfo(std::make_unique<Field>(name, flags, arguments...));
}

} // namespace

HwInfo::HwInfo()
    : bootRegister(BOOT_REGISTER_DEVICE, BOOT_REGISTER_ADDRESS, BOOT_REGISTER_LENGTH),
      mmcBlock(MMC_DEVICE, MMC_BLOCK_OFFSET, MMC_BLOCK_LENGTH), logLevel(nullptr) {}

void HwInfo::initialize() {
    using PI = PersistentInfo;
    for (char const* name : {VERSION, LENGTH, CHECKSUM}) {
        add<PI::Int>(mmcBlock, name, PI::Private);
    }
    for (char const* name : {Constants::HWINFO_SERIAL, Constants::HWINFO_BOARD,
                             Constants::HWINFO_REVISION, Constants::HWINFO_K}) {
        add<PI::String>(mmcBlock, name, 0, TEXT_WIDTH);
    }
    for (char const* name :
         {Constants::KNOB_POS_MIN, Constants::KNOB_POS_MAX, Constants::SLIDER_POS_MIN,
          Constants::SLIDER_POS_MAX, Constants::JOYSTICK_ZERO_POS_X, Constants::JOYSTICK_ZERO_POS_Y,
          Constants::VIBRATION_BEMF_GAIN, Constants::VIBRATION_CAL_COMP,
          Constants::VIBRATION_CAL_BEMF}) {
        add<PI::Int>(mmcBlock, name, 0);
    }
    add<PI::Bits>(bootRegister, Constants::HWINFO_UPDATE_REQ, 0, 1u);
    add<PI::Bits>(bootRegister, Constants::HWINFO_UNUSED, PI::Hidden, 26u);
    add<PI::Bits>(bootRegister, Constants::HWINFO_BOOT_FAILED, 0, 1u);
    add<PI::Bits>(bootRegister, Constants::HWINFO_BOOT_FAILED_COUNTER, 0, 4u);
    add<PI::String>(mmcBlock, Constants::HWINFO_KNOB_LINEARIZATION, 0, KNOB_LINEARIZATION_WIDTH);

    unsigned int length = 0;
    mmcBlock.get<PI::Int, unsigned int>(LENGTH, length);
    if (length < mmcBlock.size()) {
        logMessage(logLevel, gen::Error, __FILE__, __LINE__,
                   "Differents length, setting new values to default.");
        initNewMemory(length);
        length = mmcBlock.size();
    }
    unsigned int stored = 0;
    mmcBlock.get<PI::Int, unsigned int>(CHECKSUM, stored);
    if (length > mmcBlock.blockLength) {
        logMessage(logLevel, gen::Error, __FILE__, __LINE__,
                   "Stored length %u is larger than the record region of %u bytes.", length,
                   mmcBlock.blockLength);
    } else if (stored == mmcBlock.checksum(length)) {
        return;
    }
    logMessage(logLevel, gen::Error, __FILE__, __LINE__, "Wrong checksum, setting defaults.");
    clear();
}

bool HwInfo::read(char const* key, unsigned int& value) {
    return mmcBlock.get<PersistentInfo::Int, unsigned int>(key, value) ||
           bootRegister.get<PersistentInfo::Int, unsigned int>(key, value);
}

bool HwInfo::read(char const* key, std::string& value) {
    return mmcBlock.get<PersistentInfo::Base, std::string>(key, value) ||
           bootRegister.get<PersistentInfo::Base, std::string>(key, value);
}

bool HwInfo::write(char const* key, unsigned int value) {
    if (!mmcBlock.set<PersistentInfo::Int, unsigned int>(key, value, false) &&
        !bootRegister.set<PersistentInfo::Int, unsigned int>(key, value, false)) {
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
        !bootRegister.set<PersistentInfo::Base, char const*>(key.c_str(), text, false)) {
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
           bootRegister.check(key.c_str(), value.c_str(), false);
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

void HwInfo::printAll() const {
    mmcBlock.printAll();
    bootRegister.printAll();
}

void HwInfo::printParameters(FILE* stream) const {
    mmcBlock.printParameters(stream);
    std::fputc(' ', stream);
    bootRegister.printParameters(stream);
}
