#include "servicefixture.h"

#include "settings-service/introspection.h"
#include "settings-service/log.h"
#include "settings-service/memories.h"
#include "settings-service/records.h"

#include <csignal>
#include <filesystem>
#include <fstream>
#include <optional>
#include <sstream>
#include <stdexcept>

namespace servicetest {

BrokerDouble* ServiceTest::broker = nullptr;

std::string readFile(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    std::ostringstream text;
    text << file.rdbuf();
    return text.str();
}

void writeFile(const std::string& path, const std::string& text) {
    std::ofstream file(path, std::ios::binary | std::ios::trunc);
    file << text;
}

bool exists(const std::string& path) {
    return std::filesystem::exists(path);
}

void acceptService(BrokerDouble& broker) {
    if (broker.accept(10000, BrokerDouble::Reading::InBackground) < 0) {
        throw std::runtime_error("the service did not connect");
    }
}

std::vector<EventId> ids(const std::vector<Notify>& records) {
    std::vector<EventId> result;
    for (const Notify& record : records) {
        result.push_back(record.id);
    }
    return result;
}

std::string persistentValue(const char* name) {
    const uint32_t memory = Introspection::getMemIndex("MemPersistent");
    const std::optional<uint32_t> variable = Introspection::findVarIndex(memory, name);
    if (!variable) {
        throw std::runtime_error(std::string("no persistent variable ") + name);
    }
    return Introspection::getVarValue(memory, *variable, 0);
}

std::vector<std::string> messages(const std::vector<std::string>& lines) {
    // program (22) + level (12) + location "%20s:%4i " (26)
    constexpr std::size_t MESSAGE_START = 22 + 12 + 26;
    std::vector<std::string> result;
    for (const std::string& line : lines) {
        result.push_back(line.size() > MESSAGE_START ? line.substr(MESSAGE_START) : "");
    }
    return result;
}

FileSizeLimit::FileSizeLimit(unsigned long bytes) : previousHandler(std::signal(SIGXFSZ, SIG_IGN)) {
    ::getrlimit(RLIMIT_FSIZE, &previous);
    rlimit limited = previous;
    limited.rlim_cur = bytes;
    ::setrlimit(RLIMIT_FSIZE, &limited);
}

FileSizeLimit::~FileSizeLimit() {
    ::setrlimit(RLIMIT_FSIZE, &previous);
    std::signal(SIGXFSZ, previousHandler);
}

void ServiceTest::SetUpTestSuite() {
    broker = new BrokerDouble;
}

void ServiceTest::TearDownTestSuite() {
    delete broker;
    broker = nullptr;
}

void ServiceTest::SetUp() {
    std::filesystem::remove_all(SETUPS);
    startService();
}

void ServiceTest::TearDown() {
    service.reset();
    std::filesystem::remove_all(SETUPS);
}

void ServiceTest::startService() {
    service.reset();
    service = std::make_unique<SettingsManager>();
    acceptService(*broker);
    ASSERT_TRUE(isSubscriptionSequence(broker->receive(2 * SUBSCRIPTION_COUNT, 5000)));
}

std::vector<Notify> ServiceTest::posted() {
    return broker->receivedOnceQuiet();
}

TestDevice::TestDevice(BrokerDouble& broker) {
    std::filesystem::remove_all(SETUPS);
    gen::initMemories();
    gComponentLogLevel =
        reinterpret_cast<gen::LogLevel*>(&gen::memApp().AppSettingsManagerLogLevel);
    gServerConnection = new ServerConnection(gen::getEventPoll());
    acceptService(broker);
}

TestDevice::~TestDevice() {
    gen::closeServerConnection();
    std::filesystem::remove_all(SETUPS);
}

std::time_t ServiceClassTest::localTime(int year, int month, int day, int hour, int minute) {
    std::tm fields{};
    fields.tm_year = year - 1900;
    fields.tm_mon = month - 1;
    fields.tm_mday = day;
    fields.tm_hour = hour;
    fields.tm_min = minute;
    fields.tm_isdst = -1;
    return std::mktime(&fields);
}

} // namespace servicetest
