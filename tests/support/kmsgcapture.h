// Reads back what was written to the kernel log since a mark.
//
// Inside a device root (tools/devroot exec) /dev/kmsg is a plain file that
// collects the lines of the test process and of its children.  Anywhere else
// the capture refuses to start, so that no test depends on the host's kernel
// log.
#pragma once

#include <string>
#include <sys/types.h>
#include <vector>

namespace testsupport {

class KmsgCapture {
public:
    // Marks the current end of the log; throws std::runtime_error when path is
    // not a plain file.
    explicit KmsgCapture(std::string path = "/dev/kmsg");

    // Every byte written since the mark.
    std::string text() const;
    // The lines written since the mark, without their line feeds; an
    // unfinished last line is included as it is.
    std::vector<std::string> lines() const;

private:
    std::string path;
    off_t mark;
};

} // namespace testsupport
