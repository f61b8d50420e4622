// A stand-in for the message broker, for the tests of the device-root runner:
// it listens on the broker's socket and makes its readiness semaphore, then
// waits for SIGTERM.  With DEVROOT_FAKE_BROKER set to "nosocket" it makes
// neither.
#include "settings-service/brokerprotocol.h"
#include "settings-service/log.h"

#include <csignal>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <semaphore.h>
#include <string>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

using BrokerProtocol::READY_SEMAPHORE;
using BrokerProtocol::SOCKET_PATH;

int main() {
    sigset_t stop;
    sigemptyset(&stop);
    sigaddset(&stop, SIGTERM);
    sigprocmask(SIG_BLOCK, &stop, nullptr);

    const char* mode = std::getenv("DEVROOT_FAKE_BROKER");
    if (mode == nullptr || std::string(mode) != "nosocket") {
        int listener = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
        const sockaddr_un address = BrokerProtocol::address();
        if (listener < 0 ||
            bind(listener, reinterpret_cast<const sockaddr*>(&address), sizeof address) ||
            listen(listener, 4)) {
            THROW_ERROR_NUMBER("fake broker socket");
        }
        sem_t* ready = sem_open(READY_SEMAPHORE, O_CREAT, 0666, 1);
        if (ready == SEM_FAILED) {
            THROW_ERROR_NUMBER("fake broker semaphore");
        }
        sem_close(ready);
        LOG(LogLight, "fake broker listening");
    }
    int signal = 0;
    sigwait(&stop, &signal);
    unlink(SOCKET_PATH);
    sem_unlink(READY_SEMAPHORE);
    LOG(LogLight, "fake broker stopping");
    return 0;
}
