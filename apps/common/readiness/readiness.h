// Tells a service manager that the program is ready, as services of
// Type=notify do: when the environment names NOTIFY_SOCKET, one datagram
// "READY=1" goes to that UNIX-domain socket.  A name that starts with '@' is
// in the abstract namespace (the '@' stands for the leading zero byte); any
// other name must be an absolute path.
//
// Without NOTIFY_SOCKET (unset or empty) nothing is done, and the caller keeps
// its own way of announcing readiness.  With it, the caller relies on the
// notification alone, even when it could not be sent: the failure is logged
// at Error and the program goes on (the service manager, which waits for the
// datagram, handles a missing one with its start time-out).
#pragma once

namespace Readiness {

// The datagram that announces readiness.
constexpr const char* READY_MESSAGE = "READY=1";

// Sends READY=1 to NOTIFY_SOCKET.  True when the environment names a socket
// (the datagram was sent, or its failure logged), false when it names none.
bool notifyServiceManager();

} // namespace Readiness
