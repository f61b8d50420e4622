// memtool: reads and writes the device's memories and talks to the message
// broker, for people who work on the device and for scripts.
//
// It opens the memories that the settings service created, as they are, and
// connects to the broker only for the commands that post or listen.  Values
// are written through the catalogue's setters, so range checks and change
// events happen as for any other process.  Exit status: 0 success, 1 the
// operation failed, 2 the command line is wrong.
//
// main makes the Device (the memories and the process's event loop) that the
// commands use, and closes the broker connection at the end.
#include "commands.h"
#include "settings-service/eventpoll.h"
#include "settings-service/log.h"
#include "settings-service/serverconnection.h"

#include <string>
#include <vector>

namespace {

// memtool's own log level: only warnings and errors reach the kernel log.
gen::LogLevel memtoolLogLevel = gen::Warn;

} // namespace

int main(int argc, char** argv) {
    EventPoll::handleSignals();
    gComponentLogLevel = &memtoolLogLevel;
    Device device(gen::getEventPoll());
    const int status =
        runProgram(memtoolProgram(device), std::vector<std::string>(argv + 1, argv + argc));
    gen::closeServerConnection();
    return status;
}
