#include "productinfo.h"

#include "constants.h"
#include "filetext.h"
#include "hwinfo.h"
#include "settings-service/log.h"
#include "settings-service/setters.h"

#include <exception>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

namespace {

constexpr const char* UNKNOWN = "Unknown";

// The text of `key` in the record; "Unknown", with `failure` logged, when the
// record is not open or does not hold it.
std::string readRecord(HwInfo* record, const char* key, const char* failure) {
    std::string value;
    if (record == nullptr || !record->read(key, value)) {
        LOG(Error, "%s", failure);
        value = UNKNOWN;
    }
    return value;
}

// The hardware record, or null when it cannot be opened.
std::unique_ptr<HwInfo> openHardwareRecord() {
    try {
        auto record = std::make_unique<HwInfo>(HwInfo::Use::Identity);
        record->initialize();
        return record;
    } catch (const std::exception&) {
        return nullptr;
    }
}

// The text up to the next line feed (without it), taken off `rest`.
std::string_view nextLine(std::string_view& rest) {
    const std::size_t end = rest.find('\n');
    const std::string_view line = rest.substr(0, end);
    rest.remove_prefix(end == std::string_view::npos ? rest.size() : end + 1);
    return line;
}

} // namespace

void ProductInfo::readHardwareIdentity() {
    const std::unique_ptr<HwInfo> record = openHardwareRecord();
    productName = readRecord(record.get(), Constants::HWINFO_BOARD, "Could not read product name.");
    // The serial number's failure is announced with the product name's text.
    const std::string serial =
        readRecord(record.get(), Constants::HWINFO_SERIAL, "Could not read product name.");
    setVariable(memories.statics.ProductSerial, Notify{VarProductSerialChanged, 0, 0},
                serial.c_str());
    const std::string revision =
        readRecord(record.get(), Constants::HWINFO_REVISION, "Could not read product revision.");
    setVariable(memories.statics.ProductRevision, Notify{VarProductRevisionChanged, 0, 0},
                revision.c_str());
    LOG(LogLight, "HW: %s %s %s", productName.c_str(), serial.c_str(), revision.c_str());
}

// The first two lines of the file: the version and the last commit (each
// empty when the file has no such line).
void ProductInfo::readSoftwareIdentity() {
    const std::optional<std::string> info = FileText::read(Constants::PRODUCT_INFO_FILE);
    if (!info) {
        LOG(Error, "Could not read product info.");
        productVersion = UNKNOWN;
        return;
    }
    std::string_view rest = *info;
    productVersion = std::string(nextLine(rest));
    const std::string lastCommit(nextLine(rest));
    setVariable(memories.statics.ProductLastCommit, Notify{VarProductLastCommitChanged, 0, 0},
                lastCommit.c_str());
    LOG(LogLight, "SW: %s %s", productVersion.c_str(), lastCommit.c_str());
}

void ProductInfo::publish() const {
    setVariable(memories.persistent.ProductName, Notify{VarProductNameChanged, 0, 0},
                productName.c_str());
    setVariable(memories.persistent.ProductVersion, Notify{VarProductVersionChanged, 0, 0},
                productVersion.c_str());
}
