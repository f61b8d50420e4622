// memtool's access to the device, made once in main and handed to each
// command: the memories, opened as they are (never created or
// re-initialised), the event loop, and the broker connection, made only by
// the commands that post or listen.
//
// The memories are mapped by the client library's MappedMemories (see
// settings-service/mappedmemories.h), which follows a restarted service, and
// the broker is reached through its BrokerLink on the event loop given here;
// the connection is the process's gServerConnection.  The client library's
// exceptions become errors here.
#pragma once

#include "result.h"
#include "settings-service/eventpoll.h"
#include "settings-service/mappedmemories.h"
#include "settings-service/serverconnection.h"

#include <cstdint>
#include <string>

class Device {
public:
    explicit Device(EventPoll& poll) : poll(poll) {}

    // True when the memory's shared-memory object exists.
    bool memoryExists(uint32_t memory) const;
    // Maps the memory's current object, if it is not mapped yet, and points
    // its gMem<Name> at it; an error when it does not exist, is not complete
    // or was made for another layout.
    Result<void> openMemory(uint32_t memory);
    // Maps the memories read-only from now on (for an inspector that must not
    // write); the default is read-write, as setters need.
    void mapMemoriesReadOnly(bool readOnly);
    // Unmaps each mapped memory whose object was removed or replaced, and maps
    // a memory again whose object came back; true when any of them changed.
    bool refreshMemories();
    // Connects gServerConnection to the broker; an error when there is none.
    Result<ServerConnection*> connectBroker();
    // True when gServerConnection is connected.
    bool brokerConnected() const;
    // The loop that the broker connection and the inspector's sockets run on.
    EventPoll& eventPoll() const { return poll; }

private:
    MappedMemories memories;
    EventPoll& poll;
};

// An error when an object of the device that exists (a memory, the broker's
// semaphore or socket) may not be used with `mode` (as for access(2)) by this
// user: outside the daemons' group that holds for good, so a long-running
// client stops with the reason instead of trying again.
Result<void> requireDeviceAccess(int mode);
