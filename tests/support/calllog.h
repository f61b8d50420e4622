// For test programs that replace C library functions to see the calls the
// code under test makes: the replacement records the call and forwards it to
// the library's own function.
#pragma once

#include <atomic>
#include <cerrno>
#include <dlfcn.h>
#include <thread>
#include <utility>
#include <vector>

namespace testsupport {

// The C library's own function `name`, which a replacement forwards to.
template <class Function> Function libraryFunction(const char* name) {
    return reinterpret_cast<Function>(dlsym(RTLD_NEXT, name));
}

// The calls recorded from start() to stop(), by the thread that called
// start() only (a test may run a peer in another).  Recording keeps errno.
template <class Call> class CallLog {
public:
    void start() {
        calls.clear();
        recorder = std::this_thread::get_id();
        recording = true;
    }
    std::vector<Call> stop() {
        recording = false;
        return std::move(calls);
    }
    void record(Call call) {
        if (recording && std::this_thread::get_id() == recorder) {
            const int saved = errno;
            calls.push_back(std::move(call));
            errno = saved;
        }
    }

private:
    std::atomic<bool> recording{false};
    std::thread::id recorder;
    std::vector<Call> calls;
};

} // namespace testsupport
