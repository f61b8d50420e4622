// HwInfo for read-only users: the field list known without a device, and
// declareFields with checkRecord, which judge a record without writing any
// byte of it or logging; repairRecord then does what initialize does.
#include "deviceimage.h"
#include "hwinfo.h"
#include "recordimage.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace {

using deviceimage::Bytes;
using namespace recordimage;
using State = HwInfo::RecordState;

constexpr std::uint32_t REGISTER = 0x80000013;

class HwInfoCheckTest : public testing::Test {
protected:
    void SetUp() override {
        deviceimage::zeroMmc();
        deviceimage::setRegisterWord(REGISTER);
    }

    // Checks `region` read-only; the image, the register and the log stay as they were.
    HwInfo::RecordCheck checkOf(Bytes const& region) {
        deviceimage::writeRecord(region);
        Bytes const mmc = deviceimage::read(deviceimage::MMC, 0, deviceimage::MMC_SIZE);
        deviceimage::KernelLog log;
        HwInfo hwInfo;
        hwInfo.declareFields();
        HwInfo::RecordCheck const check = hwInfo.checkRecord();
        EXPECT_EQ(deviceimage::read(deviceimage::MMC, 0, deviceimage::MMC_SIZE), mmc);
        EXPECT_EQ(deviceimage::registerWord(), REGISTER);
        EXPECT_EQ(log.text(), "");
        return check;
    }
};

TEST(HwInfoFields, EveryFieldInPrintOrderWithItsKindAndFlags) {
    std::vector<std::string> keys;
    for (HwInfo::Field const& field : HwInfo::fields()) {
        keys.emplace_back(field.key);
    }
    EXPECT_EQ(keys, (std::vector<std::string>{"version",
                                              "length",
                                              "checksum",
                                              "serial",
                                              "board",
                                              "revision",
                                              "k",
                                              "knob_position_min",
                                              "knob_position_max",
                                              "slider_position_min",
                                              "slider_position_max",
                                              "zoom_zero_pos_x",
                                              "zoom_zero_pos_y",
                                              "bemf_gain",
                                              "cal_comp",
                                              "cal_bemf",
                                              "knob_linearization",
                                              "update_requested",
                                              "unused",
                                              "boot_failed",
                                              "boot_failed_counter"}));
    std::vector<HwInfo::Field> const fields = HwInfo::fields();
    EXPECT_EQ(fields[0].kind, PersistentInfo::IntKind);
    EXPECT_EQ(fields[0].flags, PersistentInfo::Private);
    EXPECT_EQ(fields[3].kind, PersistentInfo::TextKind);
    EXPECT_EQ(fields[3].flags, 0u);
    EXPECT_EQ(fields[18].kind, PersistentInfo::BitsKind);
    EXPECT_EQ(fields[18].flags, PersistentInfo::Hidden);
}

TEST_F(HwInfoCheckTest, AValidRecord) {
    Bytes record = sample();
    HwInfo::RecordCheck const check = checkOf(record);
    EXPECT_EQ(check.state, State::Valid);
    EXPECT_EQ(check.length, RECORD_SIZE);
    EXPECT_EQ(check.checksum, word(record, CHECKSUM));
    EXPECT_EQ(check.expected, checksumOf(record, RECORD_SIZE));
}

TEST_F(HwInfoCheckTest, AnAllZeroRegionHasAShortLength) {
    HwInfo::RecordCheck const check = checkOf(Bytes(deviceimage::RECORD_REGION, 0));
    EXPECT_EQ(check.state, State::ShortLength);
    EXPECT_EQ(check.length, 0u);
}

TEST_F(HwInfoCheckTest, AnErasedRegionHasALengthBeyondIt) {
    HwInfo::RecordCheck const check = checkOf(Bytes(deviceimage::RECORD_REGION, 0xFF));
    EXPECT_EQ(check.state, State::LengthBeyondRegion);
    EXPECT_EQ(check.length, 0xFFFFFFFFu);
    EXPECT_EQ(check.expected, 0u) << "no checksum over a length beyond the region";
}

TEST_F(HwInfoCheckTest, AFlippedBitGivesAWrongChecksum) {
    Bytes damaged = sample();
    damaged[SERIAL + 1] ^= 0x01;
    HwInfo::RecordCheck const check = checkOf(damaged);
    EXPECT_EQ(check.state, State::WrongChecksum);
    EXPECT_EQ(check.checksum, word(sample(), CHECKSUM));
    EXPECT_EQ(check.expected, checksumOf(damaged, RECORD_SIZE));
}

TEST_F(HwInfoCheckTest, RepairAfterACheckIsInitialize) {
    Bytes damaged = sample();
    damaged[SERIAL + 1] ^= 0x01;
    deviceimage::writeRecord(damaged);
    {
        HwInfo hwInfo;
        hwInfo.declareFields();
        EXPECT_EQ(hwInfo.checkRecord().state, State::WrongChecksum);
        deviceimage::KernelLog log;
        hwInfo.repairRecord();
        EXPECT_TRUE(log.contains("Wrong checksum, setting defaults."));
        EXPECT_EQ(hwInfo.checkRecord().state, State::Valid);
    }
    EXPECT_EQ(deviceimage::record(), defaultsOf(damaged));
}

} // namespace
