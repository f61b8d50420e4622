#include "recordreader.h"

#include <cstring>
#include <unistd.h>

ssize_t RecordReader::readFrom(int fd, std::span<Notify> scratch, size_t& records) {
    records = 0;
    auto* bytes = reinterpret_cast<uint8_t*>(scratch.data());
    std::memcpy(bytes, tail, tailSize);
    ssize_t got = ::read(fd, bytes + tailSize, scratch.size_bytes() - tailSize);
    if (got <= 0) {
        return got;
    }
    size_t total = tailSize + static_cast<size_t>(got);
    records = total / sizeof(Notify);
    tailSize = total % sizeof(Notify);
    std::memcpy(tail, bytes + records * sizeof(Notify), tailSize);
    return got;
}
