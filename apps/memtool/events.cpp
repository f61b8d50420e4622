// memtool post, watch and request: the commands that talk to the broker.
#include "commands.h"
#include "device.h"
#include "eventpoll.h"
#include "introspection.h"
#include "names.h"

#include <nlohmann/json.hpp>

#include <chrono>
#include <cstdio>

namespace {

using Clock = std::chrono::steady_clock;

// Milliseconds left until `deadline` (at least 0), or -1 without a deadline.
int remainingMs(const std::optional<Clock::time_point>& deadline) {
    if (!deadline) {
        return -1;
    }
    const auto left =
        std::chrono::duration_cast<std::chrono::milliseconds>(*deadline - Clock::now());
    return left.count() > 0 ? static_cast<int>(left.count()) : 0;
}

std::optional<Clock::time_point> deadlineAfter(unsigned seconds) {
    if (seconds == 0) {
        return std::nullopt;
    }
    return Clock::now() + std::chrono::seconds(seconds);
}

// Prints each record as it arrives: "<name> <indexed> <index>" or one JSON
// object per line.
class Printer : public ServerConnection::EventHandler {
public:
    Printer(bool json, unsigned limit) : json(json), limit(limit) {}

    void handleEvent(const Notify& notify) override {
        if (done()) {
            return;
        }
        // An id beyond the event table has no name: JSON gives null, text the number.
        const bool named = notify.id < EVENT_ID_COUNT;
        if (json) {
            const nlohmann::ordered_json record = {
                {"id", notify.id},
                {"name", named ? nlohmann::ordered_json(eventName(notify)) : nullptr},
                {"indexed", notify.indexed},
                {"index", notify.index}};
            std::printf("%s\n", record.dump().c_str());
        } else {
            const std::string name = named ? eventName(notify) : std::to_string(notify.id);
            std::printf("%s %u %u\n", name.c_str(), notify.indexed, notify.index);
        }
        std::fflush(stdout);
        ++seen;
    }

    bool done() const { return limit != 0 && seen >= limit; }
    unsigned count() const { return seen; }

private:
    bool json;
    unsigned limit;
    unsigned seen = 0;
};

// Takes the records of a request's wait; only the flag in memory matters.
class Ignore : public ServerConnection::EventHandler {
public:
    void handleEvent(const Notify&) override {}
};

} // namespace

int postEventCommand(const Arguments& arguments) {
    arguments.expectPositional(1, 1);
    Notify notify{findEvent(arguments.positional()[0]), 0, 0};
    if (arguments.value("--index")) {
        notify.indexed = 1;
        notify.index = arguments.number("--index", 0);
    }
    connectBroker().postEvent(notify);
    return ExitSuccess;
}

int watchEvents(const Arguments& arguments) {
    std::vector<EventId> events;
    for (const std::string& name : arguments.positional()) {
        events.push_back(findEvent(name));
    }
    const unsigned limit = arguments.number("--count", 0);
    const auto deadline = deadlineAfter(arguments.number("--timeout", 0));
    Printer printer(arguments.has("--json"), limit);
    ServerConnection& connection = connectBroker();
    connection.setEventHandler(&printer);
    if (events.empty()) {
        connection.subscribeAll();
    }
    for (EventId id : events) {
        connection.subscribe({id, 0, 0});
    }
    std::fprintf(stderr, "memtool: watching %s\n",
                 events.empty() ? "every event"
                                : (std::to_string(events.size()) + " events").c_str());
    EventPoll& poll = gen::getEventPoll();
    while (!printer.done() && remainingMs(deadline) != 0) {
        if (poll.wait(remainingMs(deadline)) == EventPoll::Terminate) {
            break;
        }
    }
    if (limit != 0 && !printer.done() && deadline) {
        throw Failure("timed out after " + std::to_string(printer.count()) + " of " +
                      std::to_string(limit) + " events");
    }
    return ExitSuccess;
}

int runRequest(const Arguments& arguments) {
    arguments.expectPositional(2, 2);
    const uint32_t memory = findMemory(arguments.positional()[0]);
    const uint32_t variable = findVariable(memory, arguments.positional()[1]);
    const std::string name = std::string(Introspection::getMemName(memory)) + "." +
                             Introspection::getVarName(memory, variable);
    if (Introspection::getVarBaseType(memory, variable) != BaseBool ||
        Introspection::isArray(memory, variable)) {
        throw UsageError(name + " is not a request flag (a single bool)");
    }
    const unsigned seconds = arguments.number("--timeout", 10);
    openMemory(memory);
    Ignore ignore;
    ServerConnection& connection = connectBroker();
    connection.setEventHandler(&ignore);
    const Notify event = Introspection::getVarEvent(memory, variable);
    connection.subscribe(event);
    if (Introspection::getVarValue(memory, variable, 0) == "true") {
        connection.postEvent(event);
    } else if (std::string error = Introspection::setVarValue(memory, variable, "true");
               !error.empty()) {
        throw Failure(error);
    }
    constexpr int CHECK_INTERVAL_MS = 100;
    const auto deadline = deadlineAfter(seconds);
    EventPoll& poll = gen::getEventPoll();
    while (Introspection::getVarValue(memory, variable, 0) == "true") {
        const int left = remainingMs(deadline);
        if (left == 0) {
            throw Failure(name + " was not cleared within " + std::to_string(seconds) + " s");
        }
        if (poll.wait(left < 0 ? CHECK_INTERVAL_MS : std::min(left, CHECK_INTERVAL_MS)) ==
            EventPoll::Terminate) {
            throw Failure("interrupted before " + name + " was cleared");
        }
    }
    return ExitSuccess;
}
