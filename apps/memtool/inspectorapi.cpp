#include "inspectorapi.h"

#include "assignment.h"
#include "cli.h"
#include "device.h"
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
#include <stdexcept>

namespace {

// A memory or variable that the catalogue does not have.
class NotFound : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

std::string jsonText(const Ordered& value) {
    return value.dump(-1, ' ', false, nlohmann::detail::error_handler_t::replace);
}

HttpResponse json(const Ordered& value) {
    return {200, "application/json", jsonText(value)};
}

HttpResponse text(int status, const std::string& body) {
    return {status, "text/plain; charset=utf-8", body};
}

uint32_t memoryNamed(const std::string& name) {
    try {
        return findMemory(name);
    } catch (const UsageError& error) {
        throw NotFound(error.what());
    }
}

uint32_t variableNamed(uint32_t memory, const std::string& name) {
    try {
        return findVariable(memory, name);
    } catch (const UsageError& error) {
        throw NotFound(error.what());
    }
}

std::optional<uint32_t> indexOf(const HttpRequest& request, uint32_t memory, uint32_t variable) {
    const std::optional<std::string> index = request.parameter("index");
    return index ? std::optional(elementIndex(memory, variable, *index)) : std::nullopt;
}

// The value of a variable of the catalogue, named as in the catalogue.
Ordered namedValue(const char* memoryName, const char* variableName) {
    const uint32_t memory = findMemory(memoryName);
    const uint32_t variable = findVariable(memory, variableName);
    openMemory(memory);
    return valueJson(memory, variable, std::nullopt);
}

Ordered setupNames() {
    const Ordered size = namedValue("MemUserSetups", "UserSetupListSize");
    const Ordered list = namedValue("MemUserSetups", "UserSetupList");
    const auto count = static_cast<size_t>(
        std::clamp<int64_t>(size.get<int64_t>(), 0, static_cast<int64_t>(list.size())));
    Ordered names = Ordered::array();
    for (size_t i = 0; i < count; ++i) {
        names.push_back(list[i]["UserSetupFileName"]["value"]);
    }
    return names;
}

Ordered identity() {
    return {{"board", namedValue("MemPersistent", "ProductName")},
            {"serial", namedValue("MemStatic", "ProductSerial")},
            {"revision", namedValue("MemStatic", "ProductRevision")},
            {"version", namedValue("MemPersistent", "ProductVersion")},
            {"commit", namedValue("MemStatic", "ProductLastCommit")}};
}

Ordered memoryValues(uint32_t memory) {
    openMemory(memory);
    Ordered values = Ordered::object();
    for (uint32_t variable = 0; variable < Introspection::getVarCount(memory); ++variable) {
        values[Introspection::getVarName(memory, variable)] =
            valueJson(memory, variable, std::nullopt);
    }
    return values;
}

HttpResponse setValue(const HttpRequest& request, uint32_t memory, uint32_t variable) {
    const Assignment assignment =
        assignmentFor(memory, {variable, indexOf(request, memory, variable)}, request.body,
                      "give the element as ?index=N");
    openMemory(memory);
    checkAssignments({assignment});
    if (gServerConnection == nullptr || !gServerConnection->isConnected()) {
        throw Failure("the message broker is not connected, so the change could not be "
                      "announced; nothing stored");
    }
    store(assignment);
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
    try {
        return route(request);
    } catch (const NotFound& error) {
        return text(404, error.what());
    } catch (const UsageError& error) {
        return text(400, error.what());
    } catch (const Failure& error) {
        return text(400, error.what());
    } catch (const std::exception& error) {
        return text(500, errorMessage(error));
    }
}

HttpResponse InspectorApi::route(const HttpRequest& request) const {
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
        return json(memoriesJson());
    }
    if (what == "events") {
        HttpResponse stream{200, "text/event-stream", "retry: 1000\n\n"};
        stream.eventStream = true;
        return stream;
    }
    if (what == "setups") {
        return json(setupNames());
    }
    if (what == "identity") {
        return json(identity());
    }
    const uint32_t memory = memoryNamed(names[2]);
    if (what == "vars") {
        return json(variablesJson(memory));
    }
    if (what == "values") {
        return json(memoryValues(memory));
    }
    const uint32_t variable = variableNamed(memory, names[3]);
    if (what == "describe") {
        return json(describeJson(memory, variable));
    }
    if (what == "get") {
        const std::optional<uint32_t> index = indexOf(request, memory, variable);
        openMemory(memory);
        return json({{"value", valueJson(memory, variable, index)}});
    }
    if (readOnly) {
        return text(403, "refused: this inspector is read-only (memtool serve --read-only)");
    }
    return setValue(request, memory, variable);
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

std::string eventMessage(const Notify& notify) {
    const std::optional<EventTarget> target = eventTarget(notify);
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
        if (target->readable) {
            try {
                openMemory(target->memory);
                message["value"] = valueJson(target->memory, target->variable, target->index);
            } catch (const std::exception&) {
                // The memory went away between the look and the read: no value.
            }
        }
    }
    return "data: " + jsonText(message) + "\n\n";
}
