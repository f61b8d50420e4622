// memtool's commands through the frame, with a Device made by the test as
// main makes one: what a wrong command line and a missing memory give.  The
// test's device root holds no memory.
#include "commands.h"
#include "names.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace {

struct Output {
    int status;
    std::string out;
    std::string err;
};

Output run(const std::vector<std::string>& words) {
    Device device(gen::getEventPoll());
    testing::internal::CaptureStdout();
    testing::internal::CaptureStderr();
    const int status = runProgram(memtoolProgram(device), words);
    return {status, testing::internal::GetCapturedStdout(), testing::internal::GetCapturedStderr()};
}

TEST(MemtoolCommands, NamesListsTheCommandTable) {
    const Output names = run({"names", "--commands"});
    EXPECT_EQ(names.status, ExitSuccess);
    Device device(gen::getEventPoll());
    std::string expected;
    for (const Command& command : memtoolProgram(device).commands) {
        expected += std::string(command.name) + "\n";
    }
    EXPECT_EQ(names.out, expected);
    EXPECT_EQ(names.out.rfind("memories\nvars\n", 0), 0u);
}

TEST(MemtoolCommands, AnUnknownNameIsAUsageErrorWithTheSynopsis) {
    const Output get = run({"get", "MemPersistnt", "X"});
    EXPECT_EQ(get.status, ExitUsage);
    EXPECT_EQ(get.out, "");
    EXPECT_EQ(get.err,
              "memtool get: unknown memory \"MemPersistnt\". Did you mean: MemPersistent?\n"
              "Usage: memtool get MEMORY VARIABLE [VARIABLE...] [--json]\n");
}

TEST(MemtoolCommands, AWrongNumberIsAUsageError) {
    const Output watch = run({"watch", "--count", "x"});
    EXPECT_EQ(watch.status, ExitUsage);
    EXPECT_EQ(watch.err.substr(0, watch.err.find('\n')),
              "memtool watch: option --count needs a number, not \"x\"");
}

TEST(MemtoolCommands, AMissingMemoryFailsTheCommandWithoutTheSynopsis) {
    const uint32_t memory = findMemory("MemPersistent").value();
    ASSERT_FALSE(Device(gen::getEventPoll()).memoryExists(memory));
    const Output get = run({"get", "MemPersistent", "0"});
    EXPECT_EQ(get.status, ExitFailure);
    EXPECT_EQ(get.out, "");
    EXPECT_EQ(get.err.rfind("memtool get: ", 0), 0u) << get.err;
    EXPECT_EQ(get.err.find("Usage:"), std::string::npos);
}

TEST(MemtoolNames, AnUnknownVariableIsAWrongUsageNamingWhereItIs) {
    const uint32_t memory = findMemory("MemPersistent").value();
    const Result<uint32_t> variable = findVariable(memory, "NoSuchVariable");
    ASSERT_FALSE(variable.ok());
    EXPECT_EQ(variable.error().code, Error::WrongUsage);
    EXPECT_EQ(
        variable.error().text.rfind("unknown variable \"NoSuchVariable\" in MemPersistent", 0), 0u);
    const Result<EventId> event = findEvent("4294967295");
    ASSERT_FALSE(event.ok());
    EXPECT_EQ(event.error().code, Error::WrongUsage);
}

} // namespace
