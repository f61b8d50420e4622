#include "ownership.h"

#include "settings-service/log.h"

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <pwd.h>
#include <unistd.h>

namespace Ownership {

std::string ownerText(uid_t uid) {
    std::string text = "uid " + std::to_string(uid);
    const passwd* user = ::getpwuid(uid);
    if (user != nullptr && user->pw_name != nullptr) {
        text += std::string(" (") + user->pw_name + ")";
    }
    return text;
}

bool isOwn(const struct stat& status) {
    return status.st_uid == ::geteuid();
}

void removeForeign(const char* what, const std::string& path, const struct stat& status) {
    const std::string owner = ownerText(status.st_uid);
    const bool folder = S_ISDIR(status.st_mode);
    if ((folder ? ::rmdir(path.c_str()) : ::unlink(path.c_str())) != 0 && errno != ENOENT) {
        THROW_ERROR("%s %s belongs to %s and cannot be removed: %s", what, path.c_str(),
                    owner.c_str(), std::strerror(errno));
    }
    LOG(Warn, "Removed %s %s, which belonged to %s", what, path.c_str(), owner.c_str());
}

bool setOwnMode(int fd, mode_t mode) {
    struct stat status {};
    if (::fstat(fd, &status) != 0) {
        return false;
    }
    if (status.st_gid != ::getegid() && ::fchown(fd, static_cast<uid_t>(-1), ::getegid()) != 0) {
        return false;
    }
    return (status.st_mode & 07777) == mode || ::fchmod(fd, mode) == 0;
}

bool restrictOwn(const std::string& path, const struct stat& status, mode_t most) {
    if (status.st_gid != ::getegid() &&
        ::lchown(path.c_str(), static_cast<uid_t>(-1), ::getegid()) != 0) {
        return false;
    }
    const mode_t mode = status.st_mode & 07777;
    return (mode & ~most) == 0 ||
           ::fchmodat(AT_FDCWD, path.c_str(), mode & most, AT_SYMLINK_NOFOLLOW) == 0;
}

} // namespace Ownership
