// Records the flushes that a test program makes: the program's own msync and
// fsync record each call while recording is on and then forward to the C
// library's function; fsync can be told to fail once with a given errno.
#pragma once

#include <cstddef>
#include <string>
#include <vector>

namespace syncspy {

struct Call {
    std::string name; // "msync" or "fsync"
    void const* address = nullptr;
    std::size_t length = 0;
    int flagsOrFd = 0; // msync's flags, fsync's descriptor
};

void start();
std::vector<Call> stop();
// The next fsync fails with `error` without flushing.
void failNextFsync(int error);

} // namespace syncspy
