// PersistentInfo on the device root's eMMC and physical-memory images; every
// operation is followed by a plain read of the image bytes.
#include "deviceimage.h"
#include "logline.h"
#include "persistentinfo.h"

#include <cstdio>
#include <cstdlib>
#include <gtest/gtest.h>
#include <stdexcept>
#include <string>
#include <sys/stat.h>

namespace {

using deviceimage::Bytes;
using PI = PersistentInfo;

constexpr unsigned int BLOCK = 0x100000;
constexpr unsigned int REGION = 0x10000;

void addInt(PI& block, char const* name, unsigned int flags = 0) {
    block.addInfo(std::make_unique<PI::Int>(name, flags));
}

void addString(PI& block, char const* name, unsigned int length, unsigned int flags = 0) {
    block.addInfo(std::make_unique<PI::String>(name, flags, length));
}

void addBits(PI& block, char const* name, unsigned int width, unsigned int flags = 0) {
    block.addInfo(std::make_unique<PI::Bits>(name, flags, width));
}

Bytes blockBytes(unsigned int offset, std::size_t count) {
    return deviceimage::read(deviceimage::MMC, offset, count);
}

std::string parameters(PI const& block) {
    char* text = nullptr;
    std::size_t length = 0;
    FILE* stream = open_memstream(&text, &length);
    block.printParameters(stream);
    std::fclose(stream);
    std::string result(text, length);
    std::free(text);
    return result;
}

std::string printed(PI const& block) {
    testing::internal::CaptureStdout();
    block.printAll();
    std::fflush(stdout);
    return testing::internal::GetCapturedStdout();
}

class PersistentInfoTest : public testing::Test {
protected:
    void SetUp() override { deviceimage::zeroMmc(); }
};

TEST_F(PersistentInfoTest, BlockWithoutFieldsHasSizeZeroAndDoesNothing) {
    Bytes pattern(REGION, 0xA5);
    deviceimage::writeRecord(pattern);
    PI block(deviceimage::MMC, BLOCK, REGION);
    EXPECT_EQ(block.size(), 0u);
    unsigned int number = 7;
    std::string text = "kept";
    EXPECT_FALSE((block.get<PI::Int, unsigned int>("a", number)));
    EXPECT_FALSE((block.set<PI::Int, unsigned int>("a", 1u, true)));
    EXPECT_FALSE((block.get<PI::Base, std::string>("a", text)));
    char const* value = "x";
    EXPECT_FALSE((block.set<PI::Base, char const*>("a", value, true)));
    EXPECT_EQ(number, 7u);
    EXPECT_EQ(text, "kept");
    block.clearAll();
    EXPECT_EQ(printed(block), "");
    EXPECT_EQ(parameters(block), "");
    EXPECT_EQ(deviceimage::record(), pattern);
}

TEST_F(PersistentInfoTest, FieldsFollowEachOtherFromUnroundedPositions) {
    PI block(deviceimage::MMC, BLOCK, REGION);
    addBits(block, "top", 3);    // bits 31..29 of word 0
    addInt(block, "number");     // position 3: byte 1
    addString(block, "text", 4); // position 35: byte 5
    addBits(block, "low", 5);    // position 67: word 2, bits 28..24
    EXPECT_EQ(block.size(), (3u + 32 + 32 + 5 + 7) / 8);

    char const* text = "ab";
    ASSERT_TRUE((block.set<PI::Int, unsigned int>("number", 0x44332211u, false)));
    ASSERT_TRUE((block.set<PI::Base, char const*>("text", text, false)));
    char const* top = "7";
    char const* low = "31";
    ASSERT_TRUE((block.set<PI::Base, char const*>("top", top, false)));
    ASSERT_TRUE((block.set<PI::Base, char const*>("low", low, false)));

    // "top" is bits 31..29 of word 0, the high bits of byte 3, which the Int
    // (bytes 1 to 4) shares; "low" is bits 28..24 of word 2, in byte 11.
    Bytes expected = {0x00, 0x11, 0x22, 0x33 | 0xE0, 0x44, 'a', 'b', 0, 0, 0, 0, 0x1F};
    EXPECT_EQ(blockBytes(BLOCK, 12), expected);

    unsigned int number = 0;
    ASSERT_TRUE((block.get<PI::Int, unsigned int>("number", number)));
    EXPECT_EQ(number, 0x44F32211u);
    std::string value;
    ASSERT_TRUE((block.get<PI::Base, std::string>("low", value)));
    EXPECT_EQ(value, "31");
}

TEST_F(PersistentInfoTest, BitsParametersCountFromTheMostSignificantBit) {
    PI::Bits bits("b", 0, 4);
    unsigned int mask = 0;
    unsigned int shift = 0;
    EXPECT_EQ(bits.getParams(0, mask, shift), 0u);
    EXPECT_EQ(mask, 0xFu);
    EXPECT_EQ(shift, 28u);
    EXPECT_EQ(bits.getParams(860, mask, shift), 104u);
    EXPECT_EQ(shift, 0u);
    PI::Bits wide("w", 0, 32);
    EXPECT_EQ(wide.getParams(64, mask, shift), 8u);
    EXPECT_EQ(mask, 0xFFFFFFFFu);
    EXPECT_EQ(shift, 0u);
}

TEST_F(PersistentInfoTest, ChecksumOfTwelveOrFewerBytesIsTheInitialValue) {
    deviceimage::writeRecord(Bytes(64, 0x5C));
    PI block(deviceimage::MMC, BLOCK, REGION);
    EXPECT_EQ(block.checksum(12), 0xFFFFFFFFu);
    EXPECT_EQ(block.checksum(0), 0xFFFFFFFFu);
    EXPECT_EQ(block.checksum(5), 0xFFFFFFFFu);
}

TEST_F(PersistentInfoTest, ChecksumOfThirteenCoversExactlyByteTwelve) {
    PI block(deviceimage::MMC, BLOCK, REGION);
    unsigned int zero = block.checksum(13);
    deviceimage::write(deviceimage::MMC, BLOCK + 13, {0xFF, 0xFF});
    deviceimage::write(deviceimage::MMC, BLOCK + 0, {0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF});
    EXPECT_EQ(block.checksum(13), zero);
    deviceimage::write(deviceimage::MMC, BLOCK + 12, {0x01});
    EXPECT_NE(block.checksum(13), zero);
}

TEST_F(PersistentInfoTest, StringOfThirtyTakesTwentyEightCharacters) {
    PI block(deviceimage::MMC, BLOCK, REGION);
    addString(block, "text", 30);
    addString(block, "next", 30);
    deviceimage::write(deviceimage::MMC, BLOCK, Bytes(60, 'x'));

    std::string longest(28, 'L');
    char const* text = longest.c_str();
    ASSERT_TRUE((block.set<PI::Base, char const*>("text", text, false)));
    Bytes expected(60, 'x');
    std::copy(longest.begin(), longest.end(), expected.begin());
    expected[28] = 0;
    EXPECT_EQ(blockBytes(BLOCK, 60), expected);

    std::string tooLong(29, 'T');
    char const* refused = tooLong.c_str();
    deviceimage::KernelLog log;
    try {
        block.set<PI::Base, char const*>("text", refused, false);
        FAIL() << "29 characters were accepted";
    } catch (std::runtime_error const& error) {
        EXPECT_NE(std::string(error.what()).find("String too long"), std::string::npos);
        EXPECT_TRUE(
            testsupport::isLocatedMessage(error.what(), "persistentinfo.cpp", "String too long"));
    }
    EXPECT_TRUE(log.contains("String too long"));
    EXPECT_TRUE(testsupport::isLogLine(log.line("String too long"), gen::Error,
                                       "persistentinfo.cpp", "String too long"));
    EXPECT_EQ(blockBytes(BLOCK, 60), expected);
}

TEST_F(PersistentInfoTest, EmptyTextChangesOnlyTheFirstByte) {
    PI block(deviceimage::MMC, BLOCK, REGION);
    addString(block, "text", 30);
    deviceimage::write(deviceimage::MMC, BLOCK, Bytes(30, 'x'));
    char const* empty = "";
    ASSERT_TRUE((block.set<PI::Base, char const*>("text", empty, false)));
    Bytes expected(30, 'x');
    expected[0] = 0;
    EXPECT_EQ(blockBytes(BLOCK, 30), expected);
}

TEST_F(PersistentInfoTest, TextLongerThanItsNewValueKeepsItsTail) {
    PI block(deviceimage::MMC, BLOCK, REGION);
    addString(block, "text", 10);
    char const* first = "abcdefgh";
    char const* second = "XY";
    block.set<PI::Base, char const*>("text", first, false);
    block.set<PI::Base, char const*>("text", second, false);
    EXPECT_EQ(blockBytes(BLOCK, 10), (Bytes{'X', 'Y', 0, 'd', 'e', 'f', 'g', 'h', 0, 0}));
    std::string value;
    block.get<PI::Base, std::string>("text", value);
    EXPECT_EQ(value, "XY");
}

TEST_F(PersistentInfoTest, TextWithoutTerminatorIsReadUpToItsOwnEnd) {
    PI block(deviceimage::MMC, BLOCK, REGION);
    addString(block, "text", 8);
    addString(block, "next", 8);
    deviceimage::write(deviceimage::MMC, BLOCK, Bytes(16, 'z'));
    deviceimage::write(deviceimage::MMC, BLOCK + 8, {'n', 0});
    std::string value;
    ASSERT_TRUE((block.get<PI::Base, std::string>("text", value)));
    EXPECT_EQ(value, std::string(8, 'z'));
}

TEST_F(PersistentInfoTest, TextAtTheEndOfTheImageWithoutTerminatorStaysInside) {
    // The block ends where the image file ends: a read past the field would fault.
    unsigned int offset = deviceimage::MMC_SIZE - 4096;
    PI block(deviceimage::MMC, offset, 4096);
    addString(block, "text", 4096);
    deviceimage::write(deviceimage::MMC, offset, Bytes(4096, 'e'));
    std::string value;
    ASSERT_TRUE((block.get<PI::Base, std::string>("text", value)));
    EXPECT_EQ(value, std::string(4096, 'e'));
}

TEST_F(PersistentInfoTest, OneBitFieldStoresOnlyItsBit) {
    PI block(deviceimage::MMC, BLOCK, REGION);
    addBits(block, "high", 7);
    addBits(block, "flag", 1);
    deviceimage::writeWord(deviceimage::MMC, BLOCK, 0x12345678);
    char const* five = "5";
    ASSERT_TRUE((block.set<PI::Base, char const*>("flag", five, false)));
    EXPECT_EQ(deviceimage::readWord(deviceimage::MMC, BLOCK), 0x12345678u | 0x01000000u);
    std::string value;
    block.get<PI::Base, std::string>("flag", value);
    EXPECT_EQ(value, "1");
    char const* zero = "0";
    block.set<PI::Base, char const*>("flag", zero, false);
    EXPECT_EQ(deviceimage::readWord(deviceimage::MMC, BLOCK), 0x12345678u);
}

TEST_F(PersistentInfoTest, IntTakesTheLeadingNumberOfItsText) {
    PI block(deviceimage::MMC, BLOCK, REGION);
    addInt(block, "number");
    char const* text = "12abc";
    ASSERT_TRUE((block.set<PI::Base, char const*>("number", text, false)));
    EXPECT_EQ(blockBytes(BLOCK, 4), (Bytes{12, 0, 0, 0}));
    char const* signs[][2] = {{" +7", "7"},
                              {"-1", "4294967295"},
                              {"4294967295", "4294967295"},
                              {"\t-4294967295", "1"},
                              {"0x10", "0"}};
    for (auto const& [input, stored] : signs) {
        block.set<PI::Base, char const*>("number", input, false);
        std::string value;
        block.get<PI::Base, std::string>("number", value);
        EXPECT_EQ(value, stored) << input;
    }
}

TEST_F(PersistentInfoTest, TextWithoutDigitsRaisesTheStoulError) {
    PI block(deviceimage::MMC, BLOCK, REGION);
    addInt(block, "number");
    addBits(block, "bits", 4);
    deviceimage::write(deviceimage::MMC, BLOCK, {1, 2, 3, 4, 0xF5, 6, 7, 8});
    for (char const* name : {"number", "bits"}) {
        char const* text = "abc";
        try {
            block.set<PI::Base, char const*>(name, text, false);
            FAIL() << name << " took abc";
        } catch (std::invalid_argument const& error) {
            EXPECT_STREQ(error.what(), "stoul");
        }
        EXPECT_THROW(block.check(name, text, false), std::invalid_argument);
    }
    EXPECT_EQ(blockBytes(BLOCK, 8), (Bytes{1, 2, 3, 4, 0xF5, 6, 7, 8}));
}

TEST_F(PersistentInfoTest, NumberBeyondThirtyTwoBitsRaisesTheStoulRangeError) {
    PI block(deviceimage::MMC, BLOCK, REGION);
    addInt(block, "number");
    addBits(block, "bits", 4);
    deviceimage::write(deviceimage::MMC, BLOCK, {1, 2, 3, 4, 0xF5, 6, 7, 8});
    for (char const* name : {"number", "bits"}) {
        for (char const* text : {"4294967296", "-4294967296", "99999999999999999999999"}) {
            try {
                block.set<PI::Base, char const*>(name, text, false);
                FAIL() << name << " took " << text;
            } catch (std::out_of_range const& error) {
                EXPECT_STREQ(error.what(), "stoul");
            }
        }
    }
    EXPECT_EQ(blockBytes(BLOCK, 8), (Bytes{1, 2, 3, 4, 0xF5, 6, 7, 8}));
}

TEST_F(PersistentInfoTest, UnalignedBlockReadsItsFirstIntAtItsFirstByte) {
    constexpr unsigned int UNALIGNED = BLOCK + 0x123;
    deviceimage::write(deviceimage::MMC, UNALIGNED - 1, {0xEE, 0x78, 0x56, 0x34, 0x12, 0xEE});
    PI block(deviceimage::MMC, UNALIGNED, 16);
    addInt(block, "first");
    unsigned int value = 0;
    ASSERT_TRUE((block.get<PI::Int, unsigned int>("first", value)));
    EXPECT_EQ(value, 0x12345678u);
    block.set<PI::Int, unsigned int>("first", 0xA1B2C3D4u, false);
    EXPECT_EQ(blockBytes(UNALIGNED - 1, 6), (Bytes{0xEE, 0xD4, 0xC3, 0xB2, 0xA1, 0xEE}));
}

TEST_F(PersistentInfoTest, RegisterBlockReadsTheWordAtItsPhysicalAddress) {
    deviceimage::setRegisterWord(0xCAFEF00D);
    PI block(deviceimage::MEM, deviceimage::REGISTER_ADDRESS, 4);
    addInt(block, "word");
    unsigned int value = 0;
    ASSERT_TRUE((block.get<PI::Int, unsigned int>("word", value)));
    EXPECT_EQ(value, 0xCAFEF00Du);
}

TEST_F(PersistentInfoTest, PrivateFieldIsWrittenOnlyWithForce) {
    PI block(deviceimage::MMC, BLOCK, REGION);
    addInt(block, "secret", PI::Private);
    deviceimage::write(deviceimage::MMC, BLOCK, {9, 9, 9, 9});
    deviceimage::KernelLog log;
    char const* text = "1";
    for (int form = 0; form < 3; ++form) {
        try {
            if (form == 0) {
                block.set<PI::Int, unsigned int>("secret", 1u, false);
            } else if (form == 1) {
                block.set<PI::Base, char const*>("secret", text, false);
            } else {
                block.check("secret", text, false);
            }
            FAIL() << "form " << form << " wrote a private field";
        } catch (std::runtime_error const& error) {
            EXPECT_NE(std::string(error.what()).find("secret is private."), std::string::npos);
            EXPECT_TRUE(testsupport::isLocatedMessage(error.what(), "persistentinfo.cpp",
                                                      "secret is private."));
        }
    }
    EXPECT_TRUE(log.contains("secret is private."));
    EXPECT_TRUE(testsupport::isLogLine(log.line("secret is private."), gen::Error,
                                       "persistentinfo.cpp", "secret is private."));
    EXPECT_EQ(blockBytes(BLOCK, 4), (Bytes{9, 9, 9, 9}));
    unsigned int value = 0;
    EXPECT_TRUE((block.get<PI::Int, unsigned int>("secret", value)));
    EXPECT_EQ(value, 0x09090909u);
    EXPECT_TRUE((block.set<PI::Int, unsigned int>("secret", 2u, true)));
    EXPECT_EQ(blockBytes(BLOCK, 4), (Bytes{2, 0, 0, 0}));
}

TEST_F(PersistentInfoTest, UnknownNameReturnsFalseAndWritesNothing) {
    PI block(deviceimage::MMC, BLOCK, REGION);
    addInt(block, "number");
    deviceimage::write(deviceimage::MMC, BLOCK, {4, 3, 2, 1});
    char const* text = "5";
    EXPECT_FALSE((block.set<PI::Int, unsigned int>("Number", 5u, true)));
    EXPECT_FALSE((block.set<PI::Base, char const*>("numbe", text, true)));
    EXPECT_FALSE(block.check("number ", text, true));
    EXPECT_EQ(blockBytes(BLOCK, 4), (Bytes{4, 3, 2, 1}));
}

TEST_F(PersistentInfoTest, ClearAllEmptiesEveryFieldAndKeepsTheRest) {
    PI block(deviceimage::MMC, BLOCK, REGION);
    addInt(block, "secret", PI::Private);
    addBits(block, "bits", 4);
    addBits(block, "hidden", 4, PI::Hidden);
    addString(block, "text", 7); // position 40: bytes 5..11
    deviceimage::write(deviceimage::MMC, BLOCK, Bytes(16, 0xFF));
    block.clearAll();
    // Word 1: the two Bits fields cleared (bits 31..24), the rest of the word kept;
    // its byte 4 (lowest) is kept, byte 7 (highest) cleared.  The text's first byte is 0.
    Bytes expected = {0,    0,    0,    0,    0xFF, 0,    0xFF, 0x00,
                      0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF};
    EXPECT_EQ(deviceimage::readWord(deviceimage::MMC, BLOCK + 4), 0x00FF00FFu);
    EXPECT_EQ(blockBytes(BLOCK, 16), expected);
}

TEST_F(PersistentInfoTest, PrintAllWritesEveryFieldThatIsNotHidden) {
    PI block(deviceimage::MMC, BLOCK, REGION);
    addInt(block, "secret", PI::Private);
    addString(block, "text", 12);
    addBits(block, "flag", 1);
    addBits(block, "skipped", 3, PI::Hidden);
    addBits(block, "count", 4);
    block.set<PI::Int, unsigned int>("secret", 305419896u, true);
    char const* three = "3";
    char const* seven = "7";
    char const* one = "1";
    char const* text = "hello";
    block.set<PI::Base, char const*>("skipped", seven, false);
    block.set<PI::Base, char const*>("count", three, false);
    block.set<PI::Base, char const*>("flag", one, false);
    block.set<PI::Base, char const*>("text", text, false);
    EXPECT_EQ(printed(block), "                   secret: 305419896 (0x12345678)\n"
                              "                     text: hello\n"
                              "                     flag:         1 (0x00000001)\n"
                              "                    count:         3 (0x00000003)\n");
}

TEST_F(PersistentInfoTest, PrintParametersListsFieldsWithoutFlags) {
    PI block(deviceimage::MMC, BLOCK, REGION);
    addInt(block, "secret", PI::Private);
    addInt(block, "first");
    addBits(block, "hidden", 4, PI::Hidden);
    addBits(block, "second", 4);
    addString(block, "third", 4);
    EXPECT_EQ(parameters(block), "first second third");
}

TEST_F(PersistentInfoTest, NewMemoryIsZeroedExactlyInItsRange) {
    deviceimage::writeRecord(Bytes(64, 0x77));
    PI block(deviceimage::MMC, BLOCK, REGION);
    block.setNewMemToDefault(10, 20);
    Bytes expected(64, 0x77);
    std::fill(expected.begin() + 10, expected.begin() + 20, 0);
    EXPECT_EQ(blockBytes(BLOCK, 64), expected);
    block.setNewMemToDefault(30, 30);
    block.setNewMemToDefault(40, 35);
    EXPECT_EQ(blockBytes(BLOCK, 64), expected);
}

TEST_F(PersistentInfoTest, RangesPastTheBlockAreRefusedWithoutTouchingIt) {
    unsigned int offset = deviceimage::MMC_SIZE - 4096;
    deviceimage::write(deviceimage::MMC, offset, Bytes(4096, 0x3C));
    PI block(deviceimage::MMC, offset, 4096);
    EXPECT_NO_THROW(block.checksum(4096));
    EXPECT_THROW(block.checksum(4097), std::runtime_error);
    EXPECT_THROW(block.checksum(0xFFFFFFFF), std::runtime_error);
    EXPECT_THROW(block.setNewMemToDefault(0, 4097), std::runtime_error);
    EXPECT_EQ(blockBytes(offset, 4096), Bytes(4096, 0x3C));
}

TEST_F(PersistentInfoTest, FieldsThatDoNotFitAreRefused) {
    PI block(deviceimage::MMC, BLOCK, 8);
    addInt(block, "first");
    EXPECT_THROW(addString(block, "text", 5), std::runtime_error);
    addBits(block, "bits", 30);
    EXPECT_THROW(addBits(block, "across", 3), std::runtime_error);
    addBits(block, "last", 2);
    EXPECT_THROW(addBits(block, "beyond", 1), std::runtime_error);
    EXPECT_EQ(block.size(), 8u);
    EXPECT_THROW(PI::Bits("none", 0, 0), std::runtime_error);
    EXPECT_THROW(PI::Bits("wide", 0, 33), std::runtime_error);
    EXPECT_THROW(PI::String("short", 0, 1), std::runtime_error);
}

TEST_F(PersistentInfoTest, MissingDeviceRaisesTheOpenError) {
    deviceimage::KernelLog log;
    try {
        PI block("/dev/mmcblk9", BLOCK, REGION);
        FAIL() << "a missing device opened";
    } catch (std::runtime_error const& error) {
        EXPECT_NE(std::string(error.what()).find("open: No such file or directory"),
                  std::string::npos)
            << error.what();
    }
    EXPECT_TRUE(log.contains("Error       "));
    EXPECT_TRUE(log.contains("open: No such file or directory"));
}

TEST_F(PersistentInfoTest, DeviceWithoutWriteAccessRaisesTheOpenError) {
    ASSERT_EQ(::chmod(deviceimage::MMC, 0444), 0);
    EXPECT_THROW({ PI block(deviceimage::MMC, BLOCK, REGION); }, std::runtime_error);
    ASSERT_EQ(::chmod(deviceimage::MMC, 0644), 0);
}

TEST_F(PersistentInfoTest, DeviceThatCannotBeMappedRaisesTheMmapError) {
    char const* fifo = "/tmp/persistentinfo-fifo";
    ::unlink(fifo);
    ASSERT_EQ(::mkfifo(fifo, 0600), 0);
    try {
        PI block(fifo, 0, 4);
        FAIL() << "a FIFO was mapped";
    } catch (std::runtime_error const& error) {
        EXPECT_NE(std::string(error.what()).find("mmap: "), std::string::npos) << error.what();
    }
    ::unlink(fifo);
}

TEST_F(PersistentInfoTest, TruncatedImageIsRefusedBeforeMapping) {
    deviceimage::resize(deviceimage::MMC, BLOCK + 100);
    try {
        PI block(deviceimage::MMC, BLOCK, REGION);
        FAIL() << "a block past the end of the image was mapped";
    } catch (std::runtime_error const& error) {
        EXPECT_NE(std::string(error.what()).find("/dev/mmcblk1 ends before the block"),
                  std::string::npos)
            << error.what();
    }
    EXPECT_EQ(deviceimage::fileSize(deviceimage::MMC), BLOCK + 100);
    deviceimage::resize(deviceimage::MMC, BLOCK + REGION);
    EXPECT_NO_THROW({ PI block(deviceimage::MMC, BLOCK, REGION); });
}

} // namespace
