#include "misbehaviourlog.h"

#include "settings-service/log.h"

bool MisbehaviourLog::allow() {
    flush();
    if (written == 0) {
        windowStart = Clock::now();
    }
    if (written < LINES_PER_SECOND) {
        ++written;
        return true;
    }
    ++leftOut;
    return false;
}

void MisbehaviourLog::flush() {
    if (written == 0 || Clock::now() - windowStart < std::chrono::seconds(1)) {
        return;
    }
    if (leftOut > 0) {
        LOG(Warn, "%u more lines about misbehaving clients were left out", leftOut);
    }
    written = 0;
    leftOut = 0;
}
