#include "signalbyname.h"

#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <dirent.h>
#include <fcntl.h>
#include <string>
#include <unistd.h>

namespace Readiness {

namespace {

// A process id from a name of /proc, 0 for any other entry.
pid_t processId(const char* entry) {
    char* end = nullptr;
    errno = 0;
    const long value = std::strtol(entry, &end, 10);
    if (errno != 0 || end == entry || *end != '\0' || value <= 0) {
        return 0;
    }
    return static_cast<pid_t>(value);
}

// The process's short command name; empty when it cannot be read.
std::string processName(pid_t pid) {
    const std::string path = "/proc/" + std::to_string(pid) + "/comm";
    const int fd = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
    if (fd < 0) {
        return {};
    }
    char text[64];
    const ssize_t got = ::read(fd, text, sizeof text);
    ::close(fd);
    if (got <= 0) {
        return {};
    }
    std::string name(text, static_cast<std::size_t>(got));
    if (name.back() == '\n') {
        name.pop_back();
    }
    return name;
}

} // namespace

int signalProcessesNamed(std::string_view name, int signal) {
    DIR* processes = name.empty() ? nullptr : ::opendir("/proc");
    if (processes == nullptr) {
        return 0;
    }
    const pid_t self = ::getpid();
    int signalled = 0;
    while (const dirent* entry = ::readdir(processes)) {
        const pid_t pid = processId(entry->d_name);
        if (pid == 0 || pid == self || processName(pid).find(name) == std::string::npos) {
            continue;
        }
        if (::kill(pid, signal) == 0) {
            ++signalled;
        }
    }
    ::closedir(processes);
    return signalled;
}

} // namespace Readiness
