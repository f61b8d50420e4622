// Starting a program of this build as a child that tells its parent, with
// SIGUSR1, when it is ready, as the settings service does under its
// supervisor; shared by the benchmarks that start the service.
//
// The calling program blocks SIGUSR1 and SIGCHLD first (blockReadySignals)
// and takes them with sigtimedwait; each child gets the original mask back
// before its exec.
#pragma once

#include <optional>
#include <string>
#include <sys/types.h>

namespace servicelaunch {

// Blocks SIGUSR1 and SIGCHLD in the calling thread; call before any start.
void blockReadySignals();
// One start of `program`: the seconds from fork to its SIGUSR1, or nullopt
// with the reason in `error` when it ended first or was not ready within
// 10 s.  `child` is the started process, -1 when it has ended and was reaped.
// With `cpuSeconds`, the CPU time that the program had used when its signal
// arrived is stored there (from its process CPU clock, -1 when unknown): a
// figure that waiting for a busy processor does not inflate.
std::optional<double> timeStart(const char* program, pid_t& child, std::string& error,
                                double* cpuSeconds = nullptr);
// The CPU time that process `pid` has used so far, in seconds; -1 when unknown.
double cpuSecondsOf(pid_t pid);
// Stops a started program with SIGTERM and reaps it (nothing for -1).
void stop(pid_t child);
// Reads what benchmark::Initialize left of the command line: --service=PATH
// replaces `program` (to compare another build's service on the same
// machine); any other argument is reported on stderr and gives false.
bool readServiceOption(int argc, char** argv, const char* benchmark, std::string& program);

} // namespace servicelaunch
