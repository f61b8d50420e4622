#include "outputbuffer.h"

#include "settings-service/brokerprotocol.h"
#include "writefully.h"

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
    std::span<const uint8_t> bytes = queued();
    size_t written = writeFully(fd, bytes.data(), bytes.size());
    if (written == 0 && !bytes.empty()) {
        return -1;
    }
    head += written;
    if (head == data.size()) {
        data.clear();
        head = 0;
        if (data.capacity() > KEEP_CAPACITY) {
            std::vector<uint8_t>().swap(data);
        }
    }
    return static_cast<ssize_t>(written);
}
