// An exclusive advisory lock (flock) on a file, held for the life of the
// process, so that only one instance of a program runs.  The lock goes with
// the process: a killed instance leaves nothing to clean up.
#pragma once

#include <string>

class InstanceLock {
public:
    explicit InstanceLock(std::string path);
    ~InstanceLock();
    InstanceLock(const InstanceLock&) = delete;
    InstanceLock& operator=(const InstanceLock&) = delete;

    // Takes the lock without waiting.  False with the reason in `error` when
    // another process holds it ("already running ...") or the file cannot be
    // opened or locked.
    bool take(std::string& error);

private:
    std::string path;
    int fd;
};
