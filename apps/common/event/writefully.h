// Writing a whole buffer to a descriptor: the broker connection, the broker's
// output queues and the settings files all need every byte written or a
// reason why not.
#pragma once

#include <cstddef>

// Writes `size` bytes, repeating after short writes and EINTR.  Returns the
// number of bytes written: all of them, or fewer when a write failed (errno
// tells why; EAGAIN when a non-blocking socket is full) or wrote nothing.
size_t writeFully(int fd, const void* data, size_t size);
