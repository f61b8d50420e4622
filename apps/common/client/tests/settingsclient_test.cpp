// The client library: memories opened as the service left them, refused when another catalogue
// made them, followed across restarts of the service and of the broker; no signal handler unless
// the program asks; a log level of the client's own. The test plays the service: it creates the
// memories and publishes the fingerprint itself, and starts the real broker.
#include "brokerprocess.h"
#include "child.h"
#include "settings-service/brokerlink.h"
#include "settings-service/brokerprotocol.h"
#include "settings-service/clienterror.h"
#include "settings-service/deviceaccess.h"
#include "settings-service/introspection.h"
#include "settings-service/memories.h"
#include "settings-service/serverconnection.h"
#include "settings-service/settingsclient.h"
#include "settings-service/sharedmemory.h"

#include <csignal>
#include <cstdint>
#include <cstring>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <memory>
#include <stdexcept>
#include <string>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

namespace {

using brokertest::BrokerProcess;

// A persistent int variable (range 1 to 4, default 2) and its memory.
const uint32_t MEMORY = Introspection::getMemIndex("MemPersistent");
const uint32_t VARIABLE = *Introspection::findVarIndex(MEMORY, "AUXTorque");

std::string value() {
    return Introspection::getVarValue(MEMORY, VARIABLE, 0);
}

void setValue(const char* text) {
    const PostingSuspended quiet;
    if (Introspection::setVarValue(MEMORY, VARIABLE, text) != "") {
        throw std::runtime_error("cannot set the value");
    }
}

// The service, played by a child process: it creates every memory with its start values, sets
// the variable to `torque` and publishes its catalogue's fingerprint (or `fingerprint` when
// given, as a service of another catalogue whose sizes match would), and ends, removing what it
// made, when the object goes.
class PlayedService {
public:
    explicit PlayedService(const char* torque, const char* fingerprint = nullptr) {
        int ready[2];
        int stop[2];
        // Close-on-exec: a broker started later must not hold the stop pipe open.
        if (pipe2(ready, O_CLOEXEC) != 0 || pipe2(stop, O_CLOEXEC) != 0) {
            throw std::runtime_error("pipe");
        }
        pid = fork();
        if (pid == 0) {
            ::close(ready[0]);
            ::close(stop[1]);
            gen::initMemories();
            setValue(torque);
            std::unique_ptr<SharedMemory> foreign;
            if (fingerprint == nullptr) {
                gen::publishCatalogueFingerprint();
            } else {
                foreign = std::make_unique<SharedMemory>(gen::CATALOGUE_FINGERPRINT_OBJECT,
                                                         gen::CATALOGUE_FINGERPRINT_LENGTH);
                foreign->create();
                std::memcpy(foreign->address(), fingerprint, gen::CATALOGUE_FINGERPRINT_LENGTH);
            }
            (void)!write(ready[1], "r", 1);
            char byte = 0;
            (void)!read(stop[0], &byte, 1);
            foreign.reset();
            std::exit(0);
        }
        ::close(ready[1]);
        ::close(stop[0]);
        char byte = 0;
        const bool started = read(ready[0], &byte, 1) == 1;
        ::close(ready[0]);
        stopFd = stop[1];
        if (!started) {
            throw std::runtime_error("the played service did not start");
        }
    }
    ~PlayedService() {
        ::close(stopFd);
        int status = 0;
        waitpid(pid, &status, 0);
    }
    PlayedService(const PlayedService&) = delete;
    PlayedService& operator=(const PlayedService&) = delete;

private:
    pid_t pid = -1;
    int stopFd = -1;
};

class SettingsClientTest : public testing::Test {
protected:
    void SetUp() override {
        broker = std::make_unique<BrokerProcess>();
        ASSERT_TRUE(broker->running());
    }

    std::unique_ptr<BrokerProcess> broker;
};

TEST_F(SettingsClientTest, OpensTheMemoriesAsTheServiceLeftThem) {
    const PlayedService service("3");
    SettingsClient client({});
    // Read through the client's own mapping (gMemPersistent points at it now): not reset to 2.
    EXPECT_EQ(value(), "3");
}

TEST_F(SettingsClientTest, CreatesNothingWithoutAService) {
    gen::LogLevel* const before = gComponentLogLevel;
    try {
        SettingsClient client({});
        FAIL() << "a client opened memories that no service made";
    } catch (const ClientError& error) {
        EXPECT_STREQ(error.what(), "the settings service published no catalogue fingerprint (is "
                                   "the settings service running?)");
    }
    EXPECT_EQ(gComponentLogLevel, before) << "a refused client left its level in place";
    for (uint32_t memory = 0; memory < MEMORY_ARRAY_SIZE; ++memory) {
        EXPECT_FALSE(MappedMemories::exists(memory)) << Introspection::getMemName(memory);
    }
}

TEST_F(SettingsClientTest, RefusesMemoriesOfAnotherCatalogueWhoseSizesMatch) {
    const PlayedService service("3", "0123456789abcdef0123456789abcdef");
    try {
        SettingsClient client({});
        FAIL() << "memories of another catalogue were accepted";
    } catch (const ClientError& error) {
        EXPECT_EQ(std::string(error.what()),
                  std::string("the memories were made from another catalogue (the settings "
                              "service's fingerprint is \"0123456789abcdef0123456789abcdef\", "
                              "this program's \"") +
                      gen::catalogueFingerprint() +
                      "\"): build this program against the settings service's release");
    }
    for (uint32_t memory = 0; memory < MEMORY_ARRAY_SIZE; ++memory) {
        EXPECT_EQ(Introspection::getVarValue(memory, 0, 0), "n/a") << "a memory was mapped";
    }
}

TEST_F(SettingsClientTest, TheFingerprintIsThirtyTwoHexadecimalDigits) {
    const std::string fingerprint = gen::catalogueFingerprint();
    EXPECT_EQ(fingerprint.size(), gen::CATALOGUE_FINGERPRINT_LENGTH);
    EXPECT_EQ(fingerprint.find_first_not_of("0123456789abcdef"), std::string::npos);
    const PlayedService service("3");
    EXPECT_EQ(publishedCatalogueFingerprint(), fingerprint);
}

TEST_F(SettingsClientTest, MapsTheMemoriesAgainWhenTheServiceRestarts) {
    auto service = std::make_unique<PlayedService>("3");
    SettingsClient client({});
    EXPECT_FALSE(client.keepUp());
    EXPECT_EQ(value(), "3");
    service.reset();
    EXPECT_TRUE(client.keepUp());
    EXPECT_EQ(value(), "n/a") << "the memories of the ended service stay mapped";
    service = std::make_unique<PlayedService>("4");
    EXPECT_TRUE(client.keepUp());
    EXPECT_EQ(value(), "4");
    EXPECT_FALSE(client.keepUp());
}

TEST_F(SettingsClientTest, ReconnectsAndSubscribesAgainWhenTheBrokerRestarts) {
    const PlayedService service("3");
    struct Received : ServerConnection::EventHandler {
        void handleEvent(const Notify& notify) override { events.push_back(notify.id); }
        std::vector<uint32_t> events;
    } received;
    SettingsClient client({});
    client.setEventHandler(&received);
    const EventId event = Introspection::getVarEvent(MEMORY, VARIABLE).id;
    client.subscribe(event);

    ASSERT_NE(broker->stop(SIGTERM), -1);
    for (int i = 0; i < 10 && gServerConnection->isConnected(); ++i) {
        client.poll().wait(200);
    }
    EXPECT_FALSE(gServerConnection->isConnected());
    broker = std::make_unique<BrokerProcess>();
    ASSERT_TRUE(client.keepUp());
    ASSERT_TRUE(gServerConnection->isConnected());

    EventPoll otherPoll(EventPoll::Signals::LeaveAlone);
    ServerConnection other(otherPoll);
    other.postEvent({event, 0, 0});
    for (int i = 0; i < 20 && received.events.empty(); ++i) {
        client.poll().wait(100);
    }
    EXPECT_EQ(received.events, std::vector<uint32_t>{static_cast<uint32_t>(event)});
}

// The handlers of SIGINT, SIGTERM, SIGPIPE and SIGALRM as they are now.
std::vector<sighandler_t> dispositions() {
    std::vector<sighandler_t> handlers;
    for (const int signal : {SIGINT, SIGTERM, SIGPIPE, SIGALRM}) {
        struct sigaction action {};
        sigaction(signal, nullptr, &action);
        handlers.push_back(action.sa_handler);
    }
    return handlers;
}

TEST_F(SettingsClientTest, InstallsNoSignalHandlerUnlessAsked) {
    const PlayedService service("3");
    // In a child: the handlers, once installed, stay for the rest of the process.
    const testsupport::ChildResult result = testsupport::runInChild([] {
        const std::vector<sighandler_t> atStart = dispositions();
        {
            SettingsClient client({});
            client.poll().wait(0);
            if (dispositions() != atStart) {
                std::printf("the client changed a disposition\n");
            }
        }
        EventPoll::handleSignals();
        const std::vector<sighandler_t> asked = dispositions();
        for (size_t i = 0; i < asked.size(); ++i) {
            std::printf("%s ", asked[i] == atStart[i] ? "same" : "changed");
        }
        return 0;
    });
    ASSERT_TRUE(result.exitedWith(0)) << result.err;
    EXPECT_EQ(result.out, "changed changed changed changed ");
}

TEST_F(SettingsClientTest, LogsUnderALevelOfItsOwn) {
    const PlayedService service("3");
    gen::LogLevel* const before = gComponentLogLevel;
    {
        SettingsClient client({.logLevel = gen::LogLight});
        EXPECT_EQ(gComponentLogLevel, &client.logLevel());
        EXPECT_EQ(*gComponentLogLevel, gen::LogLight);
        client.logLevel() = gen::Error;
        EXPECT_EQ(*gComponentLogLevel, gen::Error);
    }
    EXPECT_EQ(gComponentLogLevel, before);
}

// The text of a refusal of `path`.
std::string refusalOf(const std::string& path) {
    return path + ": Permission denied: this user is not allowed to use the device's memories "
                  "and broker (run it as a member of the daemons' group, or as root)";
}

// Files of a temporary folder: one this user may use, one of mode 0 (refused to a user without
// the capability to override it, as the tests run), one missing.
TEST(DeviceAccessTest, RefusesTheFirstObjectThatExistsAndRefusesTheMode) {
    char folder[] = "/tmp/deviceaccessXXXXXX";
    ASSERT_NE(mkdtemp(folder), nullptr);
    const std::string usable = std::string(folder) + "/usable";
    const std::string refused = std::string(folder) + "/refused";
    const std::string missing = std::string(folder) + "/missing";
    for (const std::string& path : {usable, refused}) {
        const int fd = ::open(path.c_str(), O_CREAT | O_WRONLY | O_CLOEXEC, 0600);
        ASSERT_NE(fd, -1);
        ::close(fd);
    }
    ASSERT_EQ(::chmod(refused.c_str(), 0), 0);

    EXPECT_NO_THROW(DeviceAccess::require({usable, missing}, R_OK | W_OK));
    try {
        DeviceAccess::require({usable, missing, refused}, R_OK);
        ADD_FAILURE() << "a file of mode 0 was not refused";
    } catch (const AccessRefused& error) {
        EXPECT_EQ(error.what(), refusalOf(refused));
    }
    ::unlink(usable.c_str());
    ::unlink(refused.c_str());
    ::rmdir(folder);
}

TEST_F(SettingsClientTest, AMemoryThatThisUserMayNotOpenIsRefusedForGood) {
    const PlayedService service("3");
    const std::string object = MappedMemories::objectPath(MEMORY);
    ASSERT_EQ(::chmod(object.c_str(), 0), 0);
    try {
        SettingsClient client({});
        FAIL() << "a memory that this user may not open was opened";
    } catch (const AccessRefused& error) {
        EXPECT_EQ(error.what(), refusalOf(object));
    }
    MappedMemories memories;
    EXPECT_THROW(memories.open(MEMORY), AccessRefused);
    ::chmod(object.c_str(), 0600);
    EXPECT_NO_THROW(memories.open(MEMORY));
}

// The broker restarts with a semaphore and a socket that this user may not use: keepUp reports
// it, and tries nothing more once they are usable again.
TEST_F(SettingsClientTest, ABrokerThatThisUserMayNotUseStopsTheReconnection) {
    const PlayedService service("3");
    SettingsClient client({});
    ASSERT_NE(broker->stop(SIGTERM), -1);
    for (int i = 0; i < 10 && gServerConnection->isConnected(); ++i) {
        client.poll().wait(200);
    }
    ASSERT_FALSE(gServerConnection->isConnected());
    broker = std::make_unique<BrokerProcess>();
    const std::string socketPath = BrokerProtocol::SOCKET_PATH;
    const std::string semaphorePath = BrokerLink::semaphorePath();
    struct stat socketStatus {};
    struct stat semaphoreStatus {};
    ASSERT_EQ(::stat(socketPath.c_str(), &socketStatus), 0);
    ASSERT_EQ(::stat(semaphorePath.c_str(), &semaphoreStatus), 0);
    ASSERT_EQ(::chmod(socketPath.c_str(), 0), 0);
    ASSERT_EQ(::chmod(semaphorePath.c_str(), 0), 0);

    try {
        client.keepUp();
        FAIL() << "a broker that this user may not use was retried quietly";
    } catch (const AccessRefused& error) {
        EXPECT_EQ(error.what(), refusalOf(semaphorePath));
    }
    EXPECT_THROW(BrokerLink::keepConnected(client.poll(), nullptr, [](ServerConnection&) {}),
                 AccessRefused);

    ::chmod(socketPath.c_str(), socketStatus.st_mode & 07777);
    ::chmod(semaphorePath.c_str(), semaphoreStatus.st_mode & 07777);
    EXPECT_THROW(client.keepUp(), AccessRefused);
    EXPECT_FALSE(gServerConnection->isConnected()) << "the client tried again after a refusal";
}

} // namespace
