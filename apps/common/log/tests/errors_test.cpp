// The error functions: an unfiltered line, then a std::runtime_error whose
// text is the location piece and the message; and lastCommandError's text.
#include "kmsgcapture.h"
#include "logline.h"
#include "settings-service/log.h"

#include <cerrno>
#include <functional>
#include <gtest/gtest.h>
#include <stdexcept>
#include <string>
#include <typeinfo>
#include <vector>

using testsupport::KmsgCapture;
using testsupport::locationField;
using testsupport::logLine;

namespace {

using Lines = std::vector<std::string>;

// The text of the std::runtime_error (exactly that type) that thrower throws.
std::string runtimeErrorText(const std::function<void()>& thrower) {
    try {
        thrower();
    } catch (const std::runtime_error& error) {
        EXPECT_TRUE(typeid(error) == typeid(std::runtime_error)) << typeid(error).name();
        return error.what();
    }
    ADD_FAILURE() << "nothing was thrown";
    return {};
}

// Every error function ignores the component level, even one above Error.
class LogErrors : public testing::Test {
protected:
    void SetUp() override { gComponentLogLevel = &silent; }
    void TearDown() override { gComponentLogLevel = nullptr; }
    gen::LogLevel silent = static_cast<gen::LogLevel>(100);
};

TEST_F(LogErrors, ThrowErrorWritesAnErrorLineAndThrowsTheLocatedMessage) {
    KmsgCapture kmsg;
    std::string text = runtimeErrorText([] { throwError("/x/broker.cpp", 42, "bad %s", "frame"); });
    EXPECT_EQ(text, "          broker.cpp:  42 bad frame");
    EXPECT_EQ(kmsg.lines(), Lines{logLine(gen::Error, "broker.cpp", 42, "bad frame")});
}

TEST_F(LogErrors, ThrowErrorNumberLogsTheSystemTextAtErrorWhateverTheComponentLevel) {
    KmsgCapture kmsg;
    std::string text = runtimeErrorText([] {
        errno = ENOENT;
        throwErrorNumber("src/memory.cpp", 9, "shm_open");
    });
    EXPECT_EQ(text, "          memory.cpp:   9 shm_open: No such file or directory");
    EXPECT_EQ(kmsg.lines(),
              Lines{logLine(gen::Error, "memory.cpp", 9, "shm_open: No such file or directory")});
}

TEST_F(LogErrors, ThrowErrorNumberInfoLogsAtLogLight) {
    gen::LogLevel component = gen::Error;
    gComponentLogLevel = &component;
    KmsgCapture kmsg;
    std::string text = runtimeErrorText([] {
        errno = EACCES;
        throwErrorNumberInfo("info.cpp", 3, "open");
    });
    EXPECT_EQ(text, "            info.cpp:   3 open: Permission denied");
    EXPECT_EQ(kmsg.lines(),
              Lines{logLine(gen::LogLight, "info.cpp", 3, "open: Permission denied")});
}

TEST_F(LogErrors, TheMacrosPassTheirFileAndLine) {
    KmsgCapture kmsg;
    int line = 0;
    std::string text = runtimeErrorText([&line] {
        line = __LINE__ + 1;
        THROW_ERROR("value %d", 5);
    });
    EXPECT_EQ(text, locationField("errors_test.cpp", line) + "value 5");
    text = runtimeErrorText([&line] {
        errno = EBADF;
        line = __LINE__ + 1;
        THROW_ERROR_NUMBER("epoll_ctl");
    });
    EXPECT_EQ(text, locationField("errors_test.cpp", line) + "epoll_ctl: Bad file descriptor");
    EXPECT_EQ(kmsg.lines().size(), 2u);
}

TEST_F(LogErrors, ALongMessageIsCutTheSameInTheLineAndInTheException) {
    std::string location = locationField("long.cpp", 1);
    std::string kept(511 - location.size(), 'y');
    KmsgCapture kmsg;
    std::string text =
        runtimeErrorText([] { throwError("long.cpp", 1, "%s", std::string(2000, 'y').c_str()); });
    EXPECT_EQ(text, location + kept);
    EXPECT_EQ(kmsg.lines(), Lines{logLine(gen::Error, "long.cpp", 1, kept)});

    std::string what(600, 'w');
    std::string numberText = runtimeErrorText([&what] {
        errno = EIO;
        throwErrorNumber("long.cpp", 1, what.c_str());
    });
    EXPECT_EQ(numberText, location + std::string(511 - location.size(), 'w'));
}

TEST(LogCommandError, ReturnsTheMessageAColonALineFeedAndTheDetailAndLogsItAtWarn) {
    KmsgCapture kmsg;
    std::string text = lastCommandError(nullptr, "/tools/copy.cpp", 17, "exit status 2",
                                        "Command %s failed", "cp");
    EXPECT_EQ(text, "Command cp failed:\nexit status 2");
    EXPECT_EQ(kmsg.text(),
              logLine(gen::Warn, "copy.cpp", 17, "Command cp failed:\nexit status 2") + "\n");
}

TEST(LogCommandError, AFilteredCallStillReturnsTheText) {
    gen::LogLevel component = gen::Error;
    KmsgCapture kmsg;
    std::string text = lastCommandError(&component, "copy.cpp", 1, "D", "M%d", 1);
    EXPECT_EQ(text, "M1:\nD");
    EXPECT_EQ(kmsg.text(), "");
}

TEST(LogCommandError, TheMessageIsCutAt1023AndTheWholeTextAt2047Characters) {
    gen::LogLevel component = gen::Error;
    std::string text =
        lastCommandError(&component, "copy.cpp", 1, "detail", "%s", std::string(1500, 'm').c_str());
    EXPECT_EQ(text, std::string(1023, 'm') + ":\ndetail");
    text = lastCommandError(&component, "copy.cpp", 1, std::string(3000, 'd').c_str(), "short");
    EXPECT_EQ(text, "short:\n" + std::string(2047 - 7, 'd'));
}

} // namespace
