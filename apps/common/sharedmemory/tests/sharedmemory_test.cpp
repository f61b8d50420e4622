#include "settings-service/sharedmemory.h"

#include "kmsgcapture.h"
#include "logline.h"

#include <cstring>
#include <filesystem>
#include <functional>
#include <gtest/gtest.h>
#include <stdexcept>
#include <sys/mman.h>
#include <sys/stat.h>

namespace {

std::string errorText(const std::function<void()>& action) {
    try {
        action();
    } catch (const std::runtime_error& error) {
        return error.what();
    }
    return "no exception";
}

bool objectExists(const char* name) {
    return std::filesystem::exists(std::string("/dev/shm/") + name);
}

uint32_t headerOf(uint8_t* data) {
    uint32_t header;
    std::memcpy(&header, data - 4, sizeof header);
    return header;
}

TEST(SharedMemory, AddressBeforeCreateOrOpenThrows) {
    SharedMemory memory("MemUnopened", 16);
    testsupport::KmsgCapture capture;
    EXPECT_TRUE(testsupport::isLocatedMessage(errorText([&] { memory.address(); }),
                                              "sharedmemory.cpp",
                                              "Call open or create before asking for the address"));
    auto lines = capture.lines();
    ASSERT_EQ(lines.size(), 1u);
    EXPECT_TRUE(testsupport::isLogLine(lines[0], gen::Error, "sharedmemory.cpp",
                                       "Call open or create before asking for the address"));
}

TEST(SharedMemory, CreateSizesTheObjectAndWritesTheHeader) {
    SharedMemory memory("MemCreated", 68);
    EXPECT_FALSE(memory.create());
    uint8_t* data = memory.address();
    EXPECT_EQ(headerOf(data), 68u);
    struct stat status {};
    ASSERT_EQ(stat("/dev/shm/MemCreated", &status), 0);
    EXPECT_EQ(status.st_size, 72);
    EXPECT_EQ(memory.getName(), "/MemCreated");
}

TEST(SharedMemory, TwoAddressCallsReturnTheSamePointer) {
    SharedMemory memory("MemTwice", 8);
    memory.create();
    uint8_t* first = memory.address();
    EXPECT_EQ(memory.address(), first);
}

TEST(SharedMemory, OpeningWithAnotherSizeThrowsMissmatch) {
    SharedMemory creator("MemSized", 68);
    creator.create();
    creator.address();
    SharedMemory reader("MemSized", 72);
    reader.open();
    testsupport::KmsgCapture capture;
    EXPECT_TRUE(
        testsupport::isLocatedMessage(errorText([&] { reader.address(); }), "sharedmemory.cpp",
                                      "Memory size missmatch for /MemSized, requested 72, is 68."));
    auto lines = capture.lines();
    ASSERT_EQ(lines.size(), 1u);
    EXPECT_TRUE(
        testsupport::isLogLine(lines[0], gen::Error, "sharedmemory.cpp",
                               "Memory size missmatch for /MemSized, requested 72, is 68."));
}

TEST(SharedMemory, OpenSeesTheCreatorsData) {
    SharedMemory creator("MemShared", 4);
    creator.create();
    creator.address()[2] = 0x5a;
    SharedMemory reader("MemShared", 4);
    reader.open();
    EXPECT_EQ(reader.address()[2], 0x5a);
}

TEST(SharedMemory, CreateOnAnExistingObjectKeepsContentsAndRewritesTheHeader) {
    {
        SharedMemory first("MemReused", 12);
        first.create();
        uint8_t* data = first.address();
        std::memcpy(data, "persistent", 11);
        // A second creator of another size takes the object over while the first still has it.
        SharedMemory second("MemReused", 8);
        EXPECT_TRUE(second.create());
        uint8_t* again = second.address();
        EXPECT_EQ(headerOf(again), 8u);
        EXPECT_EQ(std::memcmp(again, "persiste", 8), 0);
    }
    EXPECT_FALSE(objectExists("MemReused"));
}

TEST(SharedMemory, OpenOfAMissingObjectThrowsWithTheName) {
    SharedMemory memory("MemMissing", 4);
    testsupport::KmsgCapture capture;
    std::string text = errorText([&] { memory.open(); });
    EXPECT_NE(text.find("/MemMissing"), std::string::npos) << text;
    EXPECT_NE(text.find("No such file or directory"), std::string::npos) << text;
    EXPECT_TRUE(testsupport::isLocatedMessage(text, "sharedmemory.cpp",
                                              "/MemMissing: No such file or directory"));
    auto lines = capture.lines();
    ASSERT_EQ(lines.size(), 1u);
    EXPECT_TRUE(testsupport::isLogLine(lines[0], gen::Error, "sharedmemory.cpp",
                                       "/MemMissing: No such file or directory"));
}

TEST(SharedMemory, CloseOfTheCreatorRemovesTheName) {
    SharedMemory memory("MemRemoved", 4);
    memory.create();
    memory.address();
    ASSERT_TRUE(objectExists("MemRemoved"));
    memory.close();
    EXPECT_FALSE(objectExists("MemRemoved"));
}

TEST(SharedMemory, CloseOfAnInstanceThatOnlyOpenedNeverRemovesTheName) {
    SharedMemory creator("MemKept", 4);
    creator.create();
    creator.address();
    {
        SharedMemory reader("MemKept", 4);
        reader.open();
        reader.address();
        reader.close();
        EXPECT_TRUE(objectExists("MemKept"));
    }
    EXPECT_TRUE(objectExists("MemKept"));
}

TEST(SharedMemory, AFailedRemovalIsLoggedAndIgnored) {
    testsupport::KmsgCapture capture;
    {
        SharedMemory memory("MemGone", 4);
        memory.create();
        ASSERT_EQ(shm_unlink("/MemGone"), 0);
    }
    auto lines = capture.lines();
    ASSERT_EQ(lines.size(), 1u);
    EXPECT_TRUE(testsupport::isLogLine(lines[0], gen::Error, "sharedmemory.cpp",
                                       "/MemGone: No such file or directory"));
}

TEST(SharedMemory, ASecondCloseDoesNotRemoveAgain) {
    testsupport::KmsgCapture capture;
    {
        SharedMemory memory("MemClosedTwice", 4);
        memory.create();
        memory.close();
    }
    EXPECT_TRUE(capture.lines().empty());
}

} // namespace
