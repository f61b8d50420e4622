// The command line of settings-manager and its one-instance lock.
#include "commandline.h"
#include "instancelock.h"
#include "kmsgcapture.h"
#include "logline.h"
#include "resulttext.h"
#include "version.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <filesystem>
#include <string>
#include <sys/stat.h>
#include <vector>

namespace {

using testsupport::errorText;

struct Outcome {
    CommandLine::Action action;
    std::string out;
    std::string err;
};

std::string contents(std::FILE* file) {
    std::rewind(file);
    std::string text;
    for (int c; (c = std::fgetc(file)) != EOF;) {
        text += static_cast<char>(c);
    }
    std::fclose(file);
    return text;
}

Outcome parse(std::vector<const char*> arguments) {
    arguments.insert(arguments.begin(), "settings-manager");
    std::FILE* out = std::tmpfile();
    std::FILE* err = std::tmpfile();
    const CommandLine::Action action =
        CommandLine::parse(static_cast<int>(arguments.size()), arguments.data(), out, err);
    return {action, contents(out), contents(err)};
}

TEST(CommandLine, NoArgumentsRunTheService) {
    const Outcome outcome = parse({});
    EXPECT_EQ(outcome.action, CommandLine::Run);
    EXPECT_EQ(outcome.out, "");
    EXPECT_EQ(outcome.err, "");
}

TEST(CommandLine, VersionPrintsTheProjectVersion) {
    const Outcome outcome = parse({"--version"});
    EXPECT_EQ(outcome.action, CommandLine::Done);
    EXPECT_EQ(outcome.out, std::string("settings-manager ") + Constants::PROJECT_VERSION + "\n");
    EXPECT_EQ(outcome.err, "");
}

TEST(CommandLine, HelpPrintsTheUsage) {
    const Outcome outcome = parse({"--help"});
    EXPECT_EQ(outcome.action, CommandLine::Done);
    EXPECT_EQ(outcome.out.rfind("Usage: settings-manager [--help | --version]\n", 0), 0u);
    EXPECT_NE(outcome.out.find("--version  print the version and exit\n"), std::string::npos);
    EXPECT_EQ(outcome.err, "");
}

TEST(CommandLine, AnythingElseIsAUsageError) {
    for (const std::vector<const char*>& arguments : {std::vector<const char*>{"-h"},
                                                      {"--verbose"},
                                                      {"run"},
                                                      {"--help", "--version"},
                                                      {"--version", "x"},
                                                      {""}}) {
        const Outcome outcome = parse(arguments);
        EXPECT_EQ(outcome.action, CommandLine::UsageError);
        EXPECT_EQ(outcome.out, "");
        EXPECT_EQ(outcome.err, std::string("settings-manager: unexpected argument '") +
                                   arguments[0] +
                                   "'\nUsage: settings-manager [--help | --version]\n");
    }
    EXPECT_EQ(CommandLine::USAGE_ERROR, 2);
}

TEST(InstanceLock, OnlyOneHolderAtATime) {
    const std::string path = "/tmp/lock/instance.lock";
    std::filesystem::remove_all("/tmp/lock");
    {
        InstanceLock first(path);
        ASSERT_TRUE(first.take().ok());
        InstanceLock second(path);
        const Result<void> refused = second.take();
        EXPECT_FALSE(refused.ok());
        EXPECT_EQ(errorText(refused),
                  "already running (another instance holds /tmp/lock/instance.lock)");
    }
    InstanceLock third(path);
    const Result<void> taken = third.take();
    EXPECT_TRUE(taken.ok()) << errorText(taken);
}

TEST(InstanceLock, ALockFileThatCannotBeMadeIsReported) {
    InstanceLock lock("/nonexistent/lock/instance.lock");
    const Result<void> refused = lock.take();
    EXPECT_FALSE(refused.ok());
    EXPECT_EQ(errorText(refused), "cannot create /nonexistent/lock: No such file or directory");
    EXPECT_EQ(refused.error().code, ENOENT);
}

TEST(InstanceLock, TheFolderAndTheFileGetTheirModesWhateverTheUmask) {
    std::filesystem::remove_all("/tmp/lock");
    const mode_t mask = ::umask(0);
    InstanceLock lock("/tmp/lock/instance.lock");
    const Result<void> taken = lock.take();
    ::umask(mask);
    ASSERT_TRUE(taken.ok()) << errorText(taken);
    struct stat status {};
    ASSERT_EQ(::stat("/tmp/lock", &status), 0);
    EXPECT_EQ(status.st_mode & 07777, 0700u);
    ASSERT_EQ(::stat("/tmp/lock/instance.lock", &status), 0);
    EXPECT_EQ(status.st_mode & 07777, 0600u);
}

TEST(InstanceLock, AnOwnFolderIsClosedToOthers) {
    std::filesystem::remove_all("/tmp/lock");
    ASSERT_EQ(::mkdir("/tmp/lock", 0777), 0);
    ASSERT_EQ(::chmod("/tmp/lock", 0777), 0);
    InstanceLock lock("/tmp/lock/instance.lock");
    ASSERT_TRUE(lock.take().ok());
    struct stat status {};
    ASSERT_EQ(::stat("/tmp/lock", &status), 0);
    EXPECT_EQ(status.st_mode & 07777, 0700u);
}

TEST(InstanceLock, LinksInThePlaceOfTheFolderOrTheFileAreRemovedAndNamed) {
    std::filesystem::remove_all("/tmp/lock");
    std::filesystem::remove_all("/tmp/elsewhere");
    std::filesystem::create_directory("/tmp/elsewhere");
    std::filesystem::create_directory_symlink("/tmp/elsewhere", "/tmp/lock");
    testsupport::KmsgCapture log;
    {
        InstanceLock lock("/tmp/lock/instance.lock");
        ASSERT_TRUE(lock.take().ok());
    }
    EXPECT_TRUE(std::filesystem::is_directory(std::filesystem::symlink_status("/tmp/lock")));
    EXPECT_FALSE(std::filesystem::exists("/tmp/elsewhere/instance.lock"));

    std::filesystem::remove("/tmp/lock/instance.lock");
    std::filesystem::create_symlink("/tmp/elsewhere/target", "/tmp/lock/instance.lock");
    {
        InstanceLock lock("/tmp/lock/instance.lock");
        ASSERT_TRUE(lock.take().ok());
    }
    EXPECT_TRUE(std::filesystem::is_regular_file(
        std::filesystem::symlink_status("/tmp/lock/instance.lock")));
    EXPECT_FALSE(std::filesystem::exists("/tmp/elsewhere/target"));
    const std::vector<std::string> lines = log.lines();
    for (const char* expected : {"Removed lock folder /tmp/lock, which belonged to uid 0 (root)",
                                 "Removed lock file /tmp/lock/instance.lock, which belonged to "
                                 "uid 0 (root)"}) {
        EXPECT_TRUE(std::any_of(lines.begin(), lines.end(), [&](const std::string& line) {
            return testsupport::isLogLine(line, gen::Warn, "ownership.cpp", expected);
        })) << expected;
    }
}

} // namespace
