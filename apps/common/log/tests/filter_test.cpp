// Which lines pass the component's level.
#include "kmsgcapture.h"
#include "logline.h"
#include "settings-service/log.h"

#include <cstdarg>
#include <gtest/gtest.h>
#include <string>
#include <vector>

using testsupport::KmsgCapture;
using testsupport::logLine;

namespace {

using Lines = std::vector<std::string>;

TEST(LogFilter, AtWarnLogLightIsDroppedAndWarnAndErrorAreWritten) {
    gen::LogLevel component = gen::Warn;
    KmsgCapture kmsg;
    logMessage(&component, gen::LogLight, "filter.cpp", 1, "dropped");
    logMessage(&component, gen::Warn, "filter.cpp", 2, "equal");
    logMessage(&component, gen::Error, "filter.cpp", 3, "above");
    EXPECT_EQ(kmsg.lines(), (Lines{logLine(gen::Warn, "filter.cpp", 2, "equal"),
                                   logLine(gen::Error, "filter.cpp", 3, "above")}));
}

TEST(LogFilter, ANullComponentLevelLetsEveryLevelThrough) {
    KmsgCapture kmsg;
    logMessage(nullptr, gen::DebugAll, "filter.cpp", 1, "all");
    logMessage(nullptr, gen::LogLight, "filter.cpp", 2, "light");
    logMessage(nullptr, gen::Error, "filter.cpp", 3, "error");
    EXPECT_EQ(kmsg.lines(), (Lines{logLine(gen::DebugAll, "filter.cpp", 1, "all"),
                                   logLine(gen::LogLight, "filter.cpp", 2, "light"),
                                   logLine(gen::Error, "filter.cpp", 3, "error")}));
}

TEST(LogFilter, TheLevelIsReadAtEveryCall) {
    gen::LogLevel component = gen::Error;
    KmsgCapture kmsg;
    logMessage(&component, gen::LogAll, "filter.cpp", 1, "before");
    component = gen::LogAll;
    logMessage(&component, gen::LogAll, "filter.cpp", 2, "after");
    EXPECT_EQ(kmsg.lines(), Lines{logLine(gen::LogAll, "filter.cpp", 2, "after")});
}

TEST(LogFilter, TheComparisonIsSigned) {
    auto below = static_cast<gen::LogLevel>(-1);
    auto above = static_cast<gen::LogLevel>(8);
    KmsgCapture kmsg;
    logMessage(&below, gen::DebugAll, "filter.cpp", 1, "negative level lets all through");
    logMessage(&above, gen::Error, "filter.cpp", 2, "dropped above Error");
    EXPECT_EQ(kmsg.lines(),
              Lines{logLine(gen::DebugAll, "filter.cpp", 1, "negative level lets all through")});
}

TEST(LogFilter, TheMacroUsesTheGlobalComponentLevel) {
    gen::LogLevel component = gen::Warn;
    gComponentLogLevel = &component;
    KmsgCapture kmsg;
    LOG(LogLight, "dropped");
    int line = __LINE__ + 1;
    LOG(Warn, "kept");
    gComponentLogLevel = nullptr;
    EXPECT_EQ(kmsg.lines(), Lines{logLine(gen::Warn, "filter_test.cpp", line, "kept")});
}

void logThroughList(gen::LogLevel* component, gen::LogLevel level, const char* format, ...) {
    va_list args;
    va_start(args, format);
    logMessageIntern(component, level, "intern.cpp", 77, format, args);
    va_end(args);
}

TEST(LogFilter, TheArgumentListVariantFiltersAndFormatsTheSame) {
    gen::LogLevel component = gen::LogMost;
    KmsgCapture kmsg;
    logThroughList(&component, gen::LogAll, "dropped %d", 1);
    logThroughList(&component, gen::LogMost, "%s=%04x", "mask", 0x2a);
    EXPECT_EQ(kmsg.lines(), Lines{logLine(gen::LogMost, "intern.cpp", 77, "mask=002a")});
}

} // namespace
