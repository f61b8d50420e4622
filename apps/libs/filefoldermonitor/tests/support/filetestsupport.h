// Helpers shared by the tests of the file services: a scratch folder that is
// removed with everything in it, and the kernel-log lines written since a
// mark.  The tests run in the device root, where /dev/kmsg is a plain file
// that collects the lines the process writes.
#pragma once

#include "kmsgcapture.h"

#include <filesystem>
#include <string>
#include <vector>

namespace filetest {

class ScratchFolder {
public:
    ScratchFolder();
    ~ScratchFolder();
    ScratchFolder(ScratchFolder const&) = delete;
    ScratchFolder& operator=(ScratchFolder const&) = delete;

    std::filesystem::path const& path() const { return folder; }

private:
    std::filesystem::path folder;
};

class KernelLogMark {
public:
    // The lines written to the kernel log since construction, as the kernel
    // keeps them (testsupport::KmsgCapture: priority prefixes taken off).
    std::vector<std::string> lines() const;
    // True when a line written since construction has the level tag (for
    // example "Warn") and, after its source location, exactly the message.
    bool logged(std::string const& level, std::string const& message) const;
    // True when a line written since construction has the level tag and
    // contains `fragment` in its message.
    bool loggedWith(std::string const& level, std::string const& fragment) const;
    // True when any line written since construction contains `fragment`.
    bool mentions(std::string const& fragment) const;

private:
    testsupport::KmsgCapture capture;
};

// Creates a regular file holding `text`.
void writeFile(std::filesystem::path const& path, std::string const& text = "x");
// Reads a whole file.
std::string readFile(std::filesystem::path const& path);

} // namespace filetest
