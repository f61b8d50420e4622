// The block's checksum against published CRC-32/MPEG-2 values and against the
// bit-by-bit reference, over bytes of the eMMC image.
#include "deviceimage.h"
#include "persistentinfo.h"
#include "referencecrc.h"

#include <gtest/gtest.h>
#include <random>
#include <string>

namespace {

using deviceimage::Bytes;

constexpr unsigned int BLOCK = 0x100000;
constexpr unsigned int REGION = 0x10000;
constexpr std::uint32_t CHECK_VALUE = 0x0376E6E7;

Bytes asBytes(std::string const& text) {
    return Bytes(text.begin(), text.end());
}

class CrcTest : public testing::Test {
protected:
    void SetUp() override { deviceimage::zeroMmc(); }
};

TEST_F(CrcTest, ReferenceGivesThePublishedCheckValue) {
    Bytes digits = asBytes("123456789");
    EXPECT_EQ(referenceCrc(digits.data(), digits.size()), CHECK_VALUE);
    EXPECT_EQ(referenceCrc(nullptr, 0), 0xFFFFFFFFu);
}

TEST_F(CrcTest, ChecksumOfTheNineDigitsIsTheCheckValue) {
    deviceimage::write(deviceimage::MMC, BLOCK + 12, asBytes("123456789"));
    PersistentInfo block(deviceimage::MMC, BLOCK, REGION);
    EXPECT_EQ(block.checksum(21), CHECK_VALUE);
}

TEST_F(CrcTest, MessageFollowedByItsChecksumLeavesTheZeroResidue) {
    deviceimage::write(deviceimage::MMC, BLOCK + 12,
                       {'1', '2', '3', '4', '5', '6', '7', '8', '9', 0x03, 0x76, 0xE6, 0xE7});
    PersistentInfo block(deviceimage::MMC, BLOCK, REGION);
    EXPECT_EQ(block.checksum(25), 0u);
}

TEST_F(CrcTest, ChecksumMatchesTheReferenceForEveryLength) {
    std::mt19937 generator(20240611);
    Bytes region(REGION);
    for (auto& byte : region) {
        byte = static_cast<unsigned char>(generator());
    }
    deviceimage::writeRecord(region);
    PersistentInfo block(deviceimage::MMC, BLOCK, REGION);
    Bytes image = deviceimage::record();
    for (unsigned int length = 13; length <= 1100; ++length) {
        ASSERT_EQ(block.checksum(length), referenceCrc(image.data() + 12, length - 12))
            << "length " << length;
    }
    EXPECT_EQ(block.checksum(REGION), referenceCrc(image.data() + 12, REGION - 12));
}

TEST_F(CrcTest, ChecksumOfUniformRegionsMatchesTheReference) {
    for (unsigned char fill : {0x00, 0xFF}) {
        deviceimage::writeRecord(Bytes(REGION, fill));
        PersistentInfo block(deviceimage::MMC, BLOCK, REGION);
        Bytes image = deviceimage::record();
        EXPECT_EQ(block.checksum(348), referenceCrc(image.data() + 12, 336)) << int(fill);
        EXPECT_EQ(block.checksum(REGION), referenceCrc(image.data() + 12, REGION - 12));
    }
}

} // namespace
