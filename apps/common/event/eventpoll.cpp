#include "settings-service/eventpoll.h"

#include "settings-service/log.h"

#include <atomic>
#include <cerrno>
#include <csignal>
#include <cstdint>
#include <cstring>
#include <fcntl.h>
#include <stdexcept>
#include <sys/epoll.h>
#include <unistd.h>

namespace {

// Written by the signal handler; every access is bracketed by full fences.
std::atomic<uint8_t> timerExpired{0};
std::atomic<uint32_t> pendingSignals{0};
std::atomic<uint8_t> terminateRequested{0};

static_assert(std::atomic<uint8_t>::is_always_lock_free);
static_assert(std::atomic<uint32_t>::is_always_lock_free);

constexpr int MAX_EVENTS = 8;

void fence() {
    std::atomic_thread_fence(std::memory_order_seq_cst);
}

bool testAndClear(std::atomic<uint8_t>& flag) {
    fence();
    bool set = flag.exchange(0) != 0;
    fence();
    return set;
}

void signalHandler(int signal) {
    fence();
    if (signal == SIGALRM) {
        timerExpired.store(1);
    } else {
        pendingSignals.fetch_or(1u << signal);
        terminateRequested.store(1);
    }
    fence();
}

void logPendingSignals() {
    fence();
    uint32_t pending = pendingSignals.exchange(0);
    fence();
    for (int signal = 0; signal < 32; ++signal) {
        if (pending & (1u << signal)) {
            LOG(LogLight, "SIG %i: %s", signal, strsignal(signal));
        }
    }
}

// Holds SIGINT, SIGTERM and SIGALRM back from the termination check until
// the kernel waits: epoll_pwait lets them in only while it sleeps.  Without
// this, a signal arriving between the check and the wait would set its flag
// and leave the wait asleep until some descriptor woke it (forever for a wait
// without time-out, so SIGTERM would be ignored).  The mask is put back as
// soon as the wait returns, so the callbacks run as the process left them.
class HandledSignalsBlocked {
public:
    HandledSignalsBlocked() {
        sigset_t handled;
        sigemptyset(&handled);
        sigaddset(&handled, SIGINT);
        sigaddset(&handled, SIGTERM);
        sigaddset(&handled, SIGALRM);
        sigprocmask(SIG_BLOCK, &handled, &previous);
    }
    ~HandledSignalsBlocked() { release(); }
    // The mask to wait with: the one in force before this object.
    const sigset_t* waitMask() const { return &previous; }
    void release() {
        if (blocked) {
            sigprocmask(SIG_SETMASK, &previous, nullptr);
            blocked = false;
        }
    }
    HandledSignalsBlocked(const HandledSignalsBlocked&) = delete;
    HandledSignalsBlocked& operator=(const HandledSignalsBlocked&) = delete;

private:
    sigset_t previous;
    bool blocked = true;
};

void installHandler(int signal) {
    struct sigaction action {};
    action.sa_handler = signalHandler;
    sigfillset(&action.sa_mask);
    action.sa_flags = 0;
    sigaction(signal, &action, nullptr);
}

} // namespace

void EventPoll::handleSignals() {
    installHandler(SIGINT);
    installHandler(SIGTERM);
    installHandler(SIGALRM);
    signal(SIGPIPE, SIG_IGN);
}

EventPoll::EventPoll(Signals signals) : epollFd(-1), timer(timer_t()), hasTimer(false) {
    if (signals == Signals::Handle) {
        handleSignals();
    }
    epollFd = epoll_create(1);
    if (epollFd < 0) {
        throw std::runtime_error(std::string("epoll_create: ") + std::strerror(errno));
    }
    fcntl(epollFd, F_SETFD, FD_CLOEXEC);
}

EventPoll::~EventPoll() {
    close();
    if (hasTimer) {
        timer_delete(timer);
    }
}

void EventPoll::add(int fd, Callback* callback, unsigned events) {
    if (epollFd < 0) {
        THROW_ERROR("add called on an already closed handle");
    }
    epoll_event event{};
    event.events = events;
    event.data.ptr = callback;
    if (epoll_ctl(epollFd, EPOLL_CTL_ADD, fd, &event) < 0) {
        THROW_ERROR_NUMBER("epoll_ctl");
    }
    LOG(DebugMost, "Add new client %i/%p", fd, static_cast<void*>(callback));
}

void EventPoll::remove(int fd) {
    if (epollFd < 0) {
        return;
    }
    if (epoll_ctl(epollFd, EPOLL_CTL_DEL, fd, nullptr) < 0) {
        THROW_ERROR_NUMBER("epoll_ctl");
    }
    LOG(DebugMost, "Remove  client %i", fd);
}

void EventPoll::setTimer(int milliseconds) {
    if (milliseconds == -1) {
        if (hasTimer) {
            timer_delete(timer);
            hasTimer = false;
        }
        return;
    }
    if (!hasTimer) {
        // The timer's expiry is a SIGALRM: a poll that leaves the signals alone handles this one.
        installHandler(SIGALRM);
        sigevent notification{};
        notification.sigev_notify = SIGEV_SIGNAL;
        notification.sigev_signo = SIGALRM;
        notification.sigev_value.sival_ptr = this;
        if (timer_create(CLOCK_MONOTONIC, &notification, &timer) < 0) {
            THROW_ERROR_NUMBER("timer create");
        }
        hasTimer = true;
    }
    itimerspec period{};
    period.it_value.tv_sec = milliseconds / 1000;
    period.it_value.tv_nsec = (milliseconds % 1000) * 1000000L;
    period.it_interval = period.it_value;
    if (timer_settime(timer, 0, &period, nullptr) < 0) {
        THROW_ERROR_NUMBER("timer set");
    }
}

int EventPoll::wait(int timeoutMs, bool ignoreTerminate) {
    HandledSignalsBlocked blocked;
    logPendingSignals();
    if (!ignoreTerminate && shouldTerminate()) {
        return Terminate;
    }
    if (epollFd < 0) {
        THROW_ERROR("wait called on an already closed handle");
    }
    epoll_event events[MAX_EVENTS];
    int ready = epoll_pwait(epollFd, events, MAX_EVENTS, timeoutMs, blocked.waitMask());
    int waitError = errno;
    blocked.release();
    errno = waitError;
    if (ready < 0) {
        if (errno != EINTR) {
            THROW_ERROR_NUMBER("epoll_wait");
        }
        return testAndClear(timerExpired) ? TimerExpired : Interrupted;
    }
    if (ready == 0) {
        return Timeout;
    }
    for (int i = 0; i < ready; ++i) {
        auto* callback = static_cast<Callback*>(events[i].data.ptr);
        unsigned mask = events[i].events;
        if (callback == nullptr) {
            LOG(Warn, "Unhandled event: %08x", mask);
            continue;
        }
        LOG(DebugAll, "Call    client %p for events %08x", static_cast<void*>(callback), mask);
        if (mask & EPOLLHUP) {
            callback->event(Callback::Hangup);
        } else if (mask & EPOLLPRI) {
            callback->event(Callback::Priority);
        } else if (mask & EPOLLIN) {
            callback->event(Callback::Readable);
        }
    }
    return testAndClear(timerExpired) ? TimerExpired : EventsHandled;
}

void EventPoll::close() {
    if (epollFd >= 0) {
        ::close(epollFd);
        epollFd = -1;
    }
}

bool EventPoll::shouldTerminate() {
    fence();
    bool requested = terminateRequested.load() != 0;
    fence();
    return requested;
}

namespace gen {
EventPoll& getEventPoll() {
    static EventPoll processPoll(EventPoll::Signals::Handle);
    return processPoll;
}
} // namespace gen
