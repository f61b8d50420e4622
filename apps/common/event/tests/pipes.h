// A pipe whose ends the test can make readable, drain or hang up, and the
// number of the next descriptor.
#pragma once

#include <fcntl.h>
#include <stdexcept>
#include <string>
#include <unistd.h>

struct Pipe {
    Pipe() {
        int ends[2];
        if (pipe2(ends, O_CLOEXEC | O_NONBLOCK) != 0) {
            throw std::runtime_error("pipe2 failed");
        }
        readEnd = ends[0];
        writeEnd = ends[1];
    }
    ~Pipe() {
        close(readEnd);
        closeWriteEnd();
    }
    Pipe(const Pipe&) = delete;
    Pipe& operator=(const Pipe&) = delete;

    void put(const std::string& bytes) const {
        if (write(writeEnd, bytes.data(), bytes.size()) != static_cast<ssize_t>(bytes.size())) {
            throw std::runtime_error("pipe write failed");
        }
    }
    // Reads whatever is waiting, so that the read end is no longer ready.
    void take() const {
        char buffer[256];
        while (read(readEnd, buffer, sizeof buffer) > 0) {
        }
    }
    void closeWriteEnd() {
        if (writeEnd >= 0) {
            close(writeEnd);
            writeEnd = -1;
        }
    }

    int readEnd = -1;
    int writeEnd = -1;
};

// The lowest free descriptor number: what the next open gets.
inline int lowestFreeDescriptor() {
    int fd = open("/dev/null", O_RDONLY | O_CLOEXEC);
    close(fd);
    return fd;
}
