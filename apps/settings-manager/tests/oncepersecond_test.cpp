// The pace of the loop's save check and reconnect attempts.
#include "oncepersecond.h"

#include <gtest/gtest.h>

#include <chrono>
#include <thread>

namespace {

using namespace std::chrono_literals;

TEST(OncePerSecond, TheFirstTurnIsDueAtOnce) {
    OncePerSecond pace(std::chrono::steady_clock::now);
    EXPECT_TRUE(pace.due());
}

TEST(OncePerSecond, ATurnIsDueOnlyAfterMoreThanASecond) {
    OncePerSecond pace(std::chrono::steady_clock::now);
    pace.restart();
    EXPECT_FALSE(pace.due());
    std::this_thread::sleep_for(500ms);
    EXPECT_FALSE(pace.due());
    std::this_thread::sleep_for(600ms);
    EXPECT_TRUE(pace.due());
    // That turn counts as the last one.
    EXPECT_FALSE(pace.due());
}

TEST(OncePerSecond, TheTurnsFollowTheClockItIsGiven) {
    std::chrono::steady_clock::time_point now{};
    OncePerSecond pace([&now] { return now; });
    pace.restart();
    now += 999'999'999ns;
    EXPECT_FALSE(pace.due());
    now += 1ns;
    EXPECT_TRUE(pace.due());
    // That turn counts as the last one.
    now += 999'999'999ns;
    EXPECT_FALSE(pace.due());
    now += 1ns;
    EXPECT_TRUE(pace.due());
}

} // namespace
