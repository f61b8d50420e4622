// Reporting the failures of an operation that is tried again and again (the
// save of ".current.stp" at every once-a-second check, the values kept aside
// beside it): a failure is logged once, and not again while the same failure
// repeats; after a different failure or a success it is logged again.
//
// The failure is logged at Error with the source location that its Error
// carries, so that the kernel log points at the place where it was found
// rather than at the caller that reports it.
#pragma once

#include "result.h"
#include "settings-service/loglevel.h"

#include <string>

// Logs `error` at `level` with the source location where it was found.
void logFailure(const Error& error, gen::LogLevel level = gen::Error);

class RepeatedFailure {
public:
    // Takes the outcome of one more attempt: logs its failure unless it
    // repeats the previous attempt's; a success forgets the previous failure.
    void report(const Result<void>& outcome);

private:
    // The text of the last failure; empty after a success.
    std::string last;
};
