// How many clients the broker serves at once.
//
// At start the broker raises its soft descriptor limit to the hard limit.
// Every client takes a descriptor; RESERVED_DESCRIPTORS stay free for the
// broker itself (its socket, its polls, the kernel log, the spare descriptor).
// Any client is accepted while fewer than `anyone` are connected; beyond that
// only clients of the broker's own user or of root, up to `all`
// (PRIVILEGED_ROOM more), so that the device's own daemons always get in
// however many connections another program holds.  A client past its limit
// is closed at once.
#pragma once

#include <cstddef>

struct ClientLimits {
    static constexpr size_t MAX_CLIENTS = 512;
    static constexpr size_t PRIVILEGED_ROOM = 32;
    static constexpr size_t RESERVED_DESCRIPTORS = 16;

    size_t anyone;
    size_t all;

    // Raises the descriptor limit and derives the limits from it.
    static ClientLimits raiseDescriptorLimit();
};
