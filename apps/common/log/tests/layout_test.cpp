// The bytes of one kernel-log line: priority prefix, program piece, level tag,
// location, message, line feed, written as one record.
#include "kmsgcapture.h"
#include "logline.h"
#include "settings-service/log.h"

#include <cerrno>
#include <gtest/gtest.h>
#include <string>

using testsupport::KmsgCapture;
using testsupport::locationField;
using testsupport::logLine;

namespace {

constexpr size_t MESSAGE_PIECE = 511;

TEST(LogLayout, LineIsWrittenByteForByte) {
    ASSERT_STREQ(program_invocation_short_name, "log_test");
    KmsgCapture kmsg;
    logMessage(nullptr, gen::LogLight, "/src/apps/settings.cpp", 7, "hello %s %d", "world", 42);
    EXPECT_EQ(kmsg.rawText(), "<6>"
                              "            log_test  "
                              "LogLight    "
                              "        settings.cpp:   7 "
                              "hello world 42\n");
}

TEST(LogLayout, EveryLevelHasItsKernelPriorityAndItsTwelveCharacterTag) {
    const char* const priorities[] = {"<7>", "<7>", "<7>", "<6>", "<6>", "<6>", "<4>", "<3>"};
    const char* const tags[] = {"DebugAll    ", "DebugMost   ", "DebugLight  ", "LogAll      ",
                                "LogMost     ", "LogLight    ", "Warn        ", "Error       "};
    for (int level = gen::DebugAll; level <= gen::Error; ++level) {
        KmsgCapture kmsg;
        logMessage(nullptr, static_cast<gen::LogLevel>(level), "tags.cpp", level, "level %d",
                   level);
        std::string text = "            log_test  " + std::string(tags[level]) +
                           "            tags.cpp:   " + std::to_string(level) + " level " +
                           std::to_string(level) + "\n";
        EXPECT_EQ(kmsg.rawText(), priorities[level] + text);
        EXPECT_EQ(kmsg.text(), text);
    }
}

TEST(LogLayout, OnlyTheBaseNameOfTheSourcePathIsWritten) {
    KmsgCapture kmsg;
    logMessage(nullptr, gen::Warn, "/a/b/c/deep.cpp", 1234, "deep");
    logMessage(nullptr, gen::Warn, "plain.cpp", 5, "plain");
    logMessage(nullptr, gen::Warn, "relative/dir/name.h", 99, "relative");
    EXPECT_EQ(kmsg.lines(), (std::vector<std::string>{
                                logLine(gen::Warn, "deep.cpp", 1234, "deep"),
                                logLine(gen::Warn, "plain.cpp", 5, "plain"),
                                logLine(gen::Warn, "name.h", 99, "relative"),
                            }));
    EXPECT_EQ(kmsg.lines()[0].substr(34), "            deep.cpp:1234 deep");
}

TEST(LogLayout, WideFieldsAreNotCut) {
    KmsgCapture kmsg;
    logMessage(nullptr, gen::LogAll, "a_source_file_name_wider_than_twenty.cpp", 123456, "wide");
    EXPECT_EQ(kmsg.lines(), std::vector<std::string>{"            log_test  LogAll      "
                                                     "a_source_file_name_wider_than_twenty.cpp:"
                                                     "123456 wide"});
}

TEST(LogLayout, TheMacroPassesTheComponentLevelFileAndLine) {
    gComponentLogLevel = nullptr;
    KmsgCapture kmsg;
    int line = __LINE__ + 1;
    LOG(Warn, "macro %s", "works");
    EXPECT_EQ(kmsg.lines(),
              std::vector<std::string>{logLine(gen::Warn, "layout_test.cpp", line, "macro works")});
}

TEST(LogLayout, TheMessagePieceIsCutAt511Characters) {
    std::string location = locationField("cut.cpp", 12);
    ASSERT_EQ(location.size(), 26u);
    size_t room = MESSAGE_PIECE - location.size();

    KmsgCapture kmsg;
    logMessage(nullptr, gen::Error, "cut.cpp", 12, "%s", std::string(room, 'f').c_str());
    logMessage(nullptr, gen::Error, "cut.cpp", 12, "%s", std::string(room + 1, 'o').c_str());
    logMessage(nullptr, gen::Error, "cut.cpp", 12, "%s", std::string(4000, 'x').c_str());
    std::string head = "<3>            log_test  Error       " + location;
    EXPECT_EQ(kmsg.rawText(), head + std::string(room, 'f') + "\n" + head + std::string(room, 'o') +
                                  "\n" + head + std::string(room, 'x') + "\n");
}

TEST(LogLayout, AnEmptyMessageStillEndsItsLine) {
    KmsgCapture kmsg;
    logMessage(nullptr, gen::LogMost, "two.cpp", 1, "first");
    logMessage(nullptr, gen::LogMost, "two.cpp", 2, "%s", "");
    EXPECT_EQ(kmsg.text(), logLine(gen::LogMost, "two.cpp", 1, "first") + "\n" +
                               logLine(gen::LogMost, "two.cpp", 2, "") + "\n");
}

} // namespace
