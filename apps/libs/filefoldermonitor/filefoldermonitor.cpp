#include "filefoldermonitor.h"

#include "settings-service/log.h"

#include <cerrno>
#include <stdexcept>
#include <sys/epoll.h>
#include <unistd.h>

namespace {

// Ten events with names of the longest length (255 bytes and the terminator).
constexpr size_t READ_BUFFER_SIZE = 10 * (sizeof(inotify_event) + 256);
static_assert(sizeof(inotify_event) == 16);
static_assert(READ_BUFFER_SIZE == 2720);

} // namespace

FileFolderMonitor::FileFolderMonitor(EventPoll& poll,
                                     std::function<void(inotify_event const&)>&& callback)
    : poll(poll), callback(std::move(callback)), inotifyFd(-1), watchFd(-1), mask(0),
      registered(false) {}

void FileFolderMonitor::open(char const* folder, unsigned int mask) {
    close();
    this->folder = folder;
    this->mask = mask;
    inotifyFd = inotify_init1(IN_CLOEXEC);
    if (inotifyFd < 0) {
        THROW_ERROR_NUMBER("Could not initialize inotify");
    }
    watch();
    poll.add(inotifyFd, this, EPOLLIN);
    registered = true;
}

void FileFolderMonitor::watch() {
    watchFd = inotify_add_watch(inotifyFd, folder.c_str(), mask | IN_DELETE_SELF);
    if (watchFd < 0) {
        THROW_ERROR_NUMBER("Could not add watch to inotify");
    }
}

void FileFolderMonitor::unwatch() {
    if (watchFd >= 0) {
        // After the folder's deletion the kernel has removed the watch already;
        // the call then fails harmlessly.
        inotify_rm_watch(inotifyFd, watchFd);
        watchFd = -1;
    }
}

void FileFolderMonitor::close() {
    if (registered) {
        registered = false;
        poll.remove(inotifyFd);
    }
    unwatch();
    if (inotifyFd >= 0) {
        ::close(inotifyFd);
        inotifyFd = -1;
    }
}

void FileFolderMonitor::event(EventType type) {
    if (type > Readable) {
        return;
    }
    alignas(inotify_event) char buffer[READ_BUFFER_SIZE];
    ssize_t count = ::read(inotifyFd, buffer, sizeof buffer);
    if (count == 0) {
        LOG(Warn, "read() from inotify fd returned 0!");
        return;
    }
    if (count < 0) {
        if (errno != EINTR) {
            LOG(Error, "Erro in read from inotify fd");
        }
        return;
    }
    for (ssize_t offset = 0; offset < count;) {
        auto const* record = reinterpret_cast<inotify_event const*>(buffer + offset);
        offset += static_cast<ssize_t>(sizeof(inotify_event) + record->len);
        dispatch(*record);
    }
}

void FileFolderMonitor::dispatch(inotify_event const& record) {
    if (record.mask & IN_DELETE_SELF) {
        LOG(LogLight, "Watch folder %s has been deleted, rewatching...", folder.c_str());
        unwatch();
        try {
            watch();
        } catch (std::runtime_error const&) {
            // Logged by the failed watch(); the monitor stays without a watch
            // until its owner watches or opens again.
        }
        return;
    }
    if (callback) {
        callback(record);
    }
}
