// Has a signal sent to this process after the given time, from a timer of
// the test's own, so that it arrives while the process is blocked.
#pragma once

#include <csignal>
#include <cstdlib>
#include <ctime>

inline void sendSignalLater(int number, long milliseconds) {
    sigevent notification{};
    notification.sigev_notify = SIGEV_SIGNAL;
    notification.sigev_signo = number;
    timer_t timer;
    itimerspec when{};
    when.it_value.tv_sec = milliseconds / 1000;
    when.it_value.tv_nsec = (milliseconds % 1000) * 1000000L;
    if (timer_create(CLOCK_MONOTONIC, &notification, &timer) != 0 ||
        timer_settime(timer, 0, &when, nullptr) != 0) {
        std::abort();
    }
}
