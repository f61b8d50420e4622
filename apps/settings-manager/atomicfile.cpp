#include "atomicfile.h"

#include "ownership.h"
#include "settings-service/log.h"
#include "writefully.h"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <exception>
#include <fcntl.h>
#include <optional>
#include <source_location>
#include <sys/stat.h>
#include <unistd.h>

namespace AtomicFile {

namespace {

constexpr std::string_view TEMPORARY_PREFIX = ".";
constexpr std::string_view TEMPORARY_SUFFIX = ".tmp";

// The failed step, its path and the system's reason.
Error systemFailure(const char* step, const std::string& path,
                    std::source_location where = std::source_location::current()) {
    const int code = errno;
    return failure(std::string(step) + " " + path + ": " + std::strerror(code), code, where);
}

// The folder part of `path`, its last separator included ("" for a bare name).
std::string folderOf(const std::string& path) {
    const std::size_t slash = path.rfind('/');
    return slash == std::string::npos ? std::string() : path.substr(0, slash + 1);
}

// True when all of `content` was written; otherwise errno tells why, and a
// write that stored nothing counts as a full device.
bool writeAll(int fd, const std::string& content) {
    errno = 0;
    if (writeFully(fd, content.data(), content.size()) == content.size()) {
        return true;
    }
    if (errno == 0) {
        errno = ENOSPC;
    }
    return false;
}

// Flushes the folder that holds `path`, so that a rename in it is durable.
Result<void> syncFolder(const std::string& path) {
    std::string folder = folderOf(path);
    if (folder.empty()) {
        folder = ".";
    }
    const int fd = ::open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (fd < 0) {
        return systemFailure("open folder", folder);
    }
    const bool synced = ::fsync(fd) == 0 || errno == EINVAL;
    const Result<void> result = synced ? Result<void>() : systemFailure("fsync folder", folder);
    ::close(fd);
    return result;
}

// Removes what lies at `path` so that a new file can take its place: an own
// file quietly (a write that was cut off), a link or anything of another user
// with a Warn line naming its owner.  Anything else of the service's own user
// (a folder) stays, and the creation that follows fails on it.
void clearPlace(const std::string& path) {
    struct stat status {};
    if (::lstat(path.c_str(), &status) != 0) {
        return;
    }
    const bool link = S_ISLNK(status.st_mode);
    if (!link && Ownership::isOwn(status)) {
        if (S_ISREG(status.st_mode)) {
            ::unlink(path.c_str());
        }
        return;
    }
    try {
        Ownership::removeForeign(link ? "link" : "file", path, status);
    } catch (const std::exception&) {
        // The creation or link that follows fails and says why.
    }
}

// Creates the temporary file `path` for writing, with exactly the mode of the
// settings files; never through a link, never an existing file.
int createTemporary(const std::string& path) {
    clearPlace(path);
    const int fd = ::open(path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC,
                          Ownership::SHARED_MODE);
    if (fd >= 0 && !Ownership::setOwnMode(fd, Ownership::SHARED_MODE)) {
        const int error = errno;
        ::close(fd);
        ::unlink(path.c_str());
        errno = error;
        return -1;
    }
    return fd;
}

// Renames `from` over `to` and flushes the folder; `from` is removed on failure.
Result<void> renameOver(const std::string& from, const std::string& to) {
    struct stat status {};
    if (::lstat(to.c_str(), &status) == 0 &&
        (S_ISLNK(status.st_mode) || !Ownership::isOwn(status))) {
        LOG(Warn, "Replacing %s %s, which belonged to %s",
            S_ISLNK(status.st_mode) ? "link" : "file", to.c_str(),
            Ownership::ownerText(status.st_uid).c_str());
    }
    if (std::rename(from.c_str(), to.c_str()) != 0) {
        const Error error = systemFailure("rename to", to);
        ::unlink(from.c_str());
        return error;
    }
    return syncFolder(to);
}

} // namespace

std::string temporaryPath(const std::string& target) {
    const std::string folder = folderOf(target);
    return folder + std::string(TEMPORARY_PREFIX) + target.substr(folder.size()) +
           std::string(TEMPORARY_SUFFIX);
}

bool isTemporaryName(std::string_view name) {
    return name.size() > TEMPORARY_PREFIX.size() + TEMPORARY_SUFFIX.size() &&
           name.substr(0, TEMPORARY_PREFIX.size()) == TEMPORARY_PREFIX &&
           name.substr(name.size() - TEMPORARY_SUFFIX.size()) == TEMPORARY_SUFFIX;
}

Result<void> write(const std::string& target, const std::string& content) {
    const std::string temporary = temporaryPath(target);
    const int fd = createTemporary(temporary);
    if (fd < 0) {
        return systemFailure("create", temporary);
    }
    std::optional<Error> error;
    if (!writeAll(fd, content)) {
        error = systemFailure("write", temporary);
    } else if (::fsync(fd) != 0) {
        error = systemFailure("fsync", temporary);
    }
    if (::close(fd) != 0 && !error) {
        error = systemFailure("close", temporary);
    }
    if (error) {
        ::unlink(temporary.c_str());
        return *error;
    }
    return renameOver(temporary, target);
}

Result<void> linkOver(const std::string& existing, const std::string& link) {
    const std::string temporary = temporaryPath(link);
    clearPlace(temporary);
    if (::link(existing.c_str(), temporary.c_str()) != 0) {
        return systemFailure("link", temporary);
    }
    return renameOver(temporary, link);
}

} // namespace AtomicFile
