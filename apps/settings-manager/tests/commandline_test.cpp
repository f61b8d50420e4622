// The command line of settings-manager and its one-instance lock.
#include "commandline.h"
#include "instancelock.h"
#include "version.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <filesystem>
#include <string>
#include <vector>

namespace {

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
    const std::string path = "/tmp/instance.lock";
    std::filesystem::remove(path);
    std::string error;
    {
        InstanceLock first(path);
        ASSERT_TRUE(first.take(error)) << error;
        InstanceLock second(path);
        EXPECT_FALSE(second.take(error));
        EXPECT_EQ(error, "already running (another instance holds /tmp/instance.lock)");
    }
    InstanceLock third(path);
    EXPECT_TRUE(third.take(error)) << error;
}

TEST(InstanceLock, ALockFileThatCannotBeMadeIsReported) {
    InstanceLock lock("/nonexistent/instance.lock");
    std::string error;
    EXPECT_FALSE(lock.take(error));
    EXPECT_EQ(error,
              "cannot open the lock file /nonexistent/instance.lock: No such file or directory");
}

} // namespace
