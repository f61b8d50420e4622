#include "inspectorapi.h"

#include "assignment.h"
#include "cli.h"
#include "eventtarget.h"
#include "inspectoraccess.h"
#include "inspectorpage.h"
#include "jsonvalue.h"
#include "listing.h"
#include "names.h"
#include "program.h"
#include "settings-service/introspection.h"
#include "settings-service/serverconnection.h"

#include <algorithm>
#include <array>

namespace {

std::string jsonText(const Ordered& value) {
    return value.dump(-1, ' ', false, nlohmann::detail::error_handler_t::replace);
}

HttpResponse json(const Ordered& value) {
    return {200, "application/json", jsonText(value)};
}

HttpResponse text(int status, const std::string& body) {
    return {status, "text/plain; charset=utf-8", body};
}

Result<std::optional<uint32_t>> indexOf(const HttpRequest& request, uint32_t memory,
                                        uint32_t variable) {
    const std::optional<std::string> index = request.parameter("index");
    if (!index) {
        return std::optional<uint32_t>();
    }
    return std::optional(TRY(elementIndex(memory, variable, *index)));
}

// The value of a variable of the catalogue, named as in the catalogue.
Result<Ordered> namedValue(Device& device, const char* memoryName, const char* variableName) {
    const uint32_t memory = TRY(findMemory(memoryName));
    const uint32_t variable = TRY(findVariable(memory, variableName));
    TRY(device.openMemory(memory));
    return valueJson(memory, variable, std::nullopt);
}

Result<Ordered> setupNames(Device& device) {
    const Ordered size = TRY(namedValue(device, "MemUserSetups", "UserSetupListSize"));
    const Ordered list = TRY(namedValue(device, "MemUserSetups", "UserSetupList"));
    const auto count = static_cast<size_t>(
        std::clamp<int64_t>(size.get<int64_t>(), 0, static_cast<int64_t>(list.size())));
    Ordered names = Ordered::array();
    for (size_t i = 0; i < count; ++i) {
        names.push_back(list[i]["UserSetupFileName"]["value"]);
    }
    return names;
}

Result<Ordered> identity(Device& device) {
    constexpr std::array<std::array<const char*, 3>, 5> FIELDS = {{
        {"board", "MemPersistent", "ProductName"},
        {"serial", "MemStatic", "ProductSerial"},
        {"revision", "MemStatic", "ProductRevision"},
        {"version", "MemPersistent", "ProductVersion"},
        {"commit", "MemStatic", "ProductLastCommit"},
    }};
    Ordered fields = Ordered::object();
    for (const auto& [key, memory, variable] : FIELDS) {
        fields[key] = TRY(namedValue(device, memory, variable));
    }
    return fields;
}

Result<Ordered> memoryValues(Device& device, uint32_t memory) {
    TRY(device.openMemory(memory));
    Ordered values = Ordered::object();
    for (uint32_t variable = 0; variable < Introspection::getVarCount(memory); ++variable) {
        values[Introspection::getVarName(memory, variable)] =
            valueJson(memory, variable, std::nullopt);
    }
    return values;
}

Result<HttpResponse> setValue(Device& device, const HttpRequest& request, uint32_t memory,
                              uint32_t variable) {
    const std::optional<uint32_t> index = TRY(indexOf(request, memory, variable));
    const Assignment assignment =
        TRY(assignmentFor(memory, {variable, index}, request.body, "give the element as ?index=N"));
    TRY(device.openMemory(memory));
    TRY(checkAssignments({assignment}));
    if (!device.brokerConnected()) {
        return failure("the message broker is not connected, so the change could not be "
                       "announced; nothing stored");
    }
    TRY(store(assignment));
    return json({{"value", valueJson(memory, variable, assignment.index)}});
}

// The routes: the name after /api/, the method and the number of names after it.
struct Route {
    const char* name;
    const char* method;
    size_t names;
};

constexpr Route ROUTES[] = {
    {"memories", "GET", 0}, {"vars", "GET", 1},   {"describe", "GET", 2},
    {"values", "GET", 1},   {"get", "GET", 2},    {"set", "POST", 2},
    {"events", "GET", 0},   {"setups", "GET", 0}, {"identity", "GET", 0},
};

} // namespace

HttpResponse InspectorApi::answer(const HttpRequest& request) const {
    const std::string host = request.header("host").value_or("");
    if (!isOwnHost(host, listening) || !isOwnOrigin(request.header("origin"), host)) {
        return text(403, "refused: the request names another host or comes from another "
                         "site's page");
    }
    if (!carriesToken(request, token)) {
        return text(401, "no or wrong token: open the address that memtool serve printed, or "
                         "send the header \"Authorization: Bearer TOKEN\"");
    }
    // A refused request (a usage error) and an operation that failed answer
    // 400; the infrastructure's exceptions, which memtool did not foresee, 500.
    try {
        const Result<HttpResponse> response = route(request);
        return response.ok() ? *response : text(400, response.error().text);
    } catch (const std::exception& error) {
        return text(500, errorMessage(error));
    }
}

Result<HttpResponse> InspectorApi::route(const HttpRequest& request) const {
    const std::vector<std::string>& names = request.segments;
    if (names.empty() || (names.size() == 1 && names[0] == "index.html")) {
        if (request.method != "GET") {
            HttpResponse refusal = text(405, "the page is only read (GET)");
            refusal.headers.emplace_back("Allow", "GET");
            return refusal;
        }
        return page();
    }
    const Route* found = nullptr;
    if (names.size() >= 2 && names[0] == "api") {
        for (const Route& route : ROUTES) {
            if (names[1] == route.name && names.size() == route.names + 2) {
                found = &route;
            }
        }
    }
    if (found == nullptr) {
        return text(404, "no such page: " + request.target.substr(0, request.target.find('?')));
    }
    if (request.method != found->method) {
        HttpResponse refusal =
            text(405, std::string("/api/") + found->name + " takes " + found->method + " requests");
        refusal.headers.emplace_back("Allow", found->method);
        return refusal;
    }
    const std::string what = found->name;
    if (what == "memories") {
        return json(memoriesJson(device));
    }
    if (what == "events") {
        HttpResponse stream{200, "text/event-stream", "retry: 1000\n\n"};
        stream.eventStream = true;
        return stream;
    }
    if (what == "setups") {
        return json(TRY(setupNames(device)));
    }
    if (what == "identity") {
        return json(TRY(identity(device)));
    }
    // A memory or variable that the catalogue does not have is not found (404).
    const Result<uint32_t> memory = findMemory(names[2]);
    if (!memory) {
        return text(404, memory.error().text);
    }
    if (what == "vars") {
        return json(variablesJson(*memory));
    }
    if (what == "values") {
        return json(TRY(memoryValues(device, *memory)));
    }
    const Result<uint32_t> variable = findVariable(*memory, names[3]);
    if (!variable) {
        return text(404, variable.error().text);
    }
    if (what == "describe") {
        return json(describeJson(*memory, *variable));
    }
    if (what == "get") {
        const std::optional<uint32_t> index = TRY(indexOf(request, *memory, *variable));
        TRY(device.openMemory(*memory));
        return json({{"value", valueJson(*memory, *variable, index)}});
    }
    if (readOnly) {
        return text(403, "refused: this inspector is read-only (memtool serve --read-only)");
    }
    return setValue(device, request, *memory, *variable);
}

HttpResponse InspectorApi::page() const {
    HttpResponse response{200, "text/html; charset=utf-8", std::string(INSPECTOR_PAGE)};
    if (readOnly) {
        const std::string mark = "data-read-only=\"false\"";
        const size_t at = response.body.find(mark);
        if (at != std::string::npos) {
            response.body.replace(at, mark.size(), "data-read-only=\"true\"");
        }
    }
    response.headers = {{"Content-Security-Policy", std::string(INSPECTOR_PAGE_POLICY)},
                        {"Referrer-Policy", "no-referrer"},
                        {"X-Frame-Options", "DENY"}};
    return response;
}

std::string eventMessage(Device& device, const Notify& notify) {
    const std::optional<EventTarget> target = eventTarget(device, notify);
    Ordered message = {
        {"event", notify.id < EVENT_ID_COUNT ? Ordered(eventName(notify)) : Ordered(nullptr)},
        {"memory", nullptr},
        {"variable", nullptr},
        {"index", nullptr},
        {"value", nullptr}};
    if (target) {
        message["memory"] = Introspection::getMemName(target->memory);
        message["variable"] = Introspection::getVarName(target->memory, target->variable);
        if (target->index) {
            message["index"] = *target->index;
        }
        // A memory that went away between the look and the read gives no value.
        if (target->readable && device.openMemory(target->memory).ok()) {
            try {
                message["value"] = valueJson(target->memory, target->variable, target->index);
            } catch (const std::exception&) {
                // A value that cannot be written as JSON: no value either.
            }
        }
    }
    return "data: " + jsonText(message) + "\n\n";
}
