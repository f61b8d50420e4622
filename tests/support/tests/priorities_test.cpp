// The kernel-log readers take each record's priority prefix off and refuse a
// prefix that does not belong to the record's level, so that a test that
// compares lines also checks their priority.
#include "logline.h"

#include <gtest/gtest.h>
#include <stdexcept>
#include <string>

using testsupport::logLine;
using testsupport::priorityPrefix;
using testsupport::withoutPriorities;

namespace {

TEST(Priorities, EachLevelHasTheKernelPriorityOfItsSeverity) {
    EXPECT_EQ(priorityPrefix(gen::Error), "<3>");
    EXPECT_EQ(priorityPrefix(gen::Warn), "<4>");
    EXPECT_EQ(priorityPrefix(gen::LogLight), "<6>");
    EXPECT_EQ(priorityPrefix(gen::LogMost), "<6>");
    EXPECT_EQ(priorityPrefix(gen::LogAll), "<6>");
    EXPECT_EQ(priorityPrefix(gen::DebugLight), "<7>");
    EXPECT_EQ(priorityPrefix(gen::DebugMost), "<7>");
    EXPECT_EQ(priorityPrefix(gen::DebugAll), "<7>");
}

TEST(Priorities, ThePrefixOfEveryRecordIsTakenOff) {
    std::string error = logLine(gen::Error, "a.cpp", 1, "failed");
    std::string debug = logLine(gen::DebugAll, "b.cpp", 22, "detail");
    EXPECT_EQ(withoutPriorities("<3>" + error + "\n<7>" + debug + "\n"),
              error + "\n" + debug + "\n");
    EXPECT_EQ(withoutPriorities("<3>" + error), error);
    EXPECT_EQ(withoutPriorities(""), "");
}

TEST(Priorities, ALineWithoutPrefixContinuesTheRecordBeforeIt) {
    std::string warn = logLine(gen::Warn, "c.cpp", 3, "Command cp failed:");
    EXPECT_EQ(withoutPriorities("<4>" + warn + "\nexit status 2\n"), warn + "\nexit status 2\n");
}

TEST(Priorities, ARecordWithoutLevelTagKeepsAnyPrefixTakenOff) {
    EXPECT_EQ(withoutPriorities("<5>plain text\n"), "plain text\n");
}

TEST(Priorities, APrefixThatIsNotTheLevelsPriorityIsRefused) {
    std::string error = logLine(gen::Error, "a.cpp", 1, "failed");
    std::string info = logLine(gen::LogLight, "a.cpp", 2, "note");
    EXPECT_THROW(withoutPriorities("<6>" + error + "\n"), std::runtime_error);
    EXPECT_THROW(withoutPriorities("<3>" + error + "\n<7>" + info + "\n"), std::runtime_error);
    EXPECT_THROW(withoutPriorities("<4>" + logLine(gen::LogAll, "a.cpp", 3, "x")),
                 std::runtime_error);
}

TEST(Priorities, TextThatDoesNotStartWithAPrefixIsRefused) {
    EXPECT_THROW(withoutPriorities(logLine(gen::Error, "a.cpp", 1, "failed") + "\n"),
                 std::runtime_error);
    EXPECT_THROW(withoutPriorities("<>" + logLine(gen::Error, "a.cpp", 1, "failed")),
                 std::runtime_error);
    EXPECT_THROW(withoutPriorities("<3" + logLine(gen::Error, "a.cpp", 1, "failed")),
                 std::runtime_error);
}

} // namespace
