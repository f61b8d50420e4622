#include "settings-service/sharedmemory.h"

#include "ownership.h"
#include "settings-service/log.h"

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
    fd = shm_open(name.c_str(), O_RDWR | O_CREAT | O_EXCL | O_CLOEXEC, Ownership::SHARED_MODE);
    bool existed = false;
    if (fd == -1 && errno == EEXIST) {
        existed = openExisting();
    }
    if (fd == -1) {
        THROW_ERROR_NUMBER(name.c_str());
    }
    if (!Ownership::setOwnMode(fd, Ownership::SHARED_MODE) ||
        ftruncate(fd, static_cast<off_t>(size) + HEADER_SIZE) == -1) {
        THROW_ERROR_NUMBER(name.c_str());
    }
    created = true;
    return existed;
}

// An object of this name exists: one of this process's user (an earlier run)
// is opened and reused; one of another user, or anything that is not a plain
// object (a link), is removed and made anew.  True when an own object with
// contents was opened; fd is -1 (errno set) when nothing could be opened.
bool SharedMemory::openExisting() {
    fd = shm_open(name.c_str(), O_RDWR | O_NOFOLLOW | O_CLOEXEC, 0);
    struct stat status {};
    if (fd != -1 && fstat(fd, &status) == 0 && S_ISREG(status.st_mode) &&
        Ownership::isOwn(status)) {
        return status.st_size > 0;
    }
    const int openError = errno;
    if (fd != -1) {
        ::close(fd);
        fd = -1;
    }
    const std::string path = Ownership::SHM_FOLDER + name;
    if (lstat(path.c_str(), &status) != 0) {
        errno = openError;
        return false;
    }
    Ownership::removeForeign("memory", path, status);
    fd = shm_open(name.c_str(), O_RDWR | O_CREAT | O_EXCL | O_CLOEXEC, Ownership::SHARED_MODE);
    return false;
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
    void* start = mmap(nullptr, size + HEADER_SIZE, PROT_READ | PROT_WRITE, MAP_SHARED, fd, 0);
    if (start == MAP_FAILED || start == nullptr) {
        THROW_ERROR_NUMBER(("mmap " + name).c_str());
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
