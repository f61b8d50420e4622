#include "syncspy.h"

#include "calllog.h"

#include <cerrno>
#include <sys/mman.h>
#include <unistd.h>

namespace {

int fsyncFailure = 0;
testsupport::CallLog<syncspy::Call> calls;

} // namespace

namespace syncspy {

void start() {
    calls.start();
}

std::vector<Call> stop() {
    return calls.stop();
}

void failNextFsync(int error) {
    fsyncFailure = error;
}

} // namespace syncspy

extern "C" int msync(void* address, size_t length, int flags) {
    calls.record({"msync", address, length, flags});
    return testsupport::libraryFunction<int (*)(void*, size_t, int)>("msync")(address, length,
                                                                              flags);
}

extern "C" int fsync(int fd) {
    calls.record({"fsync", nullptr, 0, fd});
    if (fsyncFailure != 0) {
        errno = fsyncFailure;
        fsyncFailure = 0;
        return -1;
    }
    return testsupport::libraryFunction<int (*)(int)>("fsync")(fd);
}
