// memtool on a device where nothing runs: no memories and no broker.
#include "memtoolprocess.h"

#include <gtest/gtest.h>

namespace memtooltest {
namespace {

TEST(MemtoolWithoutMemories, ReadingFailsWithAClearMessage) {
    const Result get = runMemtool({"get", "MemPersistent", "AUXTorque"});
    EXPECT_EQ(get.status, 1);
    EXPECT_EQ(get.err, "memtool get: memory MemPersistent does not exist (is the settings service "
                       "running?)\n");
    EXPECT_EQ(runMemtool({"dump"}).status, 1);
    EXPECT_EQ(runMemtool({"set", "MemApp", "AppLogLevel", "Warn"}).status, 1);
}

TEST(MemtoolWithoutMemories, ListingsNeedNoMemory) {
    const Result memories = runMemtool({"memories"});
    EXPECT_EQ(memories.status, 0);
    EXPECT_NE(memories.out.find(" 0  MemPersistent         140 variables  absent\n"),
              std::string::npos)
        << memories.out;
    EXPECT_EQ(runMemtool({"vars", "MemApp"}).status, 0);
}

TEST(MemtoolWithoutMemories, NoBroker) {
    const Result post = runMemtool({"post", "1"});
    EXPECT_EQ(post.status, 1);
    EXPECT_EQ(post.err.rfind("memtool post: cannot connect to the message broker: ", 0), 0u)
        << post.err;
}

} // namespace
} // namespace memtooltest
