// Names of EventPoll::wait results, for readable expectations in the tests.
#pragma once

#include "settings-service/eventpoll.h"

#include <string>

inline std::string resultName(int result) {
    switch (result) {
    case EventPoll::Interrupted:
        return "Interrupted";
    case EventPoll::TimerExpired:
        return "TimerExpired";
    case EventPoll::Timeout:
        return "Timeout";
    case EventPoll::EventsHandled:
        return "EventsHandled";
    case EventPoll::Terminate:
        return "Terminate";
    }
    return "unknown " + std::to_string(result);
}
