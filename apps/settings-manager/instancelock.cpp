#include "instancelock.h"

#include "ownership.h"

#include <cerrno>
#include <cstring>
#include <exception>
#include <fcntl.h>
#include <source_location>
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

namespace {

// The reason of a failed system call, with the call's errno.
Error systemFailure(const std::string& what,
                    std::source_location where = std::source_location::current()) {
    const int code = errno;
    return failure(what + ": " + std::strerror(code), code, where);
}

// Ownership::removeForeign, whose failure is an exception.
Result<void> removeForeign(const char* what, const std::string& path, const struct stat& status) {
    try {
        Ownership::removeForeign(what, path, status);
    } catch (const std::exception& error) {
        return failure(error.what());
    }
    return {};
}

} // namespace

Result<void> InstanceLock::prepareFolder() const {
    const std::string folder = path.substr(0, path.rfind('/'));
    struct stat status {};
    if (::lstat(folder.c_str(), &status) == 0) {
        if (S_ISDIR(status.st_mode) && Ownership::isOwn(status)) {
            if ((status.st_mode & 07777) != Ownership::PRIVATE_FOLDER_MODE) {
                ::chmod(folder.c_str(), Ownership::PRIVATE_FOLDER_MODE);
            }
            return {};
        }
        if (Result<void> removed = removeForeign("lock folder", folder, status); !removed) {
            return removed;
        }
    }
    const Ownership::ExactModes exact(Ownership::PRIVATE_FOLDER_MODE);
    if (::mkdir(folder.c_str(), Ownership::PRIVATE_FOLDER_MODE) != 0) {
        return systemFailure("cannot create " + folder);
    }
    return {};
}

Result<void> InstanceLock::clearForeignFile() const {
    struct stat status {};
    if (::lstat(path.c_str(), &status) == 0 &&
        (!S_ISREG(status.st_mode) || !Ownership::isOwn(status))) {
        return removeForeign("lock file", path, status);
    }
    return {};
}

Result<void> InstanceLock::take() {
    if (fd < 0) {
        if (Result<void> prepared = prepareFolder(); !prepared) {
            return prepared;
        }
        if (Result<void> cleared = clearForeignFile(); !cleared) {
            return cleared;
        }
        fd = ::open(path.c_str(), O_RDWR | O_CREAT | O_NOFOLLOW | O_CLOEXEC,
                    Ownership::PRIVATE_MODE);
        if (fd < 0 || !Ownership::setOwnMode(fd, Ownership::PRIVATE_MODE)) {
            return systemFailure("cannot open the lock file " + path);
        }
    }
    if (::flock(fd, LOCK_EX | LOCK_NB) == 0) {
        return {};
    }
    if (errno == EWOULDBLOCK) {
        return failure("already running (another instance holds " + path + ")", EWOULDBLOCK);
    }
    return systemFailure("cannot lock " + path);
}
