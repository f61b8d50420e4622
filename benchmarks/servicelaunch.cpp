#include "servicelaunch.h"

#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <sys/wait.h>
#include <unistd.h>

namespace servicelaunch {

namespace {

constexpr std::chrono::seconds READY_PATIENCE{10};

// The signals waited for; blocked from the start, and unblocked again in each
// child before its exec.
sigset_t waitedSignals;
sigset_t originalMask;

// Takes signals left pending by earlier starts (SIGCHLD of a reaped child).
void drainPendingSignals() {
    const timespec now{0, 0};
    siginfo_t info;
    while (sigtimedwait(&waitedSignals, &info, &now) > 0) {
    }
}

timespec remaining(std::chrono::steady_clock::time_point end) {
    const auto left = std::chrono::duration_cast<std::chrono::nanoseconds>(
        end - std::chrono::steady_clock::now());
    if (left.count() <= 0) {
        return {0, 0};
    }
    return {static_cast<time_t>(left.count() / 1'000'000'000),
            static_cast<long>(left.count() % 1'000'000'000)};
}

} // namespace

void blockReadySignals() {
    sigemptyset(&waitedSignals);
    sigaddset(&waitedSignals, SIGUSR1);
    sigaddset(&waitedSignals, SIGCHLD);
    sigprocmask(SIG_BLOCK, &waitedSignals, &originalMask);
}

double cpuSecondsOf(pid_t pid) {
    clockid_t clock;
    timespec used{};
    if (clock_getcpuclockid(pid, &clock) != 0 || clock_gettime(clock, &used) != 0) {
        return -1;
    }
    return static_cast<double>(used.tv_sec) + static_cast<double>(used.tv_nsec) * 1e-9;
}

std::optional<double> timeStart(const char* program, pid_t& child, std::string& error,
                                double* cpuSeconds) {
    drainPendingSignals();
    const auto begin = std::chrono::steady_clock::now();
    child = fork();
    if (child < 0) {
        error = "fork failed";
        return std::nullopt;
    }
    if (child == 0) {
        sigprocmask(SIG_SETMASK, &originalMask, nullptr);
        unsetenv("NOTIFY_SOCKET");
        execl(program, program, static_cast<char*>(nullptr));
        _exit(127);
    }
    const auto end = begin + READY_PATIENCE;
    for (;;) {
        siginfo_t info{};
        const timespec timeout = remaining(end);
        const int signal = sigtimedwait(&waitedSignals, &info, &timeout);
        if (signal == SIGUSR1 && info.si_pid == child) {
            const std::chrono::duration<double> took = std::chrono::steady_clock::now() - begin;
            if (cpuSeconds != nullptr) {
                *cpuSeconds = cpuSecondsOf(child);
            }
            return took.count();
        }
        if (signal == SIGCHLD && waitpid(child, nullptr, WNOHANG) == child) {
            child = -1;
            error = std::string(program) + " ended before it was ready";
            return std::nullopt;
        }
        if (signal < 0 && errno != EINTR) {
            error = std::string(program) + " was not ready within 10 s";
            return std::nullopt;
        }
    }
}

void stop(pid_t child) {
    if (child > 0) {
        kill(child, SIGTERM);
        waitpid(child, nullptr, 0);
    }
}

bool readServiceOption(int argc, char** argv, const char* benchmark, std::string& program) {
    const std::string option = "--service=";
    for (int i = 1; i < argc; ++i) {
        const std::string argument = argv[i];
        if (argument.rfind(option, 0) != 0) {
            std::fprintf(stderr, "%s: unknown argument %s\n", benchmark, argv[i]);
            return false;
        }
        program = argument.substr(option.size());
    }
    return true;
}

} // namespace servicelaunch
