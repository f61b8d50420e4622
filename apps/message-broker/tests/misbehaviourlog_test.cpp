// The rate limit of the lines about misbehaving clients: ten a second, then
// one line with the count of those left out once the second is over.
#include "kmsgcapture.h"
#include "logline.h"
#include "misbehaviourlog.h"

#include <gtest/gtest.h>

#include <chrono>
#include <thread>

namespace {

TEST(MisbehaviourLog, TenLinesASecondThenOneLineWithTheCount) {
    testsupport::KmsgCapture log;
    MisbehaviourLog limit;
    int allowed = 0;
    for (int i = 0; i < 25; ++i) {
        allowed += limit.allow() ? 1 : 0;
    }
    EXPECT_EQ(allowed, 10);
    limit.flush();
    EXPECT_TRUE(log.lines().empty()) << "the count came before its second was over";

    std::this_thread::sleep_for(std::chrono::milliseconds(1050));
    limit.flush();
    const auto lines = log.lines();
    ASSERT_EQ(lines.size(), 1u);
    EXPECT_TRUE(testsupport::isLogLine(lines[0], gen::Warn, "misbehaviourlog.cpp",
                                       "15 more lines about misbehaving clients were left out"));
    limit.flush();
    EXPECT_EQ(log.lines().size(), 1u) << "the count was written twice";
    EXPECT_TRUE(limit.allow()) << "a new second allows lines again";
}

TEST(MisbehaviourLog, NoCountLineWhenNothingWasLeftOut) {
    testsupport::KmsgCapture log;
    MisbehaviourLog limit;
    for (int i = 0; i < 10; ++i) {
        EXPECT_TRUE(limit.allow());
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(1050));
    limit.flush();
    EXPECT_TRUE(log.lines().empty());
    EXPECT_TRUE(limit.allow());
}

} // namespace
