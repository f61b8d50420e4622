// A pace of at most once a second on the steady clock: the loop's save check
// and its attempts to reach a broker that went away.
#pragma once

#include <chrono>
#include <functional>
#include <utility>

class OncePerSecond {
public:
    using SteadyClock = std::function<std::chrono::steady_clock::time_point()>;
    // The loop's time-out while something is waiting for its next turn.
    static constexpr int WAIT_MS = 1000;

    // A pace on the steady clock that `now` reads.
    explicit OncePerSecond(SteadyClock now) : now(std::move(now)) {}

    // The next turn comes a second from now.
    void restart() { last = now(); }
    // True when more than 999,999,999 ns have passed since the last turn;
    // that moment is then the last turn.
    bool due() {
        const auto moment = now();
        if (moment - last <= PERIOD) {
            return false;
        }
        last = moment;
        return true;
    }

private:
    static constexpr std::chrono::nanoseconds PERIOD{999'999'999};
    SteadyClock now;
    // The epoch of the steady clock at construction: the first turn is due at once.
    std::chrono::steady_clock::time_point last;
};
