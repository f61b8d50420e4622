#include "filetext.h"

#include <cerrno>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

// Appends what `fd` holds from its position to its end to `text`; false when
// a read failed (what came before it is kept).
bool readToEnd(int fd, std::string& text) {
    constexpr std::size_t CHUNK = 16384;
    for (;;) {
        const std::size_t used = text.size();
        text.resize(used + CHUNK);
        const ssize_t got = ::read(fd, text.data() + used, CHUNK);
        if (got < 0 && errno == EINTR) {
            text.resize(used);
            continue;
        }
        text.resize(used + (got > 0 ? static_cast<std::size_t>(got) : 0));
        if (got <= 0) {
            return got == 0;
        }
    }
}

} // namespace

namespace FileText {

std::optional<std::string> read(const std::string& path) {
    const int fd = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
    if (fd < 0) {
        return std::nullopt;
    }
    std::string text;
    readToEnd(fd, text);
    ::close(fd);
    return text;
}

std::optional<std::string> readRegular(const std::string& path) {
    const int fd = ::open(path.c_str(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC);
    if (fd < 0) {
        return std::nullopt;
    }
    struct stat status {};
    std::string text;
    const bool whole = ::fstat(fd, &status) == 0 && S_ISREG(status.st_mode) && readToEnd(fd, text);
    ::close(fd);
    if (!whole) {
        return std::nullopt;
    }
    return text;
}

} // namespace FileText
