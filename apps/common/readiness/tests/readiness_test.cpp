// READY=1 to the socket that NOTIFY_SOCKET names, as a service manager
// receives it: one datagram from this process, to a path or to an abstract
// name; nothing without the variable; failures logged at Error.
#include "kmsgcapture.h"
#include "logline.h"
#include "readiness.h"

#include <cstddef>
#include <cstdlib>
#include <cstring>
#include <gtest/gtest.h>
#include <optional>
#include <string>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>
#include <vector>

using testsupport::isLogLine;
using testsupport::KmsgCapture;

namespace {

using Lines = std::vector<std::string>;

// A datagram socket that plays the service manager's end: bound to a path or
// (a name starting with '@') an abstract name, reporting each sender's pid.
class ManagerSocket {
public:
    explicit ManagerSocket(const std::string& name) : fd(socket(AF_UNIX, SOCK_DGRAM, 0)) {
        sockaddr_un address{};
        address.sun_family = AF_UNIX;
        name.copy(address.sun_path, sizeof address.sun_path - 1);
        if (name[0] == '@') {
            address.sun_path[0] = '\0';
        }
        int on = 1;
        setsockopt(fd, SOL_SOCKET, SO_PASSCRED, &on, sizeof on);
        socklen_t length = static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + name.size());
        bound = bind(fd, reinterpret_cast<sockaddr*>(&address), length) == 0;
    }
    ~ManagerSocket() { close(fd); }

    struct Message {
        std::string text;
        pid_t sender;
    };

    // The next datagram, or nothing when none is waiting.
    std::optional<Message> receive() const {
        char text[256];
        alignas(cmsghdr) char control[CMSG_SPACE(sizeof(ucred))];
        iovec piece{text, sizeof text};
        msghdr header{};
        header.msg_iov = &piece;
        header.msg_iovlen = 1;
        header.msg_control = control;
        header.msg_controllen = sizeof control;
        ssize_t got = recvmsg(fd, &header, MSG_DONTWAIT);
        if (got < 0) {
            return std::nullopt;
        }
        Message message{std::string(text, static_cast<size_t>(got)), -1};
        for (cmsghdr* item = CMSG_FIRSTHDR(&header); item; item = CMSG_NXTHDR(&header, item)) {
            if (item->cmsg_level == SOL_SOCKET && item->cmsg_type == SCM_CREDENTIALS) {
                ucred credentials;
                std::memcpy(&credentials, CMSG_DATA(item), sizeof credentials);
                message.sender = credentials.pid;
            }
        }
        return message;
    }

    bool bound = false;

private:
    int fd;
};

class ReadinessNotification : public testing::Test {
protected:
    void SetUp() override {
        char pattern[] = "/tmp/readiness-XXXXXX";
        ASSERT_NE(mkdtemp(pattern), nullptr);
        folder = pattern;
    }
    void TearDown() override {
        unsetenv("NOTIFY_SOCKET");
        unlink((folder + "/notify").c_str());
        rmdir(folder.c_str());
    }
    std::string folder;
};

TEST_F(ReadinessNotification, WithoutNotifySocketNothingIsSentOrLogged) {
    ManagerSocket manager(folder + "/notify");
    ASSERT_TRUE(manager.bound);
    KmsgCapture log;
    unsetenv("NOTIFY_SOCKET");
    EXPECT_FALSE(Readiness::notifyServiceManager());
    setenv("NOTIFY_SOCKET", "", 1);
    EXPECT_FALSE(Readiness::notifyServiceManager());
    EXPECT_FALSE(manager.receive());
    EXPECT_EQ(log.text(), "");
}

TEST_F(ReadinessNotification, ReadyGoesAsOneDatagramFromThisProcessToAPath) {
    ManagerSocket manager(folder + "/notify");
    ASSERT_TRUE(manager.bound);
    KmsgCapture log;
    setenv("NOTIFY_SOCKET", (folder + "/notify").c_str(), 1);
    EXPECT_TRUE(Readiness::notifyServiceManager());
    auto message = manager.receive();
    ASSERT_TRUE(message);
    EXPECT_EQ(message->text, "READY=1");
    EXPECT_EQ(message->sender, getpid());
    EXPECT_FALSE(manager.receive());
    EXPECT_EQ(log.text(), "");
}

TEST_F(ReadinessNotification, AnAtSignNamesAnAbstractSocket) {
    std::string name = "@readiness-test-" + std::to_string(getpid());
    ManagerSocket manager(name);
    ASSERT_TRUE(manager.bound);
    setenv("NOTIFY_SOCKET", name.c_str(), 1);
    EXPECT_TRUE(Readiness::notifyServiceManager());
    auto message = manager.receive();
    ASSERT_TRUE(message);
    EXPECT_EQ(message->text, "READY=1");
    EXPECT_EQ(message->sender, getpid());
}

// With NOTIFY_SOCKET set to `name`, the notification reports that it was
// asked for and logs exactly one Error line with `message`.
testing::AssertionResult failsWithError(const std::string& name, const std::string& message) {
    setenv("NOTIFY_SOCKET", name.c_str(), 1);
    KmsgCapture log;
    if (!Readiness::notifyServiceManager()) {
        return testing::AssertionFailure() << "NOTIFY_SOCKET \"" << name << "\" was not taken";
    }
    Lines lines = log.lines();
    if (lines.size() != 1) {
        return testing::AssertionFailure() << "logged:\n" << log.text();
    }
    return isLogLine(lines[0], gen::Error, "readiness.cpp", message);
}

TEST_F(ReadinessNotification, ASocketThatIsNotThereIsLoggedAndTheProgramGoesOn) {
    std::string missing = folder + "/missing";
    EXPECT_TRUE(failsWithError(missing, "Cannot notify the service manager at " + missing +
                                            ": No such file or directory"));
}

TEST_F(ReadinessNotification, ANameThatIsNeitherPathNorAbstractIsLogged) {
    EXPECT_TRUE(failsWithError("run/notify",
                               "Cannot notify the service manager: NOTIFY_SOCKET \"run/notify\" "
                               "is neither an absolute path nor an abstract name (@...)"));
}

TEST_F(ReadinessNotification, ANameTooLongForASocketAddressIsLogged) {
    std::string name = "/" + std::string(sizeof(sockaddr_un::sun_path) - 1, 'n');
    EXPECT_TRUE(failsWithError(name, "Cannot notify the service manager: NOTIFY_SOCKET \"" + name +
                                         "\" is longer than 107 characters"));
}

} // namespace
