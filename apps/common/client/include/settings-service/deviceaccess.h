// Whether this user may use the device's memories and broker.
//
// The memories' objects and the broker's semaphore and socket belong to the daemons' group; a
// program run by a user outside it gets EACCES ("Permission denied") on them, whatever it tries
// and however often. The library checks for that where it opens them (MappedMemories::open,
// BrokerLink::connect and keepConnected) and throws AccessRefused, which it never retries; a
// program can also check at once, before it starts its work, with require().
#pragma once

#include "settings-service/clienterror.h"

#include <string>
#include <vector>

namespace DeviceAccess {

// The objects of the device's memories and broker: the broker's readiness semaphore and socket,
// then each memory's shared-memory object.
std::vector<std::string> objectPaths();
// The objects of the broker: its readiness semaphore and its socket.
std::vector<std::string> brokerPaths();
// The refusal of `path`: "<path>: Permission denied: this user is not allowed to use the device's
// memories and broker (run it as a member of the daemons' group, or as root)".
AccessRefused refusal(const std::string& path);
// Throws refusal(path) for the first of `paths` that exists and refuses `mode` (access(2)'s R_OK,
// W_OK) to this user; a missing object is no refusal.
void require(const std::vector<std::string>& paths, int mode);
// require() of every object of the memories and the broker.
void require(int mode);

} // namespace DeviceAccess
