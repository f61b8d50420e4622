#include "syncspy.h"

#include <cerrno>
#include <dlfcn.h>
#include <sys/mman.h>
#include <unistd.h>
#include <utility>

namespace {

bool recording = false;
int fsyncFailure = 0;
std::vector<syncspy::Call> recorded;

template <class Function> Function real(char const* name) {
    return reinterpret_cast<Function>(dlsym(RTLD_NEXT, name));
}

} // namespace

namespace syncspy {

void start() {
    recorded.clear();
    recording = true;
}

std::vector<Call> stop() {
    recording = false;
    return std::move(recorded);
}

void failNextFsync(int error) {
    fsyncFailure = error;
}

} // namespace syncspy

extern "C" int msync(void* address, size_t length, int flags) {
    if (recording) {
        recorded.push_back({"msync", address, length, flags});
    }
    return real<int (*)(void*, size_t, int)>("msync")(address, length, flags);
}

extern "C" int fsync(int fd) {
    if (recording) {
        recorded.push_back({"fsync", nullptr, 0, fd});
    }
    if (fsyncFailure != 0) {
        errno = fsyncFailure;
        fsyncFailure = 0;
        return -1;
    }
    return real<int (*)(int)>("fsync")(fd);
}
