// HwInfo reads and writes by key on a valid record: the bytes each write
// leaves in the eMMC image and the register, and what a refused write keeps.
#include "deviceimage.h"
#include "hwinfo.h"
#include "recordimage.h"

#include <cstdio>
#include <cstdlib>
#include <gtest/gtest.h>
#include <memory>
#include <stdexcept>
#include <string>

namespace {

using deviceimage::Bytes;
using namespace recordimage;

constexpr std::uint32_t REGISTER = 0x80000013;
constexpr off_t WORD_AFTER_REGISTER = deviceimage::REGISTER_ADDRESS + 4;

class HwInfoAccessTest : public testing::Test {
protected:
    void SetUp() override {
        deviceimage::zeroMmc();
        deviceimage::writeRecord(sample());
        deviceimage::setRegisterWord(REGISTER);
        deviceimage::writeWord(deviceimage::MEM, WORD_AFTER_REGISTER, 0x11223344);
        hwInfo = std::make_unique<HwInfo>();
        hwInfo->initialize();
    }

    // The record as it is with one text of it replaced, checksum refreshed.
    static Bytes withText(std::size_t at, std::string const& text) {
        Bytes expected = sample();
        putText(expected, at, text);
        seal(expected);
        return expected;
    }

    // Runs a write that must be refused with an error containing message and
    // checks that neither the record nor the register changed.
    template <class Error, class Write>
    void expectRefused(Write write, std::string const& message) {
        Bytes before = deviceimage::record();
        try {
            write();
            ADD_FAILURE() << "accepted; expected " << message;
        } catch (Error const& error) {
            EXPECT_NE(std::string(error.what()).find(message), std::string::npos) << error.what();
        }
        EXPECT_EQ(deviceimage::record(), before);
        EXPECT_EQ(deviceimage::registerWord(), REGISTER);
    }

    std::unique_ptr<HwInfo> hwInfo;
};

TEST_F(HwInfoAccessTest, TextReadsGiveEveryKindInItsTextForm) {
    std::string text;
    ASSERT_TRUE(hwInfo->read("board", text));
    EXPECT_EQ(text, "mainboard-b");
    ASSERT_TRUE(hwInfo->read("knob_position_max", text));
    EXPECT_EQ(text, "136007");
    ASSERT_TRUE(hwInfo->read("version", text));
    EXPECT_EQ(text, "5");
    ASSERT_TRUE(hwInfo->read("boot_failed", text));
    EXPECT_EQ(text, "1");
    ASSERT_TRUE(hwInfo->read("boot_failed_counter", text));
    EXPECT_EQ(text, "3");
    ASSERT_TRUE(hwInfo->read("unused", text));
    EXPECT_EQ(text, "0");
}

TEST_F(HwInfoAccessTest, UpdateRequestedReadsAsZeroOrOne) {
    std::string text;
    ASSERT_TRUE(hwInfo->read("update_requested", text));
    EXPECT_EQ(text, "1");
    deviceimage::setRegisterWord(0x7FFFFFFF);
    ASSERT_TRUE(hwInfo->read("update_requested", text));
    EXPECT_EQ(text, "0");
}

TEST_F(HwInfoAccessTest, TypedReadsTakeTheWordAtTheFieldsByte) {
    unsigned int number = 0;
    ASSERT_TRUE(hwInfo->read("cal_bemf", number));
    EXPECT_EQ(number, 164007u);
    ASSERT_TRUE(hwInfo->read("length", number));
    EXPECT_EQ(number, 348u);
    // The register's Bits fields as whole words, at their rounded-up bytes.
    ASSERT_TRUE(hwInfo->read("update_requested", number));
    EXPECT_EQ(number, REGISTER);
    ASSERT_TRUE(hwInfo->read("boot_failed_counter", number));
    EXPECT_EQ(number, 0x11223344u);
}

TEST_F(HwInfoAccessTest, TypedWriteStoresLittleEndianAndRefreshesTheChecksum) {
    ASSERT_TRUE(hwInfo->write("knob_position_max", 0xDEADBEEFu));
    Bytes expected = sample();
    putWord(expected, KNOB_POSITION_MAX, 0xDEADBEEF);
    seal(expected);
    EXPECT_EQ(deviceimage::record(), expected);
    EXPECT_EQ(deviceimage::read(deviceimage::MMC, deviceimage::RECORD_OFFSET + 136, 4),
              (Bytes{0xEF, 0xBE, 0xAD, 0xDE}));
}

TEST_F(HwInfoAccessTest, TypedWritesStayInsideTheirField) {
    // A text field takes no typed number: refused, nothing written.
    expectRefused<std::runtime_error>([&] { hwInfo->write("board", 7u); },
                                      "board is a text field.");
    // A Bits field takes only its own bits, the value cut to its width; the
    // register's other bits and the word after it are kept.
    ASSERT_TRUE(hwInfo->write("boot_failed_counter", 0xFFFFFFFFu));
    EXPECT_EQ(deviceimage::registerWord(), 0x8000001Fu);
    ASSERT_TRUE(hwInfo->write("update_requested", 2u));
    EXPECT_EQ(deviceimage::registerWord(), 0x0000001Fu);
    ASSERT_TRUE(hwInfo->write("boot_failed", 0u));
    EXPECT_EQ(deviceimage::registerWord(), 0x0000000Fu);
    ASSERT_TRUE(hwInfo->write("update_requested", 3u));
    EXPECT_EQ(deviceimage::registerWord(), 0x8000000Fu);
    EXPECT_EQ(deviceimage::readWord(deviceimage::MEM, WORD_AFTER_REGISTER), 0x11223344u);
    std::string text;
    ASSERT_TRUE(hwInfo->read("boot_failed_counter", text));
    EXPECT_EQ(text, "15");
    // The record is untouched by the register's writes (its checksum refreshed
    // over the same bytes).
    EXPECT_EQ(deviceimage::record(), sample());
    // An Int field takes the four bytes of its own.
    ASSERT_TRUE(hwInfo->write("knob_position_min", 0xA5A5A5A5u));
    Bytes expected = sample();
    putWord(expected, KNOB_POSITION_MIN, 0xA5A5A5A5u);
    seal(expected);
    EXPECT_EQ(deviceimage::record(), expected);
}

TEST_F(HwInfoAccessTest, TextWriteStoresTheTextAndRefreshesTheChecksum) {
    ASSERT_TRUE(hwInfo->write("board", "mainboard-c"));
    EXPECT_EQ(deviceimage::record(), withText(BOARD, "mainboard-c"));
    ASSERT_TRUE(hwInfo->write("knob_position_min", "42"));
    unsigned int number = 0;
    hwInfo->read("knob_position_min", number);
    EXPECT_EQ(number, 42u);
    EXPECT_EQ(word(deviceimage::record(), CHECKSUM), checksumOf(deviceimage::record(), 348));
}

TEST_F(HwInfoAccessTest, TextWriteDoesNotReachTheRegister) {
    Bytes before = deviceimage::record();
    EXPECT_FALSE(hwInfo->write("update_requested", "0"));
    EXPECT_EQ(deviceimage::registerWord(), REGISTER);
    EXPECT_EQ(deviceimage::record(), before);
}

TEST_F(HwInfoAccessTest, AssignmentValueMayHoldAnEqualsSign) {
    ASSERT_TRUE(hwInfo->write(std::string("serial=AB=1")));
    EXPECT_EQ(deviceimage::record(), withText(SERIAL, "AB=1"));
    std::string text;
    hwInfo->read("serial", text);
    EXPECT_EQ(text, "AB=1");
}

TEST_F(HwInfoAccessTest, AssignmentWithoutEqualsSignIsRefused) {
    Bytes before = deviceimage::record();
    EXPECT_FALSE(hwInfo->write(std::string("serial")));
    EXPECT_FALSE(hwInfo->check("serial"));
    EXPECT_EQ(deviceimage::record(), before);
}

TEST_F(HwInfoAccessTest, AssignmentToTheCounterStoresItsLowFourBits) {
    deviceimage::setRegisterWord(0xFFFFFFF0);
    // A byte of "k" changed behind the record's back: the write's checksum covers it.
    deviceimage::write(deviceimage::MMC, deviceimage::RECORD_OFFSET + K, {'K'});
    ASSERT_TRUE(hwInfo->write(std::string("boot_failed_counter=17")));
    EXPECT_EQ(deviceimage::registerWord(), 0xFFFFFFF1u);
    Bytes expected = sample();
    expected[K] = 'K';
    seal(expected);
    EXPECT_EQ(deviceimage::record(), expected);
    EXPECT_EQ(deviceimage::readWord(deviceimage::MEM, WORD_AFTER_REGISTER), 0x11223344u);
}

TEST_F(HwInfoAccessTest, AssignmentsToTheRegisterKeepItsOtherBits) {
    ASSERT_TRUE(hwInfo->write(std::string("update_requested=0")));
    EXPECT_EQ(deviceimage::registerWord(), 0x00000013u);
    ASSERT_TRUE(hwInfo->write(std::string("boot_failed=0")));
    EXPECT_EQ(deviceimage::registerWord(), 0x00000003u);
    ASSERT_TRUE(hwInfo->write(std::string("unused=67108863")));
    EXPECT_EQ(deviceimage::registerWord(), 0x7FFFFFE3u);
    EXPECT_EQ(deviceimage::record(), sample());
}

TEST_F(HwInfoAccessTest, PrivateKeysAreRefusedInEveryWriteForm) {
    for (char const* key : {"version", "length", "checksum"}) {
        std::string message = std::string(key) + " is private.";
        expectRefused<std::runtime_error>([&] { hwInfo->write(std::string(key) + "=4"); }, message);
        expectRefused<std::runtime_error>([&] { hwInfo->write(key, 4u); }, message);
        expectRefused<std::runtime_error>([&] { hwInfo->write(key, "4"); }, message);
        expectRefused<std::runtime_error>([&] { hwInfo->check(std::string(key) + "=4"); }, message);
    }
}

TEST_F(HwInfoAccessTest, PrivateRefusalIsLoggedAtError) {
    deviceimage::KernelLog log;
    EXPECT_THROW(hwInfo->write(std::string("version=4")), std::runtime_error);
    std::string line = log.line("version is private.");
    ASSERT_FALSE(line.empty());
    EXPECT_EQ(line.substr(22, 12), "Error       ");
}

TEST_F(HwInfoAccessTest, TooLongTextIsRefused) {
    std::string tooLong(29, 'x');
    expectRefused<std::runtime_error>([&] { hwInfo->write("serial", tooLong.c_str()); },
                                      "String too long");
    expectRefused<std::runtime_error>([&] { hwInfo->write("serial=" + tooLong); },
                                      "String too long");
    expectRefused<std::runtime_error>([&] { hwInfo->check("serial=" + tooLong); },
                                      "String too long");
    std::string longest(178, 'y');
    ASSERT_TRUE(hwInfo->write("knob_linearization", longest.c_str()));
    EXPECT_EQ(deviceimage::record(), withText(KNOB_LINEARIZATION, longest));
    expectRefused<std::runtime_error>(
        [&] { hwInfo->write("knob_linearization", (longest + "y").c_str()); }, "String too long");
}

TEST_F(HwInfoAccessTest, TextThatIsNotANumberIsRefused) {
    for (char const* assignment : {"bemf_gain=abc", "boot_failed_counter=x1", "cal_comp="}) {
        expectRefused<std::invalid_argument>([&] { hwInfo->write(std::string(assignment)); },
                                             "stoul");
        expectRefused<std::invalid_argument>([&] { hwInfo->check(assignment); }, "stoul");
    }
    expectRefused<std::out_of_range>([&] { hwInfo->write(std::string("cal_comp=4294967296")); },
                                     "stoul");
}

TEST_F(HwInfoAccessTest, UnknownKeyReadsAndWritesNothing) {
    // A stale checksum shows that a refused write does not refresh it either.
    deviceimage::write(deviceimage::MMC, deviceimage::RECORD_OFFSET + K, {'K'});
    Bytes before = deviceimage::record();
    std::string text = "kept";
    unsigned int number = 9;
    EXPECT_FALSE(hwInfo->read("Serial", text));
    EXPECT_FALSE(hwInfo->read("nothing", number));
    EXPECT_EQ(text, "kept");
    EXPECT_EQ(number, 9u);
    EXPECT_FALSE(hwInfo->write("nothing", 1u));
    EXPECT_FALSE(hwInfo->write("nothing", "1"));
    EXPECT_FALSE(hwInfo->write(std::string("nothing=1")));
    EXPECT_FALSE(hwInfo->write(std::string("=1")));
    EXPECT_FALSE(hwInfo->check("nothing=1"));
    EXPECT_EQ(deviceimage::record(), before);
    EXPECT_EQ(deviceimage::registerWord(), REGISTER);
}

TEST_F(HwInfoAccessTest, CheckAcceptsValidAssignmentsWithoutWriting) {
    for (char const* assignment : {"serial=1234", "cal_comp=12", "update_requested=0",
                                   "boot_failed_counter=15", "knob_linearization="}) {
        EXPECT_TRUE(hwInfo->check(assignment)) << assignment;
    }
    EXPECT_EQ(deviceimage::record(), sample());
    EXPECT_EQ(deviceimage::registerWord(), REGISTER);
}

TEST_F(HwInfoAccessTest, ClearResetsTheRecordAndKeepsTheRegister) {
    hwInfo->clear();
    EXPECT_EQ(deviceimage::record(), defaultsOf(sample()));
    EXPECT_EQ(deviceimage::registerWord(), REGISTER);
}

TEST_F(HwInfoAccessTest, InitNewMemoryOfAFullRecordRefreshesOnlyChecksumAndVersion) {
    deviceimage::write(deviceimage::MMC, deviceimage::RECORD_OFFSET, {9, 0, 0, 0});
    deviceimage::write(deviceimage::MMC, deviceimage::RECORD_OFFSET + K, {'K'});
    hwInfo->initNewMemory(348);
    Bytes expected = sample();
    expected[K] = 'K';
    seal(expected);
    EXPECT_EQ(deviceimage::record(), expected);
}

TEST_F(HwInfoAccessTest, PrintAllShowsTheRecordAndThenTheRegister) {
    testing::internal::CaptureStdout();
    hwInfo->printAll();
    std::fflush(stdout);
    std::string output = testing::internal::GetCapturedStdout();
    char checksumLine[80];
    std::uint32_t checksum = word(sample(), CHECKSUM);
    std::snprintf(checksumLine, sizeof checksumLine, "                 checksum: %9u (0x%08x)\n",
                  checksum, checksum);
    std::string expected = "                  version:         5 (0x00000005)\n"
                           "                   length:       348 (0x0000015c)\n" +
                           std::string(checksumLine) +
                           "                   serial: SN-0042\n"
                           "                    board: mainboard-b\n"
                           "                 revision: 2.3\n"
                           "                        k: k-factor 1.25\n"
                           "        knob_position_min:    132007 (0x000203a7)\n"
                           "        knob_position_max:    136007 (0x00021347)\n"
                           "      slider_position_min:    140007 (0x000222e7)\n"
                           "      slider_position_max:    144007 (0x00023287)\n"
                           "          zoom_zero_pos_x:    148007 (0x00024227)\n"
                           "          zoom_zero_pos_y:    152007 (0x000251c7)\n"
                           "                bemf_gain:    156007 (0x00026167)\n"
                           "                 cal_comp:    160007 (0x00027107)\n"
                           "                 cal_bemf:    164007 (0x000280a7)\n"
                           "       knob_linearization: 0,12,25,37,50,62,75,87,100\n"
                           "         update_requested:         1 (0x00000001)\n"
                           "              boot_failed:         1 (0x00000001)\n"
                           "      boot_failed_counter:         3 (0x00000003)\n";
    EXPECT_EQ(output, expected);
}

TEST_F(HwInfoAccessTest, PrintParametersNamesTheWritableFields) {
    char* text = nullptr;
    std::size_t length = 0;
    FILE* stream = open_memstream(&text, &length);
    hwInfo->printParameters(stream);
    std::fclose(stream);
    std::string printed(text, length);
    std::free(text);
    EXPECT_EQ(printed, "serial board revision k knob_position_min knob_position_max "
                       "slider_position_min slider_position_max zoom_zero_pos_x zoom_zero_pos_y "
                       "bemf_gain cal_comp cal_bemf knob_linearization update_requested "
                       "boot_failed boot_failed_counter");
}

} // namespace
