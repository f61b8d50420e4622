// The message broker's stand-in process for the tests of the device-root
// runner: the broker double listens on the broker's socket and makes its
// readiness semaphore, then the process waits for SIGTERM.  With
// DEVROOT_FAKE_BROKER set to "nosocket" it makes neither.
#include "brokerdouble.h"
#include "settings-service/log.h"

#include <csignal>
#include <cstdlib>
#include <memory>
#include <string>

int main() {
    sigset_t stop;
    sigemptyset(&stop);
    sigaddset(&stop, SIGTERM);
    sigprocmask(SIG_BLOCK, &stop, nullptr);

    const char* mode = std::getenv("DEVROOT_FAKE_BROKER");
    std::unique_ptr<BrokerDouble> broker;
    if (mode == nullptr || std::string(mode) != "nosocket") {
        broker = std::make_unique<BrokerDouble>();
        LOG(LogLight, "fake broker listening");
    }
    int signal = 0;
    sigwait(&stop, &signal);
    broker.reset();
    LOG(LogLight, "fake broker stopping");
    return 0;
}
