#include "child.h"

#include <array>
#include <cerrno>
#include <cstdio>
#include <exception>
#include <iostream>
#include <poll.h>
#include <stdexcept>
#include <sys/wait.h>
#include <unistd.h>

namespace testsupport {

namespace {

constexpr int BODY_THREW = 126;

[[noreturn]] void runBody(const std::function<int()>& body, int out, int err) {
    dup2(out, STDOUT_FILENO);
    dup2(err, STDERR_FILENO);
    int status = BODY_THREW;
    try {
        status = body();
    } catch (const std::exception& error) {
        std::cerr << "exception: " << error.what() << std::endl;
    }
    std::cout.flush();
    std::cerr.flush();
    std::fflush(nullptr);
    _exit(status);
}

// Reads both pipes to their end without letting either fill up.
void collect(int out, int err, ChildResult& result) {
    std::array<pollfd, 2> pipes{{{out, POLLIN, 0}, {err, POLLIN, 0}}};
    std::array<std::string*, 2> targets{&result.out, &result.err};
    int open = 2;
    while (open > 0) {
        if (poll(pipes.data(), pipes.size(), -1) < 0) {
            if (errno == EINTR) {
                continue;
            }
            throw std::runtime_error("runInChild: poll failed");
        }
        for (size_t i = 0; i < pipes.size(); ++i) {
            if (pipes[i].fd < 0 || pipes[i].revents == 0) {
                continue;
            }
            char buffer[4096];
            ssize_t got = read(pipes[i].fd, buffer, sizeof buffer);
            if (got > 0) {
                targets[i]->append(buffer, static_cast<size_t>(got));
            } else {
                close(pipes[i].fd);
                pipes[i].fd = -1;
                --open;
            }
        }
    }
}

} // namespace

bool ChildResult::exitedWith(int code) const {
    return WIFEXITED(status) && WEXITSTATUS(status) == code;
}

ChildResult runInChild(const std::function<int()>& body) {
    int out[2];
    int err[2];
    if (pipe(out) != 0 || pipe(err) != 0) {
        throw std::runtime_error("runInChild: pipe failed");
    }
    std::fflush(nullptr);
    pid_t pid = fork();
    if (pid < 0) {
        throw std::runtime_error("runInChild: fork failed");
    }
    if (pid == 0) {
        close(out[0]);
        close(err[0]);
        runBody(body, out[1], err[1]);
    }
    close(out[1]);
    close(err[1]);
    ChildResult result;
    collect(out[0], err[0], result);
    while (waitpid(pid, &result.status, 0) < 0) {
        if (errno != EINTR) {
            throw std::runtime_error("runInChild: waitpid failed");
        }
    }
    return result;
}

} // namespace testsupport
