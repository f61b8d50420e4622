#include "settings-service/brokerprotocol.h"

#include <cerrno>
#include <cstring>
#include <sys/socket.h>
#include <unistd.h>

namespace BrokerProtocol {

sockaddr_un address() {
    sockaddr_un broker{};
    broker.sun_family = AF_UNIX;
    std::strncpy(broker.sun_path, SOCKET_PATH, sizeof broker.sun_path - 1);
    return broker;
}

} // namespace BrokerProtocol

ssize_t RecordReader::readFrom(int fd, std::span<Notify> scratch, size_t& records) {
    records = 0;
    std::span<uint8_t> room = prepare(scratch);
    ssize_t got;
    do {
        got = ::read(fd, room.data(), room.size());
    } while (got < 0 && errno == EINTR);
    if (got > 0) {
        records = complete(scratch, static_cast<size_t>(got));
    }
    return got;
}

std::span<uint8_t> RecordReader::prepare(std::span<Notify> scratch) const {
    auto bytes = std::as_writable_bytes(scratch);
    auto* start = reinterpret_cast<uint8_t*>(bytes.data());
    std::memcpy(start, tail, tailSize);
    return {start + tailSize, bytes.size() - tailSize};
}

size_t RecordReader::complete(std::span<Notify> scratch, size_t got) {
    auto* start = reinterpret_cast<uint8_t*>(scratch.data());
    size_t total = tailSize + got;
    size_t records = total / sizeof(Notify);
    tailSize = total % sizeof(Notify);
    std::memcpy(tail, start + records * sizeof(Notify), tailSize);
    return records;
}
