// Each line, its priority prefix included, reaches the kernel log in one
// write, so that the kernel stores one record per line.  The check runs in a
// child whose log descriptor is replaced by a datagram socket: every write on
// it is one datagram.
#include "child.h"
#include "logdescriptor.h"
#include "logline.h"
#include "settings-service/log.h"

#include <cstdio>
#include <gtest/gtest.h>
#include <string>
#include <sys/socket.h>
#include <unistd.h>

using logtest::descriptorOf;
using testsupport::logLine;
using testsupport::runInChild;

namespace {

TEST(LogRecord, PrefixAndLineAreOneWrite) {
    auto result = runInChild([] {
        logMessage(nullptr, gen::LogLight, "record.cpp", 1, "opens the log");
        int log = descriptorOf("/dev/kmsg");
        int pair[2];
        if (log < 0 || socketpair(AF_UNIX, SOCK_DGRAM, 0, pair) != 0 || dup2(pair[0], log) != log) {
            return 2;
        }
        logMessage(nullptr, gen::Error, "record.cpp", 22, "one %s", "record");
        logMessage(nullptr, gen::DebugMost, "record.cpp", 333, "another");
        char buffer[1024];
        for (int i = 0; i < 2; ++i) {
            ssize_t got = recv(pair[1], buffer, sizeof buffer, MSG_DONTWAIT);
            if (got > 0) {
                std::printf("[%.*s]", static_cast<int>(got), buffer);
            }
        }
        return 0;
    });
    EXPECT_TRUE(result.exitedWith(0)) << result.status << result.err;
    EXPECT_EQ(result.out, "[<3>" + logLine(gen::Error, "record.cpp", 22, "one record") + "\n]" +
                              "[<7>" + logLine(gen::DebugMost, "record.cpp", 333, "another") +
                              "\n]");
}

} // namespace
