// The answers of `memtool serve`: the inspector's page and its JSON API.
//
// Every request is checked first (inspectoraccess.h): 403 when it names
// another host or comes from another page's origin, 401 without the token.
// Then the routes, each a memtool command's own output:
//   GET  /                          the page
//   GET  /api/memories              `memories --json`
//   GET  /api/vars/MEMORY           `vars MEMORY --json`
//   GET  /api/describe/MEMORY/VAR   `describe MEMORY VAR --json`
//   GET  /api/values/MEMORY         every variable and its value, one object
//   GET  /api/get/MEMORY/VAR        {"value": ...}; ?index=N for one element
//   POST /api/set/MEMORY/VAR        the body is the value text, checked and
//                                   stored as `set` does; ?index=N an element
//   GET  /api/events                server-sent events, one per broker record
//   GET  /api/setups                the listed user-setup file names
//   GET  /api/identity              board, serial, revision, version, commit
// Values are typed JSON as `get --json` prints them, in every route and in
// the events; an array without an index is the whole array.
//
// Status codes: 200 done; 400 refused, the body being memtool's reason (a
// value out of range, a memory that does not exist, no broker to announce a
// change to); 401 no or wrong token; 403 a foreign host or origin, or a set on
// a read-only inspector; 404 an unknown memory, variable or route; 405 a route
// asked with another method; 500 an error that memtool did not foresee.
// Errors are plain text; everything else is JSON.
//
// Choices made here: a set answers with the value now stored, as `get`
// prints it.  Texts in the memories that are not UTF-8 reach JSON with
// U+FFFD in place of each bad byte, so that an answer is always JSON.
#pragma once

#include "device.h"
#include "httprequest.h"
#include "httpserver.h"
#include "result.h"
#include "settings-service/notify.h"

#include <string>

class InspectorApi {
public:
    InspectorApi(Device& device, const ListenAddress& listening, std::string token, bool readOnly)
        : device(device), listening(listening), token(std::move(token)), readOnly(readOnly) {}

    HttpResponse answer(const HttpRequest& request) const;

private:
    Result<HttpResponse> route(const HttpRequest& request) const;
    HttpResponse page() const;

    Device& device;
    ListenAddress listening;
    std::string token;
    bool readOnly;
};

// The event-stream message of one broker record: "data: " and the JSON
// object with the keys event, memory, variable, index and value, then a
// blank line.
std::string eventMessage(Device& device, const Notify& notify);
