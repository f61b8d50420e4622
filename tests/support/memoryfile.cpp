#include "memoryfile.h"

#include <cstdlib>
#include <stdexcept>

namespace testsupport {

MemoryFile::MemoryFile() : stream(::open_memstream(&buffer, &size)) {
    if (stream == nullptr) {
        throw std::runtime_error("open_memstream failed");
    }
}

MemoryFile::~MemoryFile() {
    std::fclose(stream);
    std::free(buffer);
}

std::string MemoryFile::text() {
    std::fflush(stream);
    return std::string(buffer, size);
}

} // namespace testsupport
