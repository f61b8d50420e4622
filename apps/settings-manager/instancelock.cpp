#include "instancelock.h"

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>
#include <utility>

namespace {

constexpr mode_t LOCK_FILE_MODE = 0644;

} // namespace

InstanceLock::InstanceLock(std::string path) : path(std::move(path)), fd(-1) {}

InstanceLock::~InstanceLock() {
    if (fd >= 0) {
        ::close(fd);
    }
}

bool InstanceLock::take(std::string& error) {
    if (fd < 0) {
        fd = ::open(path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, LOCK_FILE_MODE);
        if (fd < 0) {
            error = "cannot open the lock file " + path + ": " + std::strerror(errno);
            return false;
        }
    }
    if (::flock(fd, LOCK_EX | LOCK_NB) == 0) {
        return true;
    }
    if (errno == EWOULDBLOCK) {
        error = "already running (another instance holds " + path + ")";
    } else {
        error = "cannot lock " + path + ": " + std::strerror(errno);
    }
    return false;
}
