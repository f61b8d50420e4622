#include "instancelock.h"

#include "ownership.h"

#include <cerrno>
#include <cstring>
#include <exception>
#include <fcntl.h>
#include <stdexcept>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>
#include <utility>

InstanceLock::InstanceLock(std::string path) : path(std::move(path)), fd(-1) {}

InstanceLock::~InstanceLock() {
    if (fd >= 0) {
        ::close(fd);
    }
}

void InstanceLock::prepareFolder() const {
    const std::string folder = path.substr(0, path.rfind('/'));
    struct stat status {};
    if (::lstat(folder.c_str(), &status) == 0) {
        if (S_ISDIR(status.st_mode) && Ownership::isOwn(status)) {
            if ((status.st_mode & 07777) != Ownership::PRIVATE_FOLDER_MODE) {
                ::chmod(folder.c_str(), Ownership::PRIVATE_FOLDER_MODE);
            }
            return;
        }
        Ownership::removeForeign("lock folder", folder, status);
    }
    const Ownership::ExactModes exact(Ownership::PRIVATE_FOLDER_MODE);
    if (::mkdir(folder.c_str(), Ownership::PRIVATE_FOLDER_MODE) != 0) {
        throw std::runtime_error("cannot create " + folder + ": " + std::strerror(errno));
    }
}

// A lock file that is not a file of this process's user (a link, another
// user's file) is never opened: it is removed first.
void InstanceLock::clearForeignFile() const {
    struct stat status {};
    if (::lstat(path.c_str(), &status) == 0 &&
        (!S_ISREG(status.st_mode) || !Ownership::isOwn(status))) {
        Ownership::removeForeign("lock file", path, status);
    }
}

bool InstanceLock::take(std::string& error) {
    if (fd < 0) {
        try {
            prepareFolder();
            clearForeignFile();
        } catch (const std::exception& failure) {
            error = failure.what();
            return false;
        }
        fd = ::open(path.c_str(), O_RDWR | O_CREAT | O_NOFOLLOW | O_CLOEXEC,
                    Ownership::PRIVATE_MODE);
        if (fd < 0 || !Ownership::setOwnMode(fd, Ownership::PRIVATE_MODE)) {
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
