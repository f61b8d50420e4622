// A pace of at most once a second on the steady clock: the loop's save check
// and its attempts to reach a broker that went away.
#pragma once

#include <chrono>

class OncePerSecond {
public:
    // The loop's time-out while something is waiting for its next turn.
    static constexpr int WAIT_MS = 1000;

    // The next turn comes a second from now.
    void restart() { last = std::chrono::steady_clock::now(); }
    // True when more than 999,999,999 ns have passed since the last turn;
    // that moment is then the last turn.
    bool due() {
        const auto now = std::chrono::steady_clock::now();
        if (now - last <= PERIOD) {
            return false;
        }
        last = now;
        return true;
    }

private:
    static constexpr std::chrono::nanoseconds PERIOD{999'999'999};
    // The epoch of the steady clock at construction: the first turn is due at once.
    std::chrono::steady_clock::time_point last;
};
