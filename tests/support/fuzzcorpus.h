// Replays a fuzz corpus as an ordinary test: every file of the folder goes
// through the fuzz entry, which must return 0 (a failed check aborts).
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

namespace testsupport {

using FuzzEntry = int (*)(const uint8_t* data, size_t size);

// The number of files replayed; each is named in the failure of its entry.
std::size_t replayCorpus(const std::string& folder, FuzzEntry entry);

} // namespace testsupport
