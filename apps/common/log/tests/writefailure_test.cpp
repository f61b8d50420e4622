// A write to the kernel log that fails is reported on standard error and the
// caller goes on.  The check runs in a child whose log descriptor is replaced
// by /dev/full, so every write on it fails with ENOSPC.
#include "child.h"
#include "kmsgcapture.h"
#include "logdescriptor.h"
#include "logline.h"
#include "settings-service/log.h"

#include <cstdio>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

using logtest::descriptorOf;
using testsupport::KmsgCapture;
using testsupport::logLine;
using testsupport::runInChild;

namespace {

TEST(LogWriteFailure, PrintsTheFatalLineOnStandardErrorAndTheCallerContinues) {
    KmsgCapture kmsg;
    auto result = runInChild([] {
        logMessage(nullptr, gen::LogLight, "fatal.cpp", 1, "written");
        int log = descriptorOf("/dev/kmsg");
        int full = open("/dev/full", O_WRONLY);
        if (log < 0 || full < 0 || dup2(full, log) != log) {
            return 2;
        }
        logMessage(nullptr, gen::Error, "fatal.cpp", 2, "lost");
        logMessage(nullptr, gen::Error, "fatal.cpp", 3, "lost too");
        std::printf("continued\n");
        return 0;
    });
    EXPECT_TRUE(result.exitedWith(0)) << result.status;
    EXPECT_EQ(result.err, "FATAL: Logging: Write failed: No space left on device\n"
                          "FATAL: Logging: Write failed: No space left on device\n");
    EXPECT_EQ(result.out, "continued\n");
    EXPECT_EQ(kmsg.lines(),
              std::vector<std::string>{logLine(gen::LogLight, "fatal.cpp", 1, "written")});
}

} // namespace
