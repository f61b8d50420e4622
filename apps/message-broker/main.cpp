// message-broker: forwards Notify records between the device's processes.
//
// It listens on "/var/volatile/message-broker.socket", announces readiness
// through the semaphore "/message-broker-ready" and runs until SIGINT or
// SIGTERM, after which it removes both and exits with status 0.  It exits with
// status 1 when it cannot start, for example while another broker is running.
// Under a service manager that names NOTIFY_SOCKET it also sends READY=1 there
// once it listens and the semaphore exists.
//
// Command line: none to run.  `--help` and `--version` print to standard
// output and exit 0 before anything else happens (no socket, no semaphore, no
// log line); any other argument is a usage error (a message on standard
// error, exit status 2).
//
// Logging: the broker has no shared memory of its own, so its level is a
// variable of its own, LogLight: the start, the end and the closing of a
// client that does not read (Warn) are written; connections and disconnections
// are logged at LogMost and so stay out of a running device's log.
//
// Access and limits: endpoint.h (modes of the socket and semaphore, objects
// of other users), broker.h (client cap, subscriptions, queued bytes,
// credentials in the log lines).
#include "broker.h"
#include "readiness.h"
#include "settings-service/brokerprotocol.h"
#include "settings-service/eventpoll.h"
#include "settings-service/log.h"
#include "version.h"

#include <cstdio>
#include <cstring>
#include <exception>
#include <malloc.h>

namespace {

gen::LogLevel brokerLogLevel = gen::LogLight;

constexpr int USAGE_ERROR = 2;

void printUsage(FILE* stream) {
    std::fprintf(stream,
                 "usage: message-broker [--help | --version]\n"
                 "\n"
                 "Forwards the device's event records between its processes.\n"
                 "Listens on %s and, once it listens,\n"
                 "creates the readiness semaphore %s; runs until SIGINT or\n"
                 "SIGTERM, which remove both again.\n"
                 "Exit status: 0 stopped by a signal, 1 could not start (for example while\n"
                 "another broker runs), 2 wrong command line.\n",
                 BrokerProtocol::SOCKET_PATH, BrokerProtocol::READY_SEMAPHORE);
}

// Queues of 64 KiB and more get memory of their own from the system, which
// goes back to it when the queue is written out or its client closed; with
// glibc's sliding threshold a burst long past could keep heap memory.
constexpr int OWN_MAPPING_FROM = 64 * 1024;

int run() {
    gComponentLogLevel = &brokerLogLevel;
    mallopt(M_MMAP_THRESHOLD, OWN_MAPPING_FROM);
    EventPoll& poll = gen::getEventPoll();
    try {
        Broker broker(poll);
        LOG(LogLight, "Listening on %s", BrokerProtocol::SOCKET_PATH);
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

} // namespace

int main(int argc, char** argv) {
    EventPoll::handleSignals();
    if (argc == 1) {
        return run();
    }
    bool help = std::strcmp(argv[1], "--help") == 0;
    bool version = std::strcmp(argv[1], "--version") == 0;
    if (argc == 2 && help) {
        printUsage(stdout);
        return 0;
    }
    if (argc == 2 && version) {
        std::printf("message-broker %s\n", Constants::PROJECT_VERSION);
        return 0;
    }
    const char* unexpected = help || version ? argv[2] : argv[1];
    std::fprintf(stderr, "message-broker: unexpected argument '%s'\n", unexpected);
    printUsage(stderr);
    return USAGE_ERROR;
}
