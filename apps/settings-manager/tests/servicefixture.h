// The set-ups that the service's tests share.
// - ServiceTest: the broker double for the whole program, an empty settings
//   folder, and a SettingsManager constructed for each test (memories at
//   their defaults, connected, subscriptions read off).
// - ServiceClassTest: the service's classes built on their own with
//   stand-ins, no SettingsManager: the memories of the test process at their
//   defaults, a connection to a broker double of the test's own (also the
//   process's connection, on which the catalogue's setters post), clocks that
//   the test sets, and no settings folder until a test makes it.
#pragma once

#include "brokerdouble.h"
#include "collaborators.h"
#include "productinfo.h"
#include "resulttext.h"
#include "settings-service/serverconnection.h"
#include "settingsfolder.h"
#include "settingsloader.h"
#include "settingsmanager.h"
#include "settingsstore.h"
#include "usersetups.h"

#include <chrono>
#include <ctime>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <memory>
#include <string>
#include <sys/resource.h>
#include <vector>

namespace servicetest {

constexpr const char* SETUPS = "/var//SETUPS/";
constexpr const char* CURRENT = "/var//SETUPS/.current.stp";

std::string readFile(const std::string& path);
void writeFile(const std::string& path, const std::string& text);
bool exists(const std::string& path);
// Takes the service's connection on the broker double's side, collecting what
// the service posts in the background; throws when none comes within 10 s.
void acceptService(BrokerDouble& broker);
using testsupport::errorText;
// The ids of the records, in order.
std::vector<EventId> ids(const std::vector<Notify>& records);
// The value of a MemPersistent variable as text.
std::string persistentValue(const char* name);
// The messages of the kernel-log lines (everything after the location field).
std::vector<std::string> messages(const std::vector<std::string>& lines);

// While it lives, files of this process cannot grow beyond `bytes` (a write
// past it fails with EFBIG, SIGXFSZ ignored): a disk that fills up.
class FileSizeLimit {
public:
    explicit FileSizeLimit(unsigned long bytes);
    ~FileSizeLimit();
    FileSizeLimit(const FileSizeLimit&) = delete;
    FileSizeLimit& operator=(const FileSizeLimit&) = delete;

private:
    rlimit previous{};
    void (*previousHandler)(int);
};

class ServiceTest : public testing::Test {
protected:
    static void SetUpTestSuite();
    static void TearDownTestSuite();
    void SetUp() override;
    void TearDown() override;

    // A new service (the previous one is destroyed first).
    void startService();
    // The records the service posted since the last call.
    std::vector<Notify> posted();

    static BrokerDouble* broker;
    std::unique_ptr<SettingsManager> service;
};

// The memories of the test process at their defaults (with the service's log
// level) and the process's connection to `broker`, whose side collects what
// is posted; no settings folder.  Undone at the end.
class TestDevice {
public:
    explicit TestDevice(BrokerDouble& broker);
    ~TestDevice();
    TestDevice(const TestDevice&) = delete;
    TestDevice& operator=(const TestDevice&) = delete;

    ServerConnection& connection() { return *gServerConnection; }
};

class ServiceClassTest : public testing::Test {
protected:
    // The records posted since the last call.
    std::vector<Notify> posted() { return brokerDouble.receivedOnceQuiet(); }

    BrokerDouble brokerDouble;
    TestDevice device{brokerDouble};
    BrokerLink connection = BrokerLink::of(device.connection());
    // 15 November 2026 14:12 local time.
    std::time_t wallTime = localTime(2026, 11, 15, 14, 12);
    std::chrono::steady_clock::time_point steadyTime{};
    Clocks clocks{[this] { return wallTime; }, [this] { return steadyTime; }};
    ServiceMemories memories = ServiceMemories::ofProcess();
    SettingsFolder folder;
    ProductInfo product{memories};
    SettingsStore store{folder, product, memories};
    SettingsLoader loader{folder, store, memories, connection};
    UserSetups dialogue{folder, store, loader, memories, connection, clocks.wall};

private:
    static std::time_t localTime(int year, int month, int day, int hour, int minute);
};

} // namespace servicetest
