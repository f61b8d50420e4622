// How many clients the broker takes, from its descriptor limit; each case runs
// in a child process, since a lowered hard limit cannot be raised again.
#include "clientlimits.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <sys/resource.h>

namespace {

// Sets the limits, derives the client limits and exits 0 when they are
// `anyone` and `all` and the soft limit was raised to the hard one.
void expectLimits(rlim_t soft, rlim_t hard, size_t anyone, size_t all) {
    const rlimit set{soft, hard};
    if (::setrlimit(RLIMIT_NOFILE, &set) != 0) {
        std::exit(2);
    }
    const ClientLimits limits = ClientLimits::raiseDescriptorLimit();
    rlimit now{};
    ::getrlimit(RLIMIT_NOFILE, &now);
    std::exit(limits.anyone == anyone && limits.all == all && now.rlim_cur == hard ? 0 : 1);
}

TEST(ClientLimits, AHighLimitGivesTheFullCapsAndTheSoftLimitIsRaised) {
    EXPECT_EXIT(expectLimits(64, 4096, ClientLimits::MAX_CLIENTS,
                             ClientLimits::MAX_CLIENTS + ClientLimits::PRIVILEGED_ROOM),
                testing::ExitedWithCode(0), "");
}

TEST(ClientLimits, ALowLimitKeepsDescriptorsForTheBrokerAndRoomForRoot) {
    EXPECT_EXIT(
        expectLimits(100, 100,
                     100 - ClientLimits::RESERVED_DESCRIPTORS - ClientLimits::PRIVILEGED_ROOM,
                     100 - ClientLimits::RESERVED_DESCRIPTORS),
        testing::ExitedWithCode(0), "");
}

} // namespace
