// The set-up that the service's tests share: the broker double for the whole
// program, an empty settings folder, and a SettingsManager constructed for
// each test (memories at their defaults, connected, subscriptions read off).
#pragma once

#include "brokerdouble.h"
#include "settingsmanager.h"

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

} // namespace servicetest
