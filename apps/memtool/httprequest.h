// HTTP/1.1 requests as the inspector's server reads them from a connection's
// bytes, and the responses it writes.
//
// A request is a request line, header lines and a body of Content-Length
// bytes; nothing else is taken.  The limits keep a client from making the
// server hold much: a head (request line and headers) of at most
// MAX_HEAD_BYTES, a body of at most MAX_BODY_BYTES.  A chunked body, a header
// line without a colon or a folded one, two Host or Content-Length headers
// and a target that is not a path are refused with the status and reason of
// the refusal, after which the server closes the connection.
#pragma once

#include <cstddef>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

struct HttpRequest {
    std::string method;
    std::string target; // as sent: path and query
    // The path's segments after the leading "/", each percent-decoded:
    // "/api/get/MemPersistent/AUXTorque" -> api, get, MemPersistent, AUXTorque.
    std::vector<std::string> segments;
    // The query's parameters, percent-decoded ("+" is a blank); the first of
    // a repeated name counts.
    std::map<std::string, std::string> query;
    // Header names in lower case; values without surrounding blanks.
    std::map<std::string, std::string> headers;
    std::string body;
    bool keepAlive = true;

    std::optional<std::string> header(const std::string& lowerCaseName) const;
    std::optional<std::string> parameter(const std::string& name) const;
};

struct HttpRefusal {
    int status;
    std::string reason;
};

// The result of reading a request from the start of a connection's bytes.
struct RequestParse {
    enum Outcome { Incomplete, Complete, Refused };
    Outcome outcome = Incomplete;
    size_t consumed = 0; // the bytes of a complete request
    HttpRequest request;
    HttpRefusal refusal{};
};

inline constexpr size_t MAX_HEAD_BYTES = 16 * 1024;
inline constexpr size_t MAX_BODY_BYTES = 64 * 1024;

RequestParse parseRequest(std::string_view bytes);

// Percent-decodes `text`; "+" becomes a blank when `plusIsBlank`.  Nullopt for a
// "%" not followed by two hexadecimal digits.
std::optional<std::string> percentDecode(std::string_view text, bool plusIsBlank);

struct HttpResponse {
    HttpResponse() = default;
    HttpResponse(int status, std::string contentType, std::string body)
        : status(status), contentType(std::move(contentType)), body(std::move(body)) {}

    int status = 200;
    std::string contentType = "application/json";
    std::string body;
    // Further header lines, as name and value.
    std::vector<std::pair<std::string, std::string>> headers;
    // An event stream: the head is sent without a length and the connection
    // stays open for the events that follow.
    bool eventStream = false;
};

// The reason phrase of a status code ("OK", "Not Found", ...).
const char* statusText(int status);
// The response's bytes: status line, headers (length, type, no caching,
// no sniffing, the connection's fate) and body.
std::string responseBytes(const HttpResponse& response, bool keepAlive);
