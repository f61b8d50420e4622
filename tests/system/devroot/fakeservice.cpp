// A stand-in for the settings service, for the tests of the device-root
// runner.  It logs through the real logging code, leaves a marker file in
// /dev/shm and /var/volatile, tells its parent that it is ready with SIGUSR1,
// and ends with a chosen status when SIGTERM comes.  Environment:
//   DEVROOT_FAKE_MARKER   name of the marker files (default "devroot-fake")
//   DEVROOT_FAKE_MODE     "ready" (default), "silent" (never signals),
//                         "ends" (ends by itself with status 3 after signalling)
//   DEVROOT_FAKE_EXIT     exit status after SIGTERM (default 0)
//   DEVROOT_FAKE_WRITERS, DEVROOT_FAKE_LINES: before signalling, that many
//                         child processes each log that many long lines at once
#include "settings-service/log.h"

#include <csignal>
#include <cstdlib>
#include <fstream>
#include <string>
#include <sys/wait.h>
#include <unistd.h>

namespace {

std::string setting(const char* name, const char* fallback) {
    const char* value = std::getenv(name);
    return value ? value : fallback;
}

// Each line: "writer W line L " and a filler, so that a torn line shows.
void writeLines(int writer, int lines) {
    std::string filler(400, static_cast<char>('a' + writer % 26));
    for (int line = 0; line < lines; ++line) {
        logMessage(nullptr, gen::LogLight, __FILE__, __LINE__, "writer %d line %d %s", writer, line,
                   filler.c_str());
    }
}

void runWriters(int writers, int lines) {
    for (int writer = 0; writer < writers; ++writer) {
        if (fork() == 0) {
            writeLines(writer, lines);
            _exit(0);
        }
    }
    while (wait(nullptr) > 0) {
    }
}

} // namespace

int main() {
    sigset_t stop;
    sigemptyset(&stop);
    sigaddset(&stop, SIGTERM);
    sigprocmask(SIG_BLOCK, &stop, nullptr);

    std::string marker = setting("DEVROOT_FAKE_MARKER", "devroot-fake");
    std::string mode = setting("DEVROOT_FAKE_MODE", "ready");
    LOG(LogLight, "fake service started");
    std::ofstream("/dev/shm/" + marker) << "shm\n";
    std::ofstream("/var/volatile/" + marker) << "var\n";
    runWriters(std::stoi(setting("DEVROOT_FAKE_WRITERS", "0")),
               std::stoi(setting("DEVROOT_FAKE_LINES", "0")));
    if (mode != "silent") {
        kill(getppid(), SIGUSR1);
    }
    if (mode == "ends") {
        return 3;
    }
    int signal = 0;
    sigwait(&stop, &signal);
    LOG(LogLight, "fake service stopping");
    return std::stoi(setting("DEVROOT_FAKE_EXIT", "0"));
}
