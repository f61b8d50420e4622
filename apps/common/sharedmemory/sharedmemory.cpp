#include "sharedmemory.h"

#include "log.h"

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {
constexpr uint32_t HEADER_SIZE = sizeof(uint32_t);
}

SharedMemory::SharedMemory(const char* name, unsigned size)
    : name(std::string("/") + name), size(size), fd(-1), mapping(nullptr), data(nullptr),
      created(false) {}

SharedMemory::~SharedMemory() {
    close();
}

bool SharedMemory::create() {
    fd = shm_open(name.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0666);
    if (fd == -1) {
        THROW_ERROR_NUMBER(name.c_str());
    }
    struct stat status {};
    const bool existed = fstat(fd, &status) == 0 && status.st_size > 0;
    if (ftruncate(fd, static_cast<off_t>(size) + HEADER_SIZE) == -1) {
        THROW_ERROR_NUMBER(name.c_str());
    }
    created = true;
    return existed;
}

void SharedMemory::open() {
    fd = shm_open(name.c_str(), O_RDWR | O_CLOEXEC, 0666);
    if (fd == -1) {
        THROW_ERROR_NUMBER(name.c_str());
    }
}

uint8_t* SharedMemory::address() {
    if (fd == -1) {
        THROW_ERROR("Call open or create before asking for the address");
    }
    if (data) {
        return data;
    }
    // Only a null result counts as failure: callers map only objects whose open and sizing
    // succeeded.
    void* start = mmap(nullptr, size + HEADER_SIZE, PROT_READ | PROT_WRITE, MAP_SHARED, fd, 0);
    if (start == nullptr) {
        THROW_ERROR_NUMBER(name.c_str());
    }
    mapping = static_cast<uint8_t*>(start);
    uint32_t header;
    if (created) {
        header = size;
        std::memcpy(mapping, &header, sizeof header);
    } else {
        std::memcpy(&header, mapping, sizeof header);
        if (header != size) {
            THROW_ERROR("Memory size missmatch for %s, requested %u, is %u.", name.c_str(), size,
                        header);
        }
    }
    data = mapping + HEADER_SIZE;
    return data;
}

void SharedMemory::close() {
    if (data) {
        // Unmapping from the data start is a best-effort step: when it fails the mapping stays
        // until the process ends, which keeps pointers into it (the log level) valid.
        munmap(data, size + HEADER_SIZE);
    }
    if (fd != -1) {
        ::close(fd);
        fd = -1;
    }
    if (created) {
        if (shm_unlink(name.c_str()) == -1) {
            LOG(Error, "%s: %s", name.c_str(), strerror(errno));
        } else {
            created = false;
        }
    }
}
