// While the kernel log cannot be opened, lines are lost silently and every
// line tries the open again; a process that opens it late appends.  This program must not log
// before the test: the child has to start without an open log descriptor.
#include "child.h"
#include "kmsgcapture.h"
#include "logline.h"
#include "settings-service/log.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

using testsupport::KmsgCapture;
using testsupport::logLine;
using testsupport::runInChild;

namespace {

constexpr const char* KMSG = "/dev/kmsg";

TEST(LogReopen, EveryLineRetriesTheOpenUntilTheLogCanBeOpened) {
    KmsgCapture kmsg;
    ASSERT_EQ(chmod(KMSG, 0), 0);
    int probe = open(KMSG, O_WRONLY);
    if (probe >= 0) {
        close(probe);
        chmod(KMSG, 0644);
        FAIL() << "a mode-0 /dev/kmsg still opens: run inside a device root, which has no "
                  "capabilities";
    }
    auto result = runInChild([] {
        logMessage(nullptr, gen::Error, "reopen.cpp", 1, "lost");
        logMessage(nullptr, gen::Error, "reopen.cpp", 2, "lost again");
        if (chmod(KMSG, 0644) != 0) {
            return 2;
        }
        logMessage(nullptr, gen::Error, "reopen.cpp", 3, "written");
        return 0;
    });
    chmod(KMSG, 0644);
    EXPECT_TRUE(result.exitedWith(0)) << result.status;
    EXPECT_EQ(result.err, "");
    // This process opens the log only now, after the child's line: its line
    // goes after it, not over it.
    logMessage(nullptr, gen::Warn, "reopen.cpp", 4, "appended");
    EXPECT_EQ(kmsg.lines(), (std::vector<std::string>{
                                logLine(gen::Error, "reopen.cpp", 3, "written"),
                                logLine(gen::Warn, "reopen.cpp", 4, "appended"),
                            }));
}

} // namespace
