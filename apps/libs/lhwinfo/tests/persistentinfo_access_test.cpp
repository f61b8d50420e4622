// How a PersistentInfo block opens its device (read-write, read-only, or as a
// private copy) and how sync() flushes a writer's changes: msync of the
// mapping, then fsync of the device.
#include "deviceimage.h"
#include "persistentinfo.h"
#include "syncspy.h"

#include <cerrno>
#include <cstdint>
#include <functional>
#include <gtest/gtest.h>
#include <initializer_list>
#include <memory>
#include <stdexcept>
#include <string>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>
#include <vector>

namespace {

using PI = PersistentInfo;

constexpr unsigned int BLOCK = 0x100000;
constexpr unsigned int REGION = 0x10000;
constexpr unsigned int UNALIGNED = 0x68;

class PersistentInfoAccessTest : public testing::Test {
protected:
    void SetUp() override {
        deviceimage::zeroMmc();
        deviceimage::writeWord(deviceimage::MMC, BLOCK, 1234);
        struct stat status {};
        ASSERT_EQ(::stat(deviceimage::MMC, &status), 0);
        mode = status.st_mode & 07777;
    }
    void TearDown() override { ::chmod(deviceimage::MMC, mode); }

    static std::unique_ptr<PI> blockOf(PI::Access access, unsigned int offset = BLOCK) {
        auto block = std::make_unique<PI>(deviceimage::MMC, offset, REGION, access);
        block->addInfo(std::make_unique<PI::Int>("number", 0));
        block->addInfo(std::make_unique<PI::String>("text", 0, 12));
        return block;
    }

    static unsigned int numberOf(PI& block) {
        unsigned int number = 0;
        EXPECT_TRUE((block.get<PI::Int, unsigned int>("number", number)));
        return number;
    }

    mode_t mode = 0;
};

TEST_F(PersistentInfoAccessTest, AReadOnlyDeviceOpensOnlyForReading) {
    ASSERT_EQ(::chmod(deviceimage::MMC, 0444), 0);
    EXPECT_THROW(blockOf(PI::Access::ReadWrite), std::runtime_error);
    EXPECT_EQ(numberOf(*blockOf(PI::Access::ReadOnly)), 1234u);
    EXPECT_EQ(numberOf(*blockOf(PI::Access::PrivateCopy)), 1234u);
}

TEST_F(PersistentInfoAccessTest, AReadOnlyBlockRefusesEveryWrite) {
    auto block = blockOf(PI::Access::ReadOnly);
    char const* text = "x";
    for (auto const& write : std::initializer_list<std::function<void()>>{
             [&] { block->set<PI::Int, unsigned int>("number", 5u, false); },
             [&] { block->set<PI::Base, char const*>("text", text, false); },
             [&] { block->clearAll(); }, [&] { block->setNewMemToDefault(0, 4); }}) {
        try {
            write();
            ADD_FAILURE() << "a write to a read-only block went through";
        } catch (std::runtime_error const& error) {
            EXPECT_NE(std::string(error.what()).find("/dev/mmcblk1 is open read-only."),
                      std::string::npos)
                << error.what();
        }
    }
    EXPECT_EQ(deviceimage::readWord(deviceimage::MMC, BLOCK), 1234u);
}

TEST_F(PersistentInfoAccessTest, APrivateCopyIsChangedInThisProcessOnly) {
    ASSERT_EQ(::chmod(deviceimage::MMC, 0444), 0);
    auto block = blockOf(PI::Access::PrivateCopy);
    ASSERT_TRUE((block->set<PI::Int, unsigned int>("number", 99u, false)));
    block->clearAll();
    ASSERT_TRUE((block->set<PI::Int, unsigned int>("number", 77u, false)));
    syncspy::start();
    block->sync();
    EXPECT_TRUE(syncspy::stop().empty());
    EXPECT_EQ(numberOf(*block), 77u);
    EXPECT_EQ(deviceimage::readWord(deviceimage::MMC, BLOCK), 1234u);
    EXPECT_EQ(numberOf(*blockOf(PI::Access::PrivateCopy)), 1234u);
}

TEST_F(PersistentInfoAccessTest, SyncFlushesTheMappingAndThenTheDevice) {
    // A block that starts on a page, and one that starts inside one.
    for (unsigned int offset : {BLOCK, BLOCK - 0x1000 + UNALIGNED}) {
        auto block = blockOf(PI::Access::ReadWrite, offset);
        ASSERT_TRUE((block->set<PI::Int, unsigned int>("number", 4321u, false)));
        syncspy::start();
        block->sync();
        const std::vector<syncspy::Call> calls = syncspy::stop();
        ASSERT_EQ(calls.size(), 2u) << offset;
        EXPECT_EQ(calls[0].name, "msync");
        EXPECT_EQ(reinterpret_cast<std::uintptr_t>(calls[0].address) %
                      static_cast<std::uintptr_t>(::sysconf(_SC_PAGESIZE)),
                  0u);
        EXPECT_EQ(calls[0].length,
                  REGION + offset % static_cast<unsigned>(::sysconf(_SC_PAGESIZE)));
        EXPECT_EQ(calls[0].flagsOrFd, MS_SYNC);
        EXPECT_EQ(calls[1].name, "fsync");
        EXPECT_GE(calls[1].flagsOrFd, 0);
        EXPECT_EQ(deviceimage::readWord(deviceimage::MMC, offset), 4321u);
    }
}

TEST_F(PersistentInfoAccessTest, AFailedFlushOfTheDeviceIsRaised) {
    auto block = blockOf(PI::Access::ReadWrite);
    syncspy::failNextFsync(EIO);
    try {
        block->sync();
        ADD_FAILURE() << "no error";
    } catch (std::runtime_error const& error) {
        EXPECT_NE(std::string(error.what()).find("fsync: Input/output error"), std::string::npos)
            << error.what();
    }
    // A device that cannot be flushed that way counts as flushed.
    syncspy::failNextFsync(EINVAL);
    EXPECT_NO_THROW(block->sync());
}

} // namespace
