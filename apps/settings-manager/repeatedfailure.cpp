#include "repeatedfailure.h"

#include "settings-service/log.h"

void logFailure(const Error& error, gen::LogLevel level) {
    logMessage(gComponentLogLevel, level, error.file, error.line, "%s", error.text.c_str());
}

void RepeatedFailure::report(const Result<void>& outcome) {
    if (outcome) {
        last.clear();
        return;
    }
    if (outcome.error().text != last) {
        logFailure(outcome.error());
    }
    last = outcome.error().text;
}
