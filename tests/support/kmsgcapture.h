// Reads back what was written to the kernel log since a mark.
//
// The writers put a priority prefix "<N>" in front of every line, which the
// kernel takes off; a plain file keeps it, so the capture takes it off too
// and checks it against the line's level.
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

    // Every byte written since the mark, priority prefixes included.
    std::string rawText() const;
    // The text written since the mark as the kernel keeps it: every record's
    // priority prefix "<N>" taken off after checking that it is the priority
    // of the record's level tag (testsupport::withoutPriorities; throws
    // std::runtime_error on a record without a prefix or with a wrong one).
    std::string text() const;
    // The lines of text(), without their line feeds; an unfinished last line
    // is included as it is.
    std::vector<std::string> lines() const;

private:
    std::string path;
    off_t mark;
};

} // namespace testsupport
