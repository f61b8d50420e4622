#include "readiness.h"

#include "settings-service/log.h"

#include <cerrno>
#include <cstddef>
#include <cstdlib>
#include <cstring>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

namespace Readiness {

namespace {

constexpr const char* SOCKET_VARIABLE = "NOTIFY_SOCKET";

// Fills address from the variable's text; false (logged) when the text is no
// absolute path or abstract name, or too long for a socket address.
bool socketAddress(const char* name, sockaddr_un& address, socklen_t& length) {
    const size_t size = std::strlen(name);
    if (name[0] != '/' && name[0] != '@') {
        LOG(Error,
            "Cannot notify the service manager: %s \"%s\" is neither an absolute path nor "
            "an abstract name (@...)",
            SOCKET_VARIABLE, name);
        return false;
    }
    if (size >= sizeof address.sun_path) {
        LOG(Error, "Cannot notify the service manager: %s \"%s\" is longer than %zu characters",
            SOCKET_VARIABLE, name, sizeof address.sun_path - 1);
        return false;
    }
    address = {};
    address.sun_family = AF_UNIX;
    std::memcpy(address.sun_path, name, size);
    if (name[0] == '@') {
        address.sun_path[0] = '\0';
    }
    length = static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + size);
    return true;
}

} // namespace

bool notifyServiceManager() {
    const char* name = std::getenv(SOCKET_VARIABLE);
    if (name == nullptr || name[0] == '\0') {
        return false;
    }
    sockaddr_un address;
    socklen_t length = 0;
    if (!socketAddress(name, address, length)) {
        return true;
    }
    const int fd = ::socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    if (fd < 0) {
        LOG(Error, "Cannot notify the service manager at %s: socket: %s", name,
            std::strerror(errno));
        return true;
    }
    const size_t size = std::strlen(READY_MESSAGE);
    const ssize_t sent = ::sendto(fd, READY_MESSAGE, size, MSG_NOSIGNAL,
                                  reinterpret_cast<const sockaddr*>(&address), length);
    const int error = errno;
    ::close(fd);
    if (sent != static_cast<ssize_t>(size)) {
        LOG(Error, "Cannot notify the service manager at %s: %s", name, std::strerror(error));
    }
    return true;
}

} // namespace Readiness
