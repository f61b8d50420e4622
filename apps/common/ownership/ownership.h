// Who may touch the objects that the daemons make, and what a daemon does
// with an object that someone else made in its place.
//
// The daemons make every object with an exact mode, never one taken from the
// umask: the memories, the broker's readiness semaphore and its socket 0660,
// the settings folder 0770 and its files 0660, the service's lock folder
// 0700 and lock file 0600.  The owning group is the group the daemon runs as
// (the units' Group=, the daemons' group "settings" unless the build names
// another): a program of the device that belongs to that group may open
// them, anyone else may not.
//
// An object that belongs to another user (a memory, the semaphore or the
// socket made before the daemon started, a planted link) is never used: it is
// removed with a Warn line that names it and its owner, and made anew; where
// it cannot be removed, the start is refused with an Error line that says so.
// An object of the daemon's own user (left by an earlier run that crashed) is
// used as before, with its mode and group set right.
#pragma once

#include <string>
#include <sys/stat.h>
#include <sys/types.h>

namespace Ownership {

// Modes of the objects that the daemons make.
constexpr mode_t SHARED_MODE = 0660;         // memories, semaphore, socket, settings files
constexpr mode_t SHARED_FOLDER_MODE = 0770;  // the settings folder
constexpr mode_t PRIVATE_MODE = 0600;        // the lock file
constexpr mode_t PRIVATE_FOLDER_MODE = 0700; // the lock's folder

// Where POSIX shared memory and named semaphores live as files.
constexpr const char* SHM_FOLDER = "/dev/shm";

// "uid 65534 (nobody)": the user and, when it has one, its name.
std::string ownerText(uid_t uid);
// True when the object belongs to this process's effective user.
bool isOwn(const struct stat& status);
// Removes `path` (made by someone else, described by `status`) with the Warn
// line "Removed <what> <path>, which belonged to <owner>"; throws with the
// Error line "<what> <path> belongs to <owner> and cannot be removed" when
// it cannot be removed.
void removeForeign(const char* what, const std::string& path, const struct stat& status);
// Gives an object of this process's user exactly `mode` and this process's
// group; false with errno set when that failed.
bool setOwnMode(int fd, mode_t mode);
// Gives the object of this process's user at `path` (described by `status`,
// never followed if a link) this process's group and takes away its rights
// beyond `most`; it gains none.  False with errno set when that failed.
bool restrictOwn(const std::string& path, const struct stat& status, mode_t most);

// Sets the umask to let exactly `mode` through while it lives, so that an
// object made by a call that takes a mode but leaves no descriptor to fix it
// afterwards (sem_open, bind, mkdir) gets exactly that mode, whatever the
// umask the daemon was started with; the previous umask comes back at the end.
class ExactModes {
public:
    explicit ExactModes(mode_t mode) : previous(::umask(~mode & 0777)) {}
    ~ExactModes() { ::umask(previous); }
    ExactModes(const ExactModes&) = delete;
    ExactModes& operator=(const ExactModes&) = delete;

private:
    mode_t previous;
};

} // namespace Ownership
