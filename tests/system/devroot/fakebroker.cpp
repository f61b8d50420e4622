// A stand-in for the message broker, for the tests of the device-root runner:
// it listens on the broker's socket until SIGTERM.  With DEVROOT_FAKE_BROKER
// set to "nosocket" it never makes the socket.
#include "log.h"

#include <csignal>
#include <cstdlib>
#include <cstring>
#include <string>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

namespace {
constexpr const char* SOCKET_PATH = "/var/volatile/message-broker.socket";
}

int main() {
    sigset_t stop;
    sigemptyset(&stop);
    sigaddset(&stop, SIGTERM);
    sigprocmask(SIG_BLOCK, &stop, nullptr);

    const char* mode = std::getenv("DEVROOT_FAKE_BROKER");
    if (mode == nullptr || std::string(mode) != "nosocket") {
        int listener = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
        sockaddr_un address{};
        address.sun_family = AF_UNIX;
        std::strncpy(address.sun_path, SOCKET_PATH, sizeof address.sun_path - 1);
        if (listener < 0 || bind(listener, reinterpret_cast<sockaddr*>(&address), sizeof address) ||
            listen(listener, 4)) {
            THROW_ERROR_NUMBER("fake broker socket");
        }
        LOG(LogLight, "fake broker listening");
    }
    int signal = 0;
    sigwait(&stop, &signal);
    unlink(SOCKET_PATH);
    LOG(LogLight, "fake broker stopping");
    return 0;
}
