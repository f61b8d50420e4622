// The tools' frame: help, version, command dispatch, exit statuses and the
// messages of errors.
#include "program.h"

#include "kmsgcapture.h"
#include "logline.h"
#include "settings-service/log.h"
#include "version.h"

#include <gtest/gtest.h>

#include <stdexcept>

namespace {

using testsupport::locationField;

int ran = 0;

Result<int> succeed(const Arguments& arguments) {
    TRY(arguments.expectPositional(1, 1));
    ++ran;
    return ExitSuccess;
}

// The infrastructure's exceptions are turned into messages by the frame.
Result<int> fail(const Arguments&) {
    THROW_ERROR("Could not send message to %s", "server");
}

Result<int> refuse(const Arguments&) {
    return failure("a: one\nb: two");
}

Result<int> misuse(const Arguments&) {
    return usageError("x: wrong\ny: wrong too");
}

Result<int> finish(const Arguments& arguments) {
    return arguments.has("--partly") ? 3 : ExitSuccess;
}

const Program PROGRAM = {
    "tool",
    "Does things.",
    "Exit status: 0 done.",
    {{"go", "tool go THING", "Goes to THING.", {}, {}, succeed},
     {"break", "tool break", "Breaks.", {}, {}, fail},
     {"refuse", "tool refuse", "Refuses.", {}, {}, refuse},
     {"misuse", "tool misuse", "Misuses.", {}, {}, misuse},
     {"finish", "tool finish [--partly]", "Finishes.", {"--partly"}, {}, finish}}};

struct Output {
    int status;
    std::string out;
    std::string err;
};

Output run(const std::vector<std::string>& words) {
    testing::internal::CaptureStdout();
    testing::internal::CaptureStderr();
    const int status = runProgram(PROGRAM, words);
    return {status, testing::internal::GetCapturedStdout(), testing::internal::GetCapturedStderr()};
}

TEST(Program, HelpListsTheCommandsOnStandardOutput) {
    for (const char* word : {"-h", "--help", "help"}) {
        const Output help = run({word});
        EXPECT_EQ(help.status, ExitSuccess);
        EXPECT_EQ(help.out.rfind("Usage: tool COMMAND [ARGUMENTS]", 0), 0u) << help.out;
        EXPECT_NE(help.out.find("\n  tool go THING\n  tool break\n"), std::string::npos);
        EXPECT_NE(help.out.find("Does things."), std::string::npos);
        EXPECT_NE(help.out.find("Exit status: 0 done."), std::string::npos);
        EXPECT_EQ(help.err, "");
    }
}

TEST(Program, NoCommandIsAUsageError) {
    const Output none = run({});
    EXPECT_EQ(none.status, ExitUsage);
    EXPECT_EQ(none.out, "");
    EXPECT_EQ(none.err.rfind("Usage: tool COMMAND", 0), 0u);
}

TEST(Program, VersionIsTheProjectVersion) {
    const Output version = run({"--version"});
    EXPECT_EQ(version.status, ExitSuccess);
    EXPECT_EQ(version.out, std::string("tool ") + Constants::PROJECT_VERSION + "\n");
}

TEST(Program, CommandHelpWithEitherSpellingAndHelpCommand) {
    for (const std::vector<std::string>& words :
         {std::vector<std::string>{"go", "--help"}, {"go", "x", "-h"}, {"help", "go"}}) {
        ran = 0;
        const Output help = run(words);
        EXPECT_EQ(help.status, ExitSuccess);
        EXPECT_EQ(help.out, "Usage: tool go THING\n\nGoes to THING.\n");
        EXPECT_EQ(ran, 0);
    }
    ran = 0;
    EXPECT_EQ(run({"go", "--", "-h"}).status, ExitSuccess);
    EXPECT_EQ(ran, 1) << "after -- a -h is an argument";
}

TEST(Program, UnknownCommandSuggestsTheClosest) {
    const Output unknown = run({"goo"});
    EXPECT_EQ(unknown.status, ExitUsage);
    EXPECT_EQ(unknown.err.substr(0, unknown.err.find('\n')),
              "tool: unknown command \"goo\". Did you mean: go?");
}

TEST(Program, AUsageErrorShowsTheSynopsis) {
    const Output usage = run({"go"});
    EXPECT_EQ(usage.status, ExitUsage);
    EXPECT_EQ(usage.err, "tool go: missing arguments\nUsage: tool go THING\n");
}

TEST(Program, AFailureShowsTheMessageWithoutItsSourceLocation) {
    testsupport::KmsgCapture kmsg;
    const Output failed = run({"break"});
    EXPECT_EQ(failed.status, ExitFailure);
    EXPECT_EQ(failed.err, "tool break: Could not send message to server\n");
    EXPECT_EQ(kmsg.lines().size(), 1u) << "the location stays in the kernel log";
}

TEST(Program, EachLineOfAMessageIsPrefixed) {
    const Output refused = run({"refuse"});
    EXPECT_EQ(refused.status, ExitFailure);
    EXPECT_EQ(refused.err, "tool refuse: a: one\ntool refuse: b: two\n");
}

TEST(Program, AUsageErrorOfSeveralLinesIsPrefixedAndShowsTheSynopsis) {
    const Output usage = run({"misuse"});
    EXPECT_EQ(usage.status, ExitUsage);
    EXPECT_EQ(usage.out, "");
    EXPECT_EQ(usage.err, "tool misuse: x: wrong\ntool misuse: y: wrong too\nUsage: tool misuse\n");
}

TEST(Program, AWrongOptionIsAUsageError) {
    const Output usage = run({"finish", "--party"});
    EXPECT_EQ(usage.status, ExitUsage);
    EXPECT_EQ(usage.err, "tool finish: unknown option --party. Did you mean: --partly?\n"
                         "Usage: tool finish [--partly]\n");
}

TEST(Program, TheCommandsStatusIsTheExitStatus) {
    const Output done = run({"finish"});
    EXPECT_EQ(done.status, ExitSuccess);
    EXPECT_EQ(done.err, "");
    EXPECT_EQ(run({"finish", "--partly"}).status, 3);
}

TEST(Program, AFailureIsNoUsageError) {
    const Output refused = run({"refuse"});
    EXPECT_EQ(refused.status, ExitFailure);
    EXPECT_EQ(refused.err.find("Usage:"), std::string::npos);
}

TEST(ErrorMessage, DropsOnlyAWholeLocationField) {
    const auto message = [](const std::string& text) {
        return errorMessage(std::runtime_error(text));
    };
    EXPECT_EQ(message(locationField("serverconnection.cpp", 32) + "connect: Refused"),
              "connect: Refused");
    EXPECT_EQ(message(locationField("a.cpp", 12345) + "x"), "x");
    EXPECT_EQ(message(locationField("a_very_long_file_name.cpp", 7) + "y: 2 z"), "y: 2 z");
    EXPECT_EQ(message("MemPersistent.AUXTorque: 3 is wrong"),
              "MemPersistent.AUXTorque: 3 is wrong");
    EXPECT_EQ(message("               x y.cpp:  12 m"), "               x y.cpp:  12 m");
    EXPECT_EQ(message("               a.cpp: 12 m"), "               a.cpp: 12 m");
    EXPECT_EQ(message(""), "");
}

} // namespace
