// Runs a piece of a test in a forked child, for state that must not leak into
// the rest of the test program (a termination request, signal flags, a
// replaced descriptor).  The child's standard output and error are captured;
// its kernel-log lines land in the same /dev/kmsg as the parent's.
#pragma once

#include <functional>
#include <string>

namespace testsupport {

struct ChildResult {
    int status = 0;  // as waitpid reports it
    std::string out; // what the child wrote to standard output
    std::string err; // ... and to standard error

    bool exitedWith(int code) const;
};

// body's return value is the child's exit status; an exception leaving body
// is written to standard error and ends the child with status 126.
ChildResult runInChild(const std::function<int()>& body);

} // namespace testsupport
