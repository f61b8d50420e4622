#include "memtoolprocess.h"

#include "brokerprocess.h"

#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstring>
#include <fcntl.h>
#include <poll.h>
#include <stdexcept>
#include <sys/wait.h>
#include <unistd.h>

namespace memtooltest {

namespace {

using Clock = std::chrono::steady_clock;

int millisecondsLeft(Clock::time_point deadline) {
    const auto left =
        std::chrono::duration_cast<std::chrono::milliseconds>(deadline - Clock::now()).count();
    return left > 0 ? static_cast<int>(left) : 0;
}

} // namespace

MemtoolProcess::MemtoolProcess(const std::vector<std::string>& arguments,
                               const std::string& input) {
    int out[2];
    int err[2];
    if (::pipe2(out, O_CLOEXEC) < 0 || ::pipe2(err, O_CLOEXEC) < 0) {
        throw std::runtime_error(std::string("pipe: ") + std::strerror(errno));
    }
    std::vector<std::string> words = brokertest::commandLine(MEMTOOL_EMULATOR, MEMTOOL_PROGRAM);
    words.insert(words.end(), arguments.begin(), arguments.end());
    std::vector<char*> argv = brokertest::argvOf(words);
    pid = ::fork();
    if (pid == 0) {
        if (!input.empty()) {
            // A file that cannot be opened ends the child (status 127) rather than
            // leaving memtool to read the test program's own standard input.
            const int in = ::open(input.c_str(), O_RDONLY);
            if (in < 0 || ::dup2(in, STDIN_FILENO) < 0) {
                ::_exit(127);
            }
            if (in != STDIN_FILENO) {
                ::close(in);
            }
        }
        ::dup2(out[1], STDOUT_FILENO);
        ::dup2(err[1], STDERR_FILENO);
        ::execvp(argv[0], argv.data());
        ::_exit(127);
    }
    ::close(out[1]);
    ::close(err[1]);
    outFd = out[0];
    errFd = err[0];
}

MemtoolProcess::~MemtoolProcess() {
    if (pid > 0) {
        ::kill(pid, SIGKILL);
        ::waitpid(pid, nullptr, 0);
    }
    for (int fd : {outFd, errFd}) {
        if (fd >= 0) {
            ::close(fd);
        }
    }
}

bool MemtoolProcess::readSome(int timeoutMs) {
    pollfd pipes[2] = {{outFd, POLLIN, 0}, {errFd, POLLIN, 0}};
    if (outFd < 0 && errFd < 0) {
        return false;
    }
    if (::poll(pipes, 2, timeoutMs) <= 0) {
        return false;
    }
    std::string* targets[2] = {&result.out, &result.err};
    int* fds[2] = {&outFd, &errFd};
    for (int i = 0; i < 2; ++i) {
        if (pipes[i].revents == 0) {
            continue;
        }
        char buffer[4096];
        const ssize_t count = ::read(*fds[i], buffer, sizeof buffer);
        if (count > 0) {
            targets[i]->append(buffer, count);
        } else {
            ::close(*fds[i]);
            *fds[i] = -1;
        }
    }
    return true;
}

bool MemtoolProcess::waitFor(const std::string& stream, const std::string& text, int timeoutMs) {
    const auto deadline = Clock::now() + std::chrono::milliseconds(timeoutMs);
    while (stream.find(text) == std::string::npos) {
        if (!readSome(millisecondsLeft(deadline))) {
            return false;
        }
    }
    return true;
}

bool MemtoolProcess::waitForOutput(const std::string& text, int timeoutMs) {
    return waitFor(result.out, text, timeoutMs);
}

bool MemtoolProcess::waitForError(const std::string& text, int timeoutMs) {
    return waitFor(result.err, text, timeoutMs);
}

void MemtoolProcess::signal(int number) {
    ::kill(pid, number);
}

Result MemtoolProcess::wait(int timeoutMs) {
    const auto deadline = Clock::now() + std::chrono::milliseconds(timeoutMs);
    while ((outFd >= 0 || errFd >= 0) && readSome(millisecondsLeft(deadline))) {
    }
    if (outFd >= 0 || errFd >= 0) {
        ::kill(pid, SIGKILL);
    }
    int status = 0;
    ::waitpid(pid, &status, 0);
    pid = -1;
    if (outFd >= 0 || errFd >= 0) {
        result.status = -1;
    } else if (WIFEXITED(status)) {
        result.status = WEXITSTATUS(status);
    } else {
        result.status = 128 + WTERMSIG(status);
    }
    return result;
}

Result runMemtool(const std::vector<std::string>& arguments, int timeoutMs) {
    return MemtoolProcess(arguments).wait(timeoutMs);
}

Result runMemtoolReading(const std::vector<std::string>& arguments, const std::string& input) {
    return MemtoolProcess(arguments, input).wait();
}

} // namespace memtooltest
