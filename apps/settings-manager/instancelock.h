// An exclusive advisory lock (flock) on a file, held for the life of the
// process, so that only one instance of a program runs.  The lock goes with
// the process: a killed instance leaves nothing to clean up.
//
// Access (ownership.h): the lock file lies in a folder of its own that only
// the program's user may enter (mode 0700), and has mode 0600, so that no
// other user can open it and take the lock (flock works on a read-only
// descriptor).  The folder is made if missing; one of another user, or
// anything else in its place (a file, a link), is removed with a Warn line
// naming its owner, and the start is refused when it cannot be; so is a lock
// file of another user or a link in its place.  An own folder or file keeps
// being used, its mode set right.  The file is opened with O_NOFOLLOW.  The
// folder is the lock's own: the program's is
// "/var/volatile/settings-manager/".
#pragma once

#include "result.h"

#include <string>

class InstanceLock {
public:
    // `path`: the lock file, in a folder of its own (given mode 0700).
    explicit InstanceLock(std::string path);
    ~InstanceLock();
    InstanceLock(const InstanceLock&) = delete;
    InstanceLock& operator=(const InstanceLock&) = delete;

    // Takes the lock without waiting.  The reason when another process holds
    // it ("already running ...") or the folder or file cannot be made, opened
    // or locked.
    Result<void> take();

private:
    // Makes the lock's folder or takes over an own one.
    Result<void> prepareFolder() const;
    // Removes a lock file that is not this process's user's own.
    Result<void> clearForeignFile() const;

    std::string path;
    int fd;
};
