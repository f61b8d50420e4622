// A FILE* that writes into memory, for tests that read back what code wrote
// to a stream; closed and freed when it goes out of scope, also on an
// exception.
#pragma once

#include <cstdio>
#include <string>

namespace testsupport {

class MemoryFile {
public:
    MemoryFile();
    ~MemoryFile();
    MemoryFile(const MemoryFile&) = delete;
    MemoryFile& operator=(const MemoryFile&) = delete;

    FILE* file() const { return stream; }
    // Everything written so far (the stream is flushed first).
    std::string text();

private:
    char* buffer = nullptr;
    size_t size = 0;
    FILE* stream;
};

} // namespace testsupport
