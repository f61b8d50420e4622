// A poll whose epoll instance cannot be made throws at once, without logging.
#include "child.h"
#include "eventpoll.h"
#include "kmsgcapture.h"
#include "log.h"

#include <gtest/gtest.h>
#include <iostream>
#include <stdexcept>
#include <sys/resource.h>

using testsupport::KmsgCapture;
using testsupport::runInChild;

namespace {

TEST(EventPollCreate, AFailedCreateThrowsTheSystemTextAndLogsNothing) {
    gComponentLogLevel = nullptr;
    logMessage(nullptr, gen::LogLight, "create.cpp", 1, "the log is open before the child");
    KmsgCapture kmsg;
    auto result = runInChild([] {
        rlimit none{0, 0};
        if (setrlimit(RLIMIT_NOFILE, &none) != 0) {
            return 2;
        }
        try {
            EventPoll poll;
            std::cout << "created\n";
        } catch (const std::runtime_error& error) {
            std::cout << error.what() << "\n";
        }
        return 0;
    });
    EXPECT_TRUE(result.exitedWith(0)) << result.status << result.err;
    EXPECT_EQ(result.out, "epoll_create: Too many open files\n");
    EXPECT_EQ(kmsg.text(), "");
}

} // namespace
