// Watches one folder with inotify and hands every change event to its owner.
//
// The monitor is an EventPoll::Callback: the loop calls event() when the
// inotify descriptor is readable, and event() reads once (2720 bytes, room for
// ten events with names of the longest length) and passes each event to the
// owner's function.  When the watched folder itself is deleted the monitor
// watches the same path again, so a folder that was recreated in the meantime
// goes on being watched; the deletion event is not passed on.
//
// Choices made here:
// - The inotify instance is created with close-on-exec, so that commands the
//   process starts do not inherit it.  It stays blocking: event() is only
//   called when the loop reports the descriptor readable.
// - `registered` remembers whether the descriptor is on the poll, so close()
//   also works after an open() whose watch failed (the descriptor is then open
//   but was never added to the poll).
// - open() on a monitor that is already open closes it first.
#pragma once

#include "settings-service/eventpoll.h"

#include <cstdint>
#include <functional>
#include <string>
#include <sys/inotify.h>

class FileFolderMonitor : public EventPoll::Callback {
public:
    FileFolderMonitor(EventPoll& poll, std::function<void(inotify_event const&)>&& callback);

    // Creates the inotify instance, watches `folder` for `mask` (plus
    // IN_DELETE_SELF) and registers with the poll for readability.
    void open(char const* folder, unsigned int mask);
    // Adds the watch for the stored folder and mask plus IN_DELETE_SELF.
    void watch();
    // Removes the watch; the descriptor stays open and registered.
    void unwatch();
    // Unregisters, removes the watch and closes the descriptor.
    void close();

    void event(EventType type) override;

private:
    void dispatch(inotify_event const& record);

    EventPoll& poll;
    std::function<void(inotify_event const&)> callback;
    int32_t inotifyFd;
    int32_t watchFd;
    std::string folder;
    uint32_t mask;
    bool registered;
};
