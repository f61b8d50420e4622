#include "device.h"

#include "cli.h"
#include "program.h"
#include "settings-service/brokerprotocol.h"
#include "settings-service/catalogue.h"
#include "settings-service/eventpoll.h"
#include "settings-service/introspection.h"
#include "settings-service/memories.h"

#include <cerrno>
#include <cstring>
#include <exception>
#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>
#include <vector>

namespace {

constexpr size_t HEADER_SIZE = sizeof(uint32_t);

// A memory as memtool mapped it, and the object it came from.
struct Mapping {
    uint8_t* start = nullptr;
    size_t length = 0;
    dev_t device = 0;
    ino_t inode = 0;
    bool wanted = false; // asked for once: followed by refreshMemories
};

bool readOnlyMappings = false;

// One per memory, in table order.
std::vector<Mapping>& allMappings() {
    static std::vector<Mapping> mappings(MEMORY_ARRAY_SIZE);
    return mappings;
}

// POSIX shared-memory objects are the files of /dev/shm on Linux.
std::string objectPath(uint32_t memory) {
    return "/dev/shm" + gen::getSharedMemory(memory).getName();
}

void unmap(uint32_t memory) {
    Mapping& mapping = allMappings()[memory];
    if (mapping.start != nullptr) {
        gen::setMemoryBase(memory, nullptr);
        munmap(mapping.start, mapping.length);
        mapping.start = nullptr;
    }
}

bool mapsObject(const Mapping& mapping, const struct stat& status) {
    return mapping.start != nullptr && mapping.device == status.st_dev &&
           mapping.inode == status.st_ino;
}

void map(uint32_t memory) {
    const std::string name = Introspection::getMemName(memory);
    const std::string& object = gen::getSharedMemory(memory).getName();
    const int fd = shm_open(object.c_str(), (readOnlyMappings ? O_RDONLY : O_RDWR) | O_CLOEXEC, 0);
    if (fd == -1) {
        if (errno == ENOENT) {
            throw Failure("memory " + name + " does not exist (is the settings service running?)");
        }
        throw Failure("cannot open memory " + name + ": " + std::strerror(errno));
    }
    const size_t size = gen::getSharedMemory(memory).getSize();
    const size_t length = size + HEADER_SIZE;
    struct stat status {};
    if (fstat(fd, &status) == -1 || static_cast<size_t>(status.st_size) < length) {
        ::close(fd);
        throw Failure("cannot open memory " + name + ": it holds " +
                      std::to_string(status.st_size) + " bytes, not the " + std::to_string(length) +
                      " of its record (still being made?)");
    }
    void* start = mmap(nullptr, length, readOnlyMappings ? PROT_READ : PROT_READ | PROT_WRITE,
                       MAP_SHARED, fd, 0);
    const int mapError = errno;
    ::close(fd);
    if (start == MAP_FAILED) {
        throw Failure("cannot map memory " + name + ": " + std::strerror(mapError));
    }
    uint32_t header = 0;
    std::memcpy(&header, start, sizeof header);
    if (header != size) {
        munmap(start, length);
        throw Failure("cannot open memory " + name + ": Memory size missmatch for " + object +
                      ", requested " + std::to_string(size) + ", is " + std::to_string(header) +
                      ".");
    }
    unmap(memory);
    allMappings()[memory] = {static_cast<uint8_t*>(start), length, status.st_dev, status.st_ino,
                             true};
    gen::setMemoryBase(memory, static_cast<uint8_t*>(start) + HEADER_SIZE);
}

} // namespace

bool memoryExists(uint32_t memory) {
    struct stat status {};
    return ::stat(objectPath(memory).c_str(), &status) == 0;
}

void openMemory(uint32_t memory) {
    Mapping& mapping = allMappings()[memory];
    mapping.wanted = true;
    struct stat status {};
    if (::stat(objectPath(memory).c_str(), &status) == 0 && mapsObject(mapping, status)) {
        return;
    }
    unmap(memory);
    map(memory);
}

void mapMemoriesReadOnly(bool readOnly) {
    readOnlyMappings = readOnly;
}

bool refreshMemories() {
    bool changed = false;
    for (uint32_t memory = 0; memory < MEMORY_ARRAY_SIZE; ++memory) {
        Mapping& mapping = allMappings()[memory];
        if (!mapping.wanted) {
            continue;
        }
        struct stat status {};
        const bool exists = ::stat(objectPath(memory).c_str(), &status) == 0;
        if (exists && mapsObject(mapping, status)) {
            continue;
        }
        const bool wasMapped = mapping.start != nullptr;
        unmap(memory);
        if (exists) {
            try {
                map(memory);
            } catch (const Failure&) {
                // Not complete yet: the next refresh tries again.
            }
        }
        changed = changed || wasMapped || mapping.start != nullptr;
    }
    return changed;
}

ServerConnection& connectBroker() {
    if (gServerConnection == nullptr) {
        try {
            gServerConnection = new ServerConnection(gen::getEventPoll());
        } catch (const std::exception& error) {
            throw Failure("cannot connect to the message broker: " + errorMessage(error) +
                          " (is the message broker running?)");
        }
    }
    return *gServerConnection;
}

std::string brokerSemaphorePath() {
    // A named semaphore "/NAME" is the file /dev/shm/sem.NAME.
    return std::string("/dev/shm/sem.") + (BrokerProtocol::READY_SEMAPHORE + 1);
}

void requireDeviceAccess(int mode) {
    std::vector<std::string> paths = {brokerSemaphorePath(), BrokerProtocol::SOCKET_PATH};
    for (uint32_t memory = 0; memory < MEMORY_ARRAY_SIZE; ++memory) {
        paths.push_back(objectPath(memory));
    }
    for (const std::string& path : paths) {
        if (::access(path.c_str(), mode) != 0 && errno == EACCES) {
            throw Failure(path + ": " + std::strerror(EACCES) +
                          ": this user is not allowed to use the device's memories and broker "
                          "(run it as a member of the daemons' group, or as root)");
        }
    }
}
