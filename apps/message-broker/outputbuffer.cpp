#include "outputbuffer.h"

#include <cstring>
#include <unistd.h>

bool OutputBuffer::append(const Notify& record) {
    if (pending() + sizeof record > LIMIT) {
        return false;
    }
    if (head > 0 && head >= data.size() / 2) {
        data.erase(data.begin(), data.begin() + static_cast<ptrdiff_t>(head));
        head = 0;
    }
    const auto* bytes = reinterpret_cast<const uint8_t*>(&record);
    data.insert(data.end(), bytes, bytes + sizeof record);
    return true;
}

ssize_t OutputBuffer::flush(int fd) {
    ssize_t written = ::write(fd, data.data() + head, pending());
    if (written > 0) {
        head += static_cast<size_t>(written);
        if (head == data.size()) {
            data.clear();
            head = 0;
        }
    }
    return written;
}
