// The process's single-threaded event loop: one epoll instance, one optional
// periodic timer (SIGALRM on the monotonic clock) and the handling of the
// termination signals, which only set lock-free flags that wait() reports.
// wait() blocks those signals from its termination check until the kernel
// sleeps, so one that arrives in between still ends that wait.
//
// Signals are handled by choice, never by linking: handleSignals() installs
// the handlers of SIGINT, SIGTERM and SIGALRM and ignores SIGPIPE; a poll
// constructed with Signals::Handle (the default, and the process's poll of
// gen::getEventPoll(), made on its first use) calls it.  The daemons and the
// tools call it first thing in main.  A poll constructed with
// Signals::LeaveAlone (a client library's) changes no disposition, except
// SIGALRM's once it arms its timer, whose expiry is that signal.
#pragma once

#include <ctime>
#include <functional>

class EventPoll {
public:
    class Callback {
    public:
        enum EventType { Priority = 0, Readable = 1, Hangup = 2 };
        virtual void event(EventType type) = 0;
    };

    // A Callback that forwards to a function object; calling it while empty
    // throws std::bad_function_call.
    class FunctionCallback : public Callback {
    public:
        FunctionCallback() = default;
        explicit FunctionCallback(std::function<void(EventType)> function)
            : function(std::move(function)) {}
        void event(EventType type) override { function(type); }
        std::function<void(EventType)> function;
    };

    enum WaitResult {
        Interrupted = 0,
        TimerExpired = 1,
        Timeout = 2,
        EventsHandled = 3,
        Terminate = 4
    };

    enum class Signals { Handle, LeaveAlone };

    explicit EventPoll(Signals signals = Signals::Handle);
    ~EventPoll();
    EventPoll(const EventPoll&) = delete;
    EventPoll& operator=(const EventPoll&) = delete;

    void add(int fd, Callback* callback, unsigned events);
    void remove(int fd);
    // Arms (creating on first use) the periodic timer; -1 deletes it.
    void setTimer(int milliseconds);
    int wait(int timeoutMs, bool ignoreTerminate = false);
    void close();
    static bool shouldTerminate();
    // Installs the handlers of the termination signals and of the timer and ignores SIGPIPE.
    static void handleSignals();

private:
    int epollFd;
    timer_t timer;
    // Whether timer holds a timer: the kernel gives a process's first timer
    // the id 0, so the handle's value cannot mark "no timer".
    bool hasTimer;
};

namespace gen {
// The process's poll (Signals::Handle), made on the first call.
EventPoll& getEventPoll();
} // namespace gen
