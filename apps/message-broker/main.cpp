// message-broker: forwards Notify records between the device's processes.
//
// It listens on "/var/volatile/message-broker.socket", announces readiness
// through the semaphore "/message-broker-ready" and runs until SIGINT or
// SIGTERM, after which it removes both and exits with status 0.  It exits with
// status 1 when it cannot start, for example while another broker is running.
// Under a service manager that names NOTIFY_SOCKET it also sends READY=1 there
// once it listens and the semaphore exists.
//
// Logging: the broker has no shared memory of its own, so its level is a
// variable of its own, LogLight: the start, the end and the closing of a
// client that does not read (Warn) are written; connections and disconnections
// are logged at LogMost and so stay out of a running device's log.
#include "broker.h"
#include "eventpoll.h"
#include "log.h"
#include "readiness.h"
#include "serverconnection.h"

#include <cstdio>
#include <exception>

namespace {
gen::LogLevel brokerLogLevel = gen::LogLight;
}

int main() {
    gComponentLogLevel = &brokerLogLevel;
    EventPoll& poll = gen::getEventPoll();
    try {
        Broker broker(poll);
        LOG(LogLight, "Listening on %s", ServerConnection::SOCKET_PATH);
        Readiness::notifyServiceManager();
        while (poll.wait(-1) != EventPoll::Terminate) {
            broker.afterWakeUp();
        }
    } catch (const std::exception& error) {
        std::fprintf(stderr, "message-broker: %s\n", error.what());
        return 1;
    }
    LOG(LogLight, "Stopped");
    return 0;
}
