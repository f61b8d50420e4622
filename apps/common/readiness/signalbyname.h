// Sends a signal to processes chosen by name, as "pkill -SIGNAL NAME" does,
// without a shell or another program: every process whose name (the
// kernel's short command name, /proc/<pid>/comm, at most 15 characters)
// contains `name` gets the signal through kill(2), except the calling
// process.  `name` is plain text (pkill reads it as a pattern; the names
// given here hold no pattern characters); an empty name signals no process.
// Processes that end while the list is read, or that may not be signalled,
// are passed over.
#pragma once

#include <string_view>

namespace Readiness {

// The number of processes that were sent `signal`.
int signalProcessesNamed(std::string_view name, int signal);

} // namespace Readiness
