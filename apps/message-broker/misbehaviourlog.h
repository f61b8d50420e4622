// Log lines about misbehaving clients (refused, closed for their queues,
// refused subscriptions), rate-limited so that a hostile client cannot fill
// the kernel log: at most LINES_PER_SECOND lines in a second; the lines past
// that are counted, and the count is written as one line ("%u more lines
// about misbehaving clients were left out") once that second is over, at the
// next line or the broker's next wake-up.
#pragma once

#include <chrono>
#include <cstdint>

class MisbehaviourLog {
public:
    static constexpr uint32_t LINES_PER_SECOND = 10;

    // True when a line may be written now (written by the caller at Warn);
    // false when it is to be left out, which is counted.
    bool allow();
    // Writes the count of the lines left out once their second is over.
    void flush();

private:
    using Clock = std::chrono::steady_clock;

    Clock::time_point windowStart{};
    uint32_t written = 0;
    uint32_t leftOut = 0;
};
