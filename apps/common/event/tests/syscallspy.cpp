#include "syscallspy.h"

#include "calllog.h"

#include <cerrno>
#include <cstdarg>
#include <fcntl.h>
#include <poll.h>
#include <sched.h>
#include <semaphore.h>
#include <sys/epoll.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

namespace {

int semOpenFailures = 0;
testsupport::CallLog<spy::Call> calls;

template <class Function> Function real(const char* name) {
    return testsupport::libraryFunction<Function>(name);
}

void record(spy::Call call) {
    calls.record(std::move(call));
}

} // namespace

namespace spy {

void start() {
    calls.start();
}

std::vector<Call> stop() {
    return calls.stop();
}

void failSemOpen(int times) {
    semOpenFailures = times;
}

std::vector<Call> only(const std::vector<Call>& calls, const std::string& name) {
    std::vector<Call> selected;
    for (const Call& call : calls) {
        if (call.name == name) {
            selected.push_back(call);
        }
    }
    return selected;
}

} // namespace spy

extern "C" {

sem_t* sem_open(const char* name, int flags, ...) {
    mode_t mode = 0;
    unsigned value = 0;
    if (flags & O_CREAT) {
        va_list args;
        va_start(args, flags);
        mode = va_arg(args, mode_t);
        value = va_arg(args, unsigned);
        va_end(args);
    }
    sem_t* result;
    if (semOpenFailures > 0) {
        --semOpenFailures;
        errno = ENOENT;
        result = SEM_FAILED;
    } else {
        result = real<sem_t* (*)(const char*, int, ...)>("sem_open")(name, flags, mode, value);
    }
    record({"sem_open", -1, flags, result == SEM_FAILED ? -1 : 0, name, {}});
    return result;
}

int sched_yield() {
    record({"sched_yield", -1, 0, 0, {}, {}});
    return real<int (*)()>("sched_yield")();
}

int connect(int fd, const sockaddr* address, socklen_t length) {
    int result = real<int (*)(int, const sockaddr*, socklen_t)>("connect")(fd, address, length);
    const auto* local = reinterpret_cast<const sockaddr_un*>(address);
    record({"connect", fd, static_cast<long>(length), result, local->sun_path, {}});
    return result;
}

int epoll_ctl(int epollFd, int operation, int fd, epoll_event* event) {
    int result =
        real<int (*)(int, int, int, epoll_event*)>("epoll_ctl")(epollFd, operation, fd, event);
    const char* name = operation == EPOLL_CTL_ADD   ? "epoll_ctl ADD"
                       : operation == EPOLL_CTL_DEL ? "epoll_ctl DEL"
                                                    : "epoll_ctl MOD";
    record({name, fd, event ? static_cast<long>(event->events) : 0, result, {}, {}});
    return result;
}

ssize_t write(int fd, const void* data, size_t size) {
    ssize_t result = real<ssize_t (*)(int, const void*, size_t)>("write")(fd, data, size);
    const auto* bytes = static_cast<const uint8_t*>(data);
    record({"write", fd, static_cast<long>(size), result, {}, {bytes, bytes + size}});
    return result;
}

ssize_t read(int fd, void* data, size_t size) {
    ssize_t result = real<ssize_t (*)(int, void*, size_t)>("read")(fd, data, size);
    record({"read", fd, static_cast<long>(size), result, {}, {}});
    return result;
}

int shutdown(int fd, int how) {
    int result = real<int (*)(int, int)>("shutdown")(fd, how);
    record({"shutdown", fd, how, result, {}, {}});
    return result;
}

int poll(pollfd* fds, nfds_t count, int timeout) {
    int result = real<int (*)(pollfd*, nfds_t, int)>("poll")(fds, count, timeout);
    record({"poll", count > 0 ? fds[0].fd : -1, timeout, result, {}, {}});
    return result;
}

} // extern "C"
