// A poll whose epoll instance cannot be made throws at once, without logging.
#include "child.h"
#include "kmsgcapture.h"
#include "settings-service/eventpoll.h"
#include "settings-service/log.h"

#include <gtest/gtest.h>
#include <iostream>
#include <stdexcept>
#include <string>
#include <sys/resource.h>

using testsupport::KmsgCapture;
using testsupport::runInChild;

namespace {

TEST(EventPollCreate, AFailedCreateThrowsTheSystemTextAndLogsNothing) {
    gComponentLogLevel = nullptr;
    logMessage(nullptr, gen::LogLight, "create.cpp", 1, "the log is open before the child");
    KmsgCapture kmsg;
    auto result = runInChild([] {
        // No descriptor can be opened while the soft limit is 0; the limit is
        // put back before anything else runs (sanitizer runtimes open files).
        rlimit limit{};
        getrlimit(RLIMIT_NOFILE, &limit);
        rlimit none{0, limit.rlim_max};
        if (setrlimit(RLIMIT_NOFILE, &none) != 0) {
            return 2;
        }
        std::string outcome = "created";
        try {
            EventPoll poll;
        } catch (const std::runtime_error& error) {
            outcome = error.what();
        }
        setrlimit(RLIMIT_NOFILE, &limit);
        std::cout << outcome << "\n";
        return 0;
    });
    EXPECT_TRUE(result.exitedWith(0)) << result.status << result.err;
    EXPECT_EQ(result.out, "epoll_create: Too many open files\n");
    EXPECT_EQ(kmsg.text(), "");
}

} // namespace
