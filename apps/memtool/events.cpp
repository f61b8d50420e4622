// memtool post, watch and request: the commands that talk to the broker.
//
// watch --values looks each event's variable up in the catalogue and reads the
// value it holds when the record is printed.  An event of no variable has no
// memory, variable, index or value (null in JSON, "(no variable)" in text); an
// element index outside the array or a memory that is not present gives no
// value ("n/a"); a whole-array event shows every element, "[a, b, ...]".
#include "commands.h"
#include "device.h"
#include "eventtarget.h"
#include "names.h"
#include "settings-service/eventpoll.h"
#include "settings-service/introspection.h"

#include <nlohmann/json.hpp>

#include <chrono>
#include <cstdio>
#include <optional>
#include <string>

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

// The variable that an event announces, with the value it holds now.
struct Announced {
    EventTarget target;
    std::optional<std::string> value; // nullopt when it cannot be read
};

Result<std::optional<Announced>> announced(Device& device, const Notify& notify) {
    const std::optional<EventTarget> target = eventTarget(device, notify);
    if (!target) {
        return std::optional<Announced>();
    }
    Announced found{*target, std::nullopt};
    if (!target->readable) {
        return std::optional(found);
    }
    TRY(device.openMemory(target->memory));
    const auto text = [&](uint32_t index) {
        return Introspection::getVarValue(target->memory, target->variable,
                                          static_cast<int>(index));
    };
    if (target->index || !Introspection::isArray(target->memory, target->variable)) {
        found.value = text(target->index.value_or(0));
        return std::optional(found);
    }
    std::string all;
    for (uint32_t index = 0;
         index < Introspection::getElementCount(target->memory, target->variable); ++index) {
        all += (index == 0 ? "[" : ", ") + text(index);
    }
    found.value = all + "]";
    return std::optional(found);
}

// Prints each record as it arrives: "<name> <indexed> <index>" or one JSON
// object per line; with values, the variable and the value it holds.  A
// value that cannot be read ends the watch with its error.
class Printer : public ServerConnection::EventHandler {
public:
    Printer(Device& device, bool json, bool values, unsigned limit)
        : device(device), json(json), values(values), limit(limit) {}

    void handleEvent(const Notify& notify) override {
        if (done()) {
            return;
        }
        Result<std::string> line = values ? withValue(notify) : plain(notify);
        if (!line) {
            failed = line.error();
            return;
        }
        std::printf("%s\n", line->c_str());
        std::fflush(stdout);
        ++seen;
    }

    bool done() const { return failed || (limit != 0 && seen >= limit); }
    unsigned count() const { return seen; }
    // The error that ended the watch, if any.
    const std::optional<Error>& error() const { return failed; }

private:
    // An id beyond the event table has no name: JSON gives null, text the number.
    static bool named(const Notify& notify) { return notify.id < EVENT_ID_COUNT; }

    std::string plain(const Notify& notify) const {
        if (json) {
            return nlohmann::ordered_json(
                       {{"id", notify.id},
                        {"name",
                         named(notify) ? nlohmann::ordered_json(eventName(notify)) : nullptr},
                        {"indexed", notify.indexed},
                        {"index", notify.index}})
                .dump();
        }
        const std::string name = named(notify) ? eventName(notify) : std::to_string(notify.id);
        return name + " " + std::to_string(notify.indexed) + " " + std::to_string(notify.index);
    }

    Result<std::string> withValue(const Notify& notify) const {
        const std::optional<Announced> found = TRY(announced(device, notify));
        if (json) {
            using Json = nlohmann::ordered_json;
            const auto optional = [](const auto& value) {
                return value ? Json(*value) : Json(nullptr);
            };
            return Json({{"event", named(notify) ? Json(eventName(notify)) : Json(nullptr)},
                         {"memory", found ? Json(Introspection::getMemName(found->target.memory))
                                          : Json(nullptr)},
                         {"variable", found ? Json(Introspection::getVarName(
                                                  found->target.memory, found->target.variable))
                                            : Json(nullptr)},
                         {"index", found ? optional(found->target.index) : Json(nullptr)},
                         {"value", found ? optional(found->value) : Json(nullptr)}})
                .dump();
        }
        const std::string name = named(notify) ? eventName(notify) : std::to_string(notify.id);
        if (!found) {
            return name + " (no variable)";
        }
        const EventTarget& target = found->target;
        return name + " " + Introspection::getMemName(target.memory) + "." +
               targetName(target.memory, target.variable, target.index) + " = " +
               found->value.value_or("n/a");
    }

    Device& device;
    bool json;
    bool values;
    unsigned limit;
    unsigned seen = 0;
    std::optional<Error> failed;
};

// Takes the records of a request's wait; only the flag in memory matters.
class Ignore : public ServerConnection::EventHandler {
public:
    void handleEvent(const Notify&) override {}
};

} // namespace

Result<int> postEventCommand(Device& device, const Arguments& arguments) {
    TRY(arguments.expectPositional(1, 1));
    const EventId id = TRY(findEvent(arguments.positional()[0]));
    Notify notify{id, 0, 0};
    if (arguments.value("--index")) {
        notify.indexed = 1;
        notify.index = TRY(arguments.number("--index", 0));
    }
    TRY(device.connectBroker())->postEvent(notify);
    return ExitSuccess;
}

Result<int> watchEvents(Device& device, const Arguments& arguments) {
    std::vector<EventId> events;
    for (const std::string& name : arguments.positional()) {
        events.push_back(TRY(findEvent(name)));
    }
    const unsigned limit = TRY(arguments.number("--count", 0));
    const auto deadline = deadlineAfter(TRY(arguments.number("--timeout", 0)));
    Printer printer(device, arguments.has("--json"), arguments.has("--values"), limit);
    ServerConnection& connection = *TRY(device.connectBroker());
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
    EventPoll& poll = device.eventPoll();
    while (!printer.done() && remainingMs(deadline) != 0) {
        if (poll.wait(remainingMs(deadline)) == EventPoll::Terminate) {
            break;
        }
    }
    if (printer.error()) {
        return *printer.error();
    }
    if (limit != 0 && !printer.done() && deadline) {
        return failure("timed out after " + std::to_string(printer.count()) + " of " +
                       std::to_string(limit) + " events");
    }
    return ExitSuccess;
}

Result<int> runRequest(Device& device, const Arguments& arguments) {
    TRY(arguments.expectPositional(2, 2));
    const uint32_t memory = TRY(findMemory(arguments.positional()[0]));
    const uint32_t variable = TRY(findVariable(memory, arguments.positional()[1]));
    const std::string name = std::string(Introspection::getMemName(memory)) + "." +
                             Introspection::getVarName(memory, variable);
    if (Introspection::getVarBaseType(memory, variable) != BaseBool ||
        Introspection::isArray(memory, variable)) {
        return usageError(name + " is not a request flag (a single bool)");
    }
    const unsigned seconds = TRY(arguments.number("--timeout", 10));
    TRY(device.openMemory(memory));
    Ignore ignore;
    ServerConnection& connection = *TRY(device.connectBroker());
    connection.setEventHandler(&ignore);
    const Notify event = Introspection::getVarEvent(memory, variable);
    connection.subscribe(event);
    const bool setHere = Introspection::getVarValue(memory, variable, 0) != "true";
    if (!setHere) {
        connection.postEvent(event);
    } else if (std::string error = Introspection::setVarValue(memory, variable, "true");
               !error.empty()) {
        return failure(error);
    }
    // A request that nobody served is taken back, so that a server starting
    // later does not act on a request its requester gave up.
    // The broker connection's exceptions on posting the event become the reason.
    const auto giveUp = [&](const std::string& what) {
        if (!setHere) {
            return failure(what + " (it was already set before; left as it is)");
        }
        try {
            Introspection::setVarValue(memory, variable, "false");
        } catch (const std::exception& error) {
            return failure(what +
                           "; memtool set the flag back to false but could not post its "
                           "event: " +
                           errorMessage(error));
        }
        return failure(what + "; memtool set the flag back to false");
    };
    constexpr int CHECK_INTERVAL_MS = 100;
    const auto deadline = deadlineAfter(seconds);
    EventPoll& poll = device.eventPoll();
    while (Introspection::getVarValue(memory, variable, 0) == "true") {
        const int left = remainingMs(deadline);
        if (left == 0) {
            return giveUp(name + " was not cleared within " + std::to_string(seconds) + " s");
        }
        if (poll.wait(left < 0 ? CHECK_INTERVAL_MS : std::min(left, CHECK_INTERVAL_MS)) ==
            EventPoll::Terminate) {
            return giveUp("interrupted before " + name + " was cleared");
        }
    }
    return ExitSuccess;
}
