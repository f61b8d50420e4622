// gen::init and its memory part against the device root's own /dev/shm.
#include "brokerdouble.h"
#include "child.h"
#include "logline.h"
#include "settings-service/catalogue.h"
#include "settings-service/eventid.h"
#include "settings-service/log.h"
#include "settings-service/memories.h"
#include "settings-service/serverconnection.h"

#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <gtest/gtest.h>
#include <set>
#include <stdexcept>
#include <string>
#include <sys/mman.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>
#include <vector>

namespace {

// The memories' objects in /dev/shm (semaphores, named "sem.*", are left out).
std::set<std::string> sharedObjects() {
    std::set<std::string> names;
    for (const auto& entry : std::filesystem::directory_iterator("/dev/shm")) {
        std::string name = entry.path().filename();
        if (name.rfind("sem.", 0) != 0) {
            names.insert(name);
        }
    }
    return names;
}

std::set<std::string> memoryNames() {
    std::set<std::string> names;
    for (uint32_t m = 0; m < MEMORY_ARRAY_SIZE; ++m) {
        names.insert(MEMORY_ARRAY[m].name);
    }
    return names;
}

// The whole object of a memory as another process sees it: header and data.
std::vector<uint8_t> objectBytes(const char* name) {
    std::vector<uint8_t> bytes;
    const int fd = open((std::string("/dev/shm/") + name).c_str(), O_RDONLY);
    if (fd < 0) {
        return bytes;
    }
    struct stat status {};
    fstat(fd, &status);
    bytes.resize(status.st_size);
    EXPECT_EQ(read(fd, bytes.data(), bytes.size()), static_cast<ssize_t>(bytes.size()));
    close(fd);
    return bytes;
}

void fillObject(const char* name, uint32_t size, uint8_t value) {
    const int fd = shm_open((std::string("/") + name).c_str(), O_RDWR | O_CREAT, 0666);
    ASSERT_GE(fd, 0);
    ASSERT_EQ(ftruncate(fd, size + 4), 0);
    std::vector<uint8_t> bytes(size + 4, value);
    ASSERT_EQ(write(fd, bytes.data(), bytes.size()), static_cast<ssize_t>(bytes.size()));
    close(fd);
}

// Runs first, before this process creates anything: a process that set up the memories and
// exits normally leaves no name behind.
TEST(CatalogueInit, NamesAreGoneAfterTheCreatorExits) {
    std::fflush(nullptr);
    const pid_t pid = fork();
    ASSERT_GE(pid, 0);
    if (pid == 0) {
        gen::initMemories();
        std::exit(sharedObjects() == memoryNames() ? 0 : 1);
    }
    int status = 0;
    ASSERT_EQ(waitpid(pid, &status, 0), pid);
    ASSERT_TRUE(WIFEXITED(status));
    EXPECT_EQ(WEXITSTATUS(status), 0) << "the child saw the 20 objects";
    EXPECT_TRUE(sharedObjects().empty());
}

TEST(CatalogueInit, MemoriesHoldTheirStartValues) {
    // Left-overs of an earlier run are overwritten, whatever they held.
    fillObject("MemPersistent", 1136, 0xa5);
    fillObject("MemDeviceState", 24, 0xff);
    fillObject("MemApp", 68, 0x11);
    gen::initMemories();
    EXPECT_EQ(sharedObjects(), memoryNames());
    for (uint32_t m = 0; m < MEMORY_ARRAY_SIZE; ++m) {
        const uint32_t size = gen::getSharedMemory(m).getSize();
        std::vector<uint8_t> bytes = objectBytes(MEMORY_ARRAY[m].name);
        ASSERT_EQ(bytes.size(), size + 4u) << MEMORY_ARRAY[m].name;
        uint32_t header;
        std::memcpy(&header, bytes.data(), sizeof header);
        EXPECT_EQ(header, size) << MEMORY_ARRAY[m].name;
        std::vector<uint8_t> data(bytes.begin() + 4, bytes.end());
        const std::string name = MEMORY_ARRAY[m].name;
        if (name == "MemLensMarkers" || name == "MemDeviceState" || name == "MemTestautomation" ||
            name == "MemDebug") {
            EXPECT_EQ(data, std::vector<uint8_t>(size, 0)) << name;
        } else if (name == "MemApp") {
            for (uint32_t offset = 0; offset < size; offset += 4) {
                uint32_t level;
                std::memcpy(&level, data.data() + offset, sizeof level);
                EXPECT_EQ(level, 3u) << offset;
            }
        } else {
            EXPECT_EQ(data, gen::defaultImage(m)) << name;
        }
    }
}

TEST(CatalogueInit, BasePointersReadTheTellingDefaults) {
    gen::initMemories();
    ASSERT_NE(gMemPersistent, nullptr);
    const MemoryInfo& persistent = MEMORY_ARRAY[0];
    auto value = [&](uint32_t v) {
        const VariableDescriptor& entry = persistent.variables[v];
        return entry.getter(entry.memoryBase + entry.offset, 0);
    };
    EXPECT_EQ(value(0), "2");        // AUXTorque
    EXPECT_EQ(value(1), "false");    // BluetoothPower
    EXPECT_EQ(value(2), "5");        // ButtonBrightness
    EXPECT_EQ(value(3), "false");    // ButtonsLocked
    EXPECT_EQ(value(4), "Default");  // CinefadeDisplayModeValue
    EXPECT_EQ(value(5), "2");        // CinefadeTorque
    EXPECT_EQ(value(6), "0.025000"); // CircleofConfusion
    EXPECT_EQ(gen::memApp().AppSettingsManagerLogLevel, 3u);
    EXPECT_EQ(gen::memPersistent().AUXTorque, 2);
}

TEST(CatalogueInit, ClientsOpenWithoutWriting) {
    gen::initMemories();
    gen::memPersistent().FocusTorque = 4;
    testsupport::ChildResult result = testsupport::runInChild([] {
        gMemPersistent = nullptr;
        gen::openMemories();
        return gMemPersistent != nullptr && gen::memPersistent().FocusTorque == 4 ? 0 : 1;
    });
    EXPECT_TRUE(result.exitedWith(0)) << result.err;
    EXPECT_EQ(gen::memPersistent().FocusTorque, 4);
}

TEST(CatalogueInit, InitConnectsSubscribesAndTakesTheLogLevel) {
    BrokerDouble broker;
    gen::init();
    ASSERT_NE(gServerConnection, nullptr);
    EXPECT_EQ(reinterpret_cast<uint8_t*>(gComponentLogLevel), gMemApp + 20);
    EXPECT_EQ(*gComponentLogLevel, gen::LogAll);
    std::vector<Notify> records = broker.received();
    ASSERT_EQ(records.size(), 2u * 148u);
    std::vector<uint32_t> ids;
    for (size_t i = 0; i < records.size(); i += 2) {
        EXPECT_EQ(records[i].id, Subscribe);
        EXPECT_EQ(records[i].indexed, 0u);
        EXPECT_EQ(records[i + 1].indexed, 0u);
        EXPECT_EQ(records[i + 1].index, 0u);
        ids.push_back(records[i + 1].id);
    }
    EXPECT_EQ(ids.front(), VarUserSetupAcceptLoadFileNameChanged);
    EXPECT_EQ(ids[4], VarFactoryResetChanged);
    EXPECT_EQ(ids[7], VarLandingPageChanged);
    EXPECT_EQ(ids[21], VarLandingPageChanged);
    EXPECT_EQ(ids[22], VarUserButton4Changed);
    EXPECT_EQ(ids[95], VarLensMarkerFocusValue0Changed);
    EXPECT_EQ(ids[135], VarLensMarkerColorInternalChanged);
    EXPECT_EQ(ids.back(), VarCinefadeDisplayModeValueChanged);
    gen::closeServerConnection();
    gComponentLogLevel = nullptr;
}

TEST(CatalogueInit, SubscribingWithoutAConnectionThrows) {
    ASSERT_EQ(gServerConnection, nullptr);
    std::string error = "no exception";
    try {
        gen::subscribeNotifications();
    } catch (const std::runtime_error& thrown) {
        error = thrown.what();
    }
    EXPECT_TRUE(testsupport::isLocatedMessage(error, "startup.cpp",
                                              "Trying to subscribe without server connection"));
}

} // namespace
