#include "writefully.h"

#include <cerrno>
#include <cstdint>
#include <unistd.h>

size_t writeFully(int fd, const void* data, size_t size) {
    const auto* next = static_cast<const uint8_t*>(data);
    size_t written = 0;
    while (written < size) {
        ssize_t result = ::write(fd, next + written, size - written);
        if (result < 0 && errno == EINTR) {
            continue;
        }
        if (result <= 0) {
            break;
        }
        written += static_cast<size_t>(result);
    }
    return written;
}
