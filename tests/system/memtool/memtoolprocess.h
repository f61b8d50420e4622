// Runs memtool as a process of its own (through the emulator for ARM
// builds), with its standard output and error captured.
#pragma once

#include <string>
#include <sys/types.h>
#include <vector>

namespace memtooltest {

struct Result {
    int status = -1; // the exit status, or 128 + the signal that ended it, -1 when it hung
    std::string out;
    std::string err;
};

class MemtoolProcess {
public:
    // With `input`, standard input reads that file.
    explicit MemtoolProcess(const std::vector<std::string>& arguments,
                            const std::string& input = "");
    // Kills a process that is still running.
    ~MemtoolProcess();
    MemtoolProcess(const MemtoolProcess&) = delete;
    MemtoolProcess& operator=(const MemtoolProcess&) = delete;

    // Reads until standard output (or error) holds `text`; false when the
    // process ended or `timeoutMs` passed first.
    bool waitForOutput(const std::string& text, int timeoutMs = 20000);
    bool waitForError(const std::string& text, int timeoutMs = 20000);
    void signal(int number);
    // Reads both streams to their end and reaps the process; a process still
    // running after `timeoutMs` is killed and reported with status -1.
    Result wait(int timeoutMs = 20000);

private:
    // One poll of both pipes; false once both ended or on time-out.
    bool readSome(int timeoutMs);
    bool waitFor(const std::string& stream, const std::string& text, int timeoutMs);

    pid_t pid = -1;
    int outFd = -1;
    int errFd = -1;
    Result result;
};

// Runs memtool to its end.
Result runMemtool(const std::vector<std::string>& arguments, int timeoutMs = 20000);
// Runs memtool to its end with standard input reading the file `input`.
Result runMemtoolReading(const std::vector<std::string>& arguments, const std::string& input);

} // namespace memtooltest
