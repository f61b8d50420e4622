#include "settings-service/mappedmemories.h"

#include "settings-service/catalogue.h"
#include "settings-service/clienterror.h"
#include "settings-service/deviceaccess.h"
#include "settings-service/introspection.h"
#include "settings-service/memories.h"

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <string>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

constexpr size_t HEADER_SIZE = sizeof(uint32_t);

bool currentObject(uint32_t memory, struct stat& status) {
    return ::stat(MappedMemories::objectPath(memory).c_str(), &status) == 0;
}

} // namespace

// POSIX shared-memory objects are the files of /dev/shm on Linux.
std::string MappedMemories::objectPath(uint32_t memory) {
    return "/dev/shm" + gen::getSharedMemory(memory).getName();
}

MappedMemories::MappedMemories(bool readOnly) : mappings(MEMORY_ARRAY_SIZE), readOnly(readOnly) {}

MappedMemories::~MappedMemories() {
    closeAll();
}

void MappedMemories::closeAll() {
    for (uint32_t memory = 0; memory < mappings.size(); ++memory) {
        unmap(memory);
    }
}

bool MappedMemories::exists(uint32_t memory) {
    struct stat status {};
    return currentObject(memory, status);
}

void MappedMemories::unmap(uint32_t memory) {
    Mapping& mapping = mappings[memory];
    if (mapping.start != nullptr) {
        gen::setMemoryBase(memory, nullptr);
        munmap(mapping.start, mapping.length);
        mapping.start = nullptr;
    }
}

void MappedMemories::map(uint32_t memory) {
    const std::string name = Introspection::getMemName(memory);
    const std::string& object = gen::getSharedMemory(memory).getName();
    const int fd = shm_open(object.c_str(), (readOnly ? O_RDONLY : O_RDWR) | O_CLOEXEC, 0);
    if (fd == -1) {
        if (errno == ENOENT) {
            throw ClientError("memory " + name +
                              " does not exist (is the settings service running?)");
        }
        if (errno == EACCES) {
            throw DeviceAccess::refusal(objectPath(memory));
        }
        throw ClientError("cannot open memory " + name + ": " + std::strerror(errno));
    }
    const size_t size = gen::getSharedMemory(memory).getSize();
    const size_t length = size + HEADER_SIZE;
    struct stat status {};
    if (fstat(fd, &status) == -1 || static_cast<size_t>(status.st_size) < length) {
        ::close(fd);
        throw ClientError("cannot open memory " + name + ": it holds " +
                          std::to_string(status.st_size) + " bytes, not the " +
                          std::to_string(length) + " of its record (still being made?)");
    }
    void* start =
        mmap(nullptr, length, readOnly ? PROT_READ : PROT_READ | PROT_WRITE, MAP_SHARED, fd, 0);
    const int mapError = errno;
    ::close(fd);
    if (start == MAP_FAILED) {
        throw ClientError("cannot map memory " + name + ": " + std::strerror(mapError));
    }
    uint32_t header = 0;
    std::memcpy(&header, start, sizeof header);
    if (header != size) {
        munmap(start, length);
        throw ClientError("cannot open memory " + name + ": Memory size missmatch for " + object +
                          ", requested " + std::to_string(size) + ", is " + std::to_string(header) +
                          ".");
    }
    unmap(memory);
    mappings[memory] = {static_cast<uint8_t*>(start), length, status.st_dev, status.st_ino, true};
    gen::setMemoryBase(memory, static_cast<uint8_t*>(start) + HEADER_SIZE);
}

void MappedMemories::open(uint32_t memory) {
    Mapping& mapping = mappings[memory];
    mapping.wanted = true;
    struct stat status {};
    if (currentObject(memory, status) && mapping.isOf(status)) {
        return;
    }
    unmap(memory);
    map(memory);
}

void MappedMemories::openAll() {
    for (uint32_t memory = 0; memory < mappings.size(); ++memory) {
        open(memory);
    }
}

void MappedMemories::setReadOnly(bool readOnlyMappings) {
    readOnly = readOnlyMappings;
}

bool MappedMemories::refresh() {
    bool changed = false;
    for (uint32_t memory = 0; memory < mappings.size(); ++memory) {
        Mapping& mapping = mappings[memory];
        if (!mapping.wanted) {
            continue;
        }
        struct stat status {};
        const bool present = currentObject(memory, status);
        if (present && mapping.isOf(status)) {
            continue;
        }
        const bool wasMapped = mapping.start != nullptr;
        unmap(memory);
        if (present) {
            try {
                map(memory);
            } catch (const AccessRefused&) {
                throw;
            } catch (const ClientError&) {
                // Not complete yet: the next refresh tries again.
            }
        }
        changed = changed || wasMapped || mapping.start != nullptr;
    }
    return changed;
}

bool MappedMemories::complete() const {
    for (const Mapping& mapping : mappings) {
        if (mapping.wanted && mapping.start == nullptr) {
            return false;
        }
    }
    return true;
}
