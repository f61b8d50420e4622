#include "filetext.h"

#include <cerrno>
#include <fcntl.h>
#include <unistd.h>

namespace FileText {

std::optional<std::string> read(const std::string& path) {
    const int fd = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
    if (fd < 0) {
        return std::nullopt;
    }
    constexpr std::size_t CHUNK = 16384;
    std::string text;
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
            break;
        }
    }
    ::close(fd);
    return text;
}

} // namespace FileText
