// Starts the message-broker program as a child of the test (through the
// emulator for ARM builds) and stops it with a signal.
#pragma once

#include "child.h"

#include <string>
#include <sys/types.h>
#include <vector>

namespace brokertest {

// A program of the build and, for ARM builds, the words of the emulator
// command in front of it.
std::vector<std::string> commandLine(const std::string& emulator, const std::string& program);
// argv for execvp, pointing into `words`.
std::vector<char*> argvOf(std::vector<std::string>& words);

class BrokerProcess {
public:
    // Starts the broker and waits (up to 20 s) until it has logged that it
    // listens (which it does once its readiness semaphore exists) or it has
    // ended.  A stale socket or semaphore left in place does not count.
    // A `descriptorLimit` other than 0 limits the broker's open descriptors.
    explicit BrokerProcess(unsigned descriptorLimit = 0);
    // Sends SIGKILL if it is still running.
    ~BrokerProcess();
    BrokerProcess(const BrokerProcess&) = delete;
    BrokerProcess& operator=(const BrokerProcess&) = delete;

    pid_t id() const { return pid; }
    bool running();
    // Sends `signal` and waits (up to 20 s) for the end; returns the status as
    // waitpid reports it, or -1 when it did not end.
    int stop(int signal);
    // Waits (up to 20 s) for the end without sending anything.
    int wait();
    // What the broker wrote to its standard error.
    std::string errorOutput();

private:
    pid_t pid;
    int errorPipe;
    int status = -1;
};

// Runs the broker program with `arguments` to its end (through the emulator
// for ARM builds), capturing its exit status and output.
testsupport::ChildResult runBroker(const std::vector<std::string>& arguments);

// True when a path is a UNIX-domain socket.
bool isSocket(const char* path);
// True when the named semaphore exists (a file in /dev/shm).
bool semaphoreExists(const char* name);
// The named semaphore's value, -1 when it cannot be opened.
int semaphoreValue(const char* name);

} // namespace brokertest
