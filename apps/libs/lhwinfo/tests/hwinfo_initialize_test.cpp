// HwInfo::initialize on prepared eMMC images: what is kept, extended or reset,
// what is logged, and the image bytes it leaves.
#include "deviceimage.h"
#include "hwinfo.h"
#include "logline.h"
#include "recordimage.h"

#include <gtest/gtest.h>
#include <random>
#include <stdexcept>
#include <string>
#include <sys/stat.h>
#include <utility>
#include <vector>

namespace {

using deviceimage::Bytes;
using namespace recordimage;

constexpr char const* LENGTH_MESSAGE = "Differents length, setting new values to default.";
constexpr char const* CHECKSUM_MESSAGE = "Wrong checksum, setting defaults.";
constexpr std::uint32_t REGISTER = 0x80000013;

class HwInfoInitializeTest : public testing::Test {
protected:
    void SetUp() override {
        deviceimage::zeroMmc();
        deviceimage::setRegisterWord(REGISTER);
    }

    // Writes the region, initialises a HwInfo on it and keeps the log of that.
    void initializeOn(Bytes const& region) {
        deviceimage::writeRecord(region);
        deviceimage::KernelLog log;
        HwInfo hwInfo;
        hwInfo.initialize();
        logged = log.text();
    }

    bool wasLogged(std::string const& message) const {
        return logged.find(message) != std::string::npos;
    }

    void expectErrorLine(std::string const& message) const {
        std::string::size_type at = logged.find(message);
        ASSERT_NE(at, std::string::npos) << message;
        std::string::size_type begin = logged.rfind('\n', at);
        begin = begin == std::string::npos ? 0 : begin + 1;
        EXPECT_EQ(logged.substr(begin + 22, 12), "Error       ") << logged;
        std::string::size_type const end = logged.find('\n', at);
        EXPECT_TRUE(testsupport::isLogLine(logged.substr(begin, end - begin), gen::Error,
                                           "hwinfo.cpp", message));
    }

    Bytes randomRegion(unsigned int seed) const {
        std::mt19937 generator(seed);
        Bytes region(deviceimage::RECORD_REGION);
        for (auto& byte : region) {
            byte = static_cast<unsigned char>(generator());
        }
        return region;
    }

    std::string logged;
};

TEST_F(HwInfoInitializeTest, AllZeroRegionIsExtendedWithoutDefaults) {
    initializeOn(Bytes(deviceimage::RECORD_REGION, 0));
    expectErrorLine(LENGTH_MESSAGE);
    EXPECT_FALSE(wasLogged(CHECKSUM_MESSAGE));
    Bytes expected(deviceimage::RECORD_REGION, 0);
    putWord(expected, VERSION, 5);
    putWord(expected, LENGTH, 348);
    putWord(expected, CHECKSUM, checksumOf(expected, 348));
    EXPECT_EQ(deviceimage::record(), expected);

    HwInfo hwInfo;
    hwInfo.initialize();
    std::string serial = "unread";
    ASSERT_TRUE(hwInfo.read("serial", serial));
    EXPECT_EQ(serial, "");
    EXPECT_EQ(deviceimage::record(), expected);
}

// The service's reading (Use::Identity): "/dev/mem" is never opened (here it
// cannot be), and the record is read as its repair would leave it while the
// device keeps every byte.
class IdentityTest : public HwInfoInitializeTest {
protected:
    void SetUp() override {
        HwInfoInitializeTest::SetUp();
        struct stat status {};
        ASSERT_EQ(::stat(deviceimage::MEM, &status), 0);
        memMode = status.st_mode & 07777;
        ASSERT_EQ(::chmod(deviceimage::MEM, 0), 0);
    }
    void TearDown() override { ::chmod(deviceimage::MEM, memMode); }

    // The texts of `keys` as the service reads them from `region`, and the log of that.
    std::vector<std::string> readAs(Bytes const& region, std::vector<char const*> const& keys) {
        deviceimage::writeRecord(region);
        deviceimage::KernelLog log;
        std::vector<std::string> values;
        {
            HwInfo identity(HwInfo::Use::Identity);
            identity.initialize();
            for (char const* key : keys) {
                std::string value = "unread";
                EXPECT_TRUE(identity.read(key, value)) << key;
                values.push_back(value);
            }
            std::string value;
            EXPECT_FALSE(identity.read("update_requested", value)) << "no register";
        }
        logged = log.text();
        return values;
    }

    mode_t memMode = 0;
};

TEST_F(IdentityTest, TheWritersOpenOfTheRegisterFailsHere) {
    EXPECT_THROW(HwInfo hwInfo, std::runtime_error);
}

TEST_F(IdentityTest, AWrongChecksumReadsAsAClearedRecordAndTheDeviceKeepsItsBytes) {
    Bytes damaged = sample();
    seal(damaged);
    damaged[20] ^= 0x01;
    EXPECT_EQ(readAs(damaged, {"serial", "board", "revision", "k", "knob_position_min"}),
              (std::vector<std::string>{"0000", "prototype", "1.0", "", "0"}));
    expectErrorLine(CHECKSUM_MESSAGE);
    EXPECT_FALSE(wasLogged(LENGTH_MESSAGE));
    EXPECT_EQ(deviceimage::record(), damaged);
}

TEST_F(IdentityTest, ABlankRecordReadsAsAClearedRecordAndStaysBlank) {
    const Bytes blank(deviceimage::RECORD_REGION, 0);
    EXPECT_EQ(readAs(blank, {"serial", "board", "revision", "version", "length"}),
              (std::vector<std::string>{"0000", "prototype", "1.0", "5", "348"}));
    expectErrorLine(LENGTH_MESSAGE);
    EXPECT_FALSE(wasLogged(CHECKSUM_MESSAGE));
    EXPECT_EQ(deviceimage::record(), blank);
}

TEST_F(IdentityTest, AnOlderShorterRecordIsReadWithItsFieldsAndNotWritten) {
    Bytes old = sample();
    std::fill(old.begin() + KNOB_LINEARIZATION, old.begin() + RECORD_SIZE, 0xAB);
    putWord(old, VERSION, 4);
    putWord(old, LENGTH, 168);
    seal(old);
    EXPECT_EQ(readAs(old, {"serial", "board", "knob_linearization", "cal_bemf", "version"}),
              (std::vector<std::string>{"SN-0042", "mainboard-b", "",
                                        std::to_string(CAL_BEMF * 1000 + 7), "5"}));
    expectErrorLine(LENGTH_MESSAGE);
    EXPECT_FALSE(wasLogged(CHECKSUM_MESSAGE));
    EXPECT_EQ(deviceimage::record(), old);
}

TEST_F(HwInfoInitializeTest, RecordOfTheLayoutBeforeKnobLinearizationIsTakenOver) {
    Bytes old = sample();
    std::fill(old.begin() + KNOB_LINEARIZATION, old.begin() + RECORD_SIZE, 0xAB);
    putWord(old, VERSION, 4);
    putWord(old, LENGTH, 168);
    seal(old);
    initializeOn(old);
    expectErrorLine(LENGTH_MESSAGE);
    EXPECT_FALSE(wasLogged(CHECKSUM_MESSAGE));

    Bytes image = deviceimage::record();
    EXPECT_EQ(word(image, VERSION), 5u);
    EXPECT_EQ(word(image, LENGTH), 348u);
    EXPECT_EQ(word(image, CHECKSUM), checksumOf(image, 348));
    EXPECT_TRUE(std::equal(image.begin() + 12, image.begin() + 168, old.begin() + 12));
    EXPECT_EQ(Bytes(image.begin() + 168, image.begin() + 348), Bytes(180, 0));
    EXPECT_TRUE(std::equal(image.begin() + 348, image.end(), old.begin() + 348));
    EXPECT_EQ(image, extendedOf(old));
    EXPECT_EQ(deviceimage::registerWord(), REGISTER);
}

TEST_F(HwInfoInitializeTest, LongerValidRecordIsAcceptedAndKeepsItsLength) {
    Bytes longer = sample();
    std::fill(longer.begin() + 348, longer.begin() + 400, 0x42);
    putWord(longer, LENGTH, 400);
    seal(longer);
    initializeOn(longer);
    EXPECT_EQ(logged, "");
    EXPECT_EQ(deviceimage::record(), longer);

    HwInfo hwInfo;
    hwInfo.initialize();
    ASSERT_TRUE(hwInfo.write("knob_position_min", 77u));
    Bytes image = deviceimage::record();
    Bytes expected = longer;
    putWord(expected, KNOB_POSITION_MIN, 77);
    putWord(expected, CHECKSUM, checksumOf(expected, 400));
    EXPECT_EQ(image, expected);
    EXPECT_NE(word(image, CHECKSUM), checksumOf(image, 348));
}

TEST_F(HwInfoInitializeTest, FlippedSerialBitResetsTheRecordToDefaults) {
    Bytes damaged = sample();
    damaged[SERIAL + 2] ^= 0x08;
    initializeOn(damaged);
    expectErrorLine(CHECKSUM_MESSAGE);
    EXPECT_FALSE(wasLogged(LENGTH_MESSAGE));
    EXPECT_EQ(deviceimage::record(), defaultsOf(damaged));
    EXPECT_EQ(deviceimage::registerWord(), REGISTER);

    HwInfo hwInfo;
    hwInfo.initialize();
    std::string text;
    char const* expectedTexts[][2] = {{"serial", "0000"},
                                      {"board", "prototype"},
                                      {"revision", "1.0"},
                                      {"k", ""},
                                      {"knob_linearization", ""}};
    for (auto const& [key, value] : expectedTexts) {
        ASSERT_TRUE(hwInfo.read(key, text));
        EXPECT_EQ(text, value) << key;
    }
    for (char const* key :
         {"knob_position_min", "knob_position_max", "slider_position_min", "slider_position_max",
          "zoom_zero_pos_x", "zoom_zero_pos_y", "bemf_gain", "cal_comp", "cal_bemf"}) {
        unsigned int number = 99;
        ASSERT_TRUE(hwInfo.read(key, number));
        EXPECT_EQ(number, 0u) << key;
    }
}

TEST_F(HwInfoInitializeTest, FlippedVersionBitIsNotDetected) {
    Bytes record = sample();
    record[VERSION] ^= 0x02;
    initializeOn(record);
    EXPECT_EQ(logged, "");
    EXPECT_EQ(deviceimage::record(), record);
}

TEST_F(HwInfoInitializeTest, ValidRecordIsLeftAsItIs) {
    initializeOn(sample());
    EXPECT_EQ(logged, "");
    EXPECT_EQ(deviceimage::record(), sample());
    EXPECT_EQ(deviceimage::registerWord(), REGISTER);
}

TEST_F(HwInfoInitializeTest, AllOnesRegionIsResetWithoutReadingBeyondIt) {
    Bytes erased(deviceimage::RECORD_REGION, 0xFF);
    initializeOn(erased);
    expectErrorLine("Stored length 4294967295 is larger than the record region of 65536 bytes.");
    expectErrorLine(CHECKSUM_MESSAGE);
    EXPECT_FALSE(wasLogged(LENGTH_MESSAGE));
    Bytes image = deviceimage::record();
    EXPECT_EQ(image, defaultsOf(erased));
    EXPECT_EQ(Bytes(image.begin() + 348, image.end()), Bytes(image.size() - 348, 0xFF));
    EXPECT_EQ(deviceimage::registerWord(), REGISTER);
}

TEST_F(HwInfoInitializeTest, LengthOfTheWholeRegionIsCheckedUpToItsLastByte) {
    Bytes whole = sample();
    putWord(whole, LENGTH, 0x10000);
    seal(whole);
    initializeOn(whole);
    EXPECT_EQ(logged, "");
    EXPECT_EQ(deviceimage::record(), whole);

    Bytes beyond = sample();
    putWord(beyond, LENGTH, 0x10001);
    initializeOn(beyond);
    expectErrorLine("Stored length 65537 is larger than the record region of 65536 bytes.");
    EXPECT_EQ(deviceimage::record(), defaultsOf(beyond));
}

TEST_F(HwInfoInitializeTest, RandomRegionIsResetAndItsTextsStayInTheirFields) {
    Bytes noise = randomRegion(1);
    ASSERT_GT(word(noise, LENGTH), 0x10000u) << "the seed's stored length is in the region";
    initializeOn(noise);
    expectErrorLine(CHECKSUM_MESSAGE);
    EXPECT_EQ(deviceimage::record(), defaultsOf(noise));
}

TEST_F(HwInfoInitializeTest, RandomRegionWithAShortLengthIsExtended) {
    Bytes noise = randomRegion(2);
    std::fill(noise.begin() + SERIAL, noise.begin() + SERIAL + TEXT_WIDTH, 'S');
    std::fill(noise.begin() + BOARD, noise.begin() + BOARD + TEXT_WIDTH, 'B');
    putWord(noise, LENGTH, 200);
    initializeOn(noise);
    expectErrorLine(LENGTH_MESSAGE);
    EXPECT_FALSE(wasLogged(CHECKSUM_MESSAGE));
    EXPECT_EQ(deviceimage::record(), extendedOf(noise));

    HwInfo hwInfo;
    hwInfo.initialize();
    std::string text;
    ASSERT_TRUE(hwInfo.read("serial", text));
    EXPECT_EQ(text, std::string(TEXT_WIDTH, 'S'));
    ASSERT_TRUE(hwInfo.read("board", text));
    EXPECT_EQ(text, std::string(TEXT_WIDTH, 'B'));
    std::pair<char const*, std::size_t> const others[] = {
        {"revision", TEXT_WIDTH},
        {"k", TEXT_WIDTH},
        {"knob_linearization", KNOB_LINEARIZATION_WIDTH}};
    for (auto const& [key, width] : others) {
        ASSERT_TRUE(hwInfo.read(key, text));
        EXPECT_LE(text.size(), width) << key;
    }
}

TEST_F(HwInfoInitializeTest, RandomRegionWithALengthInsideTheRegionIsReset) {
    Bytes noise = randomRegion(3);
    putWord(noise, LENGTH, 1000);
    initializeOn(noise);
    expectErrorLine(CHECKSUM_MESSAGE);
    EXPECT_FALSE(wasLogged(LENGTH_MESSAGE));
    EXPECT_EQ(deviceimage::record(), defaultsOf(noise));
}

TEST_F(HwInfoInitializeTest, TruncatedImageFailsTheConstructorAndStaysUntouched) {
    deviceimage::writeRecord(sample());
    for (off_t size : {deviceimage::RECORD_OFFSET + 348, deviceimage::RECORD_OFFSET - 5}) {
        deviceimage::resize(deviceimage::MMC, size);
        Bytes before = deviceimage::read(deviceimage::MMC, 0, deviceimage::MMC_SIZE);
        try {
            HwInfo hwInfo;
            FAIL() << "a truncated image of " << size << " bytes was opened";
        } catch (std::runtime_error const& error) {
            EXPECT_NE(std::string(error.what()).find("ends before the block"), std::string::npos)
                << error.what();
        }
        EXPECT_EQ(deviceimage::fileSize(deviceimage::MMC), size);
        EXPECT_EQ(deviceimage::read(deviceimage::MMC, 0, deviceimage::MMC_SIZE), before);
    }
    EXPECT_EQ(deviceimage::registerWord(), REGISTER);
}

TEST_F(HwInfoInitializeTest, DeviceThatCannotBeOpenedFailsTheConstructor) {
    for (char const* device : {deviceimage::MEM, deviceimage::MMC}) {
        ASSERT_EQ(::chmod(device, 0444), 0);
        try {
            HwInfo hwInfo;
            ADD_FAILURE() << device << " opened read-only";
        } catch (std::runtime_error const& error) {
            EXPECT_NE(std::string(error.what()).find("open: Permission denied"), std::string::npos)
                << error.what();
        }
        ASSERT_EQ(::chmod(device, 0644), 0);
    }
}

} // namespace
