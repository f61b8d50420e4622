#include "httprequest.h"

#include <algorithm>
#include <cctype>
#include <charconv>

namespace {

constexpr std::string_view LINE_END = "\r\n";
constexpr std::string_view HEAD_END = "\r\n\r\n";

std::string lowerCase(std::string_view text) {
    std::string lower(text);
    std::transform(lower.begin(), lower.end(), lower.begin(),
                   [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
    return lower;
}

std::string_view trimmed(std::string_view text) {
    const size_t start = text.find_first_not_of(" \t");
    if (start == std::string_view::npos) {
        return {};
    }
    return text.substr(start, text.find_last_not_of(" \t") - start + 1);
}

bool isToken(std::string_view text) {
    return !text.empty() && std::all_of(text.begin(), text.end(), [](unsigned char c) {
        return std::isalnum(c) || std::string_view("!#$%&'*+-.^_`|~").find(static_cast<char>(c)) !=
                                      std::string_view::npos;
    });
}

RequestParse refused(int status, std::string reason) {
    RequestParse parse;
    parse.outcome = RequestParse::Refused;
    parse.refusal = {status, std::move(reason)};
    return parse;
}

// Splits the target into decoded path segments and query parameters; false
// when it is no absolute path or holds a bad escape.
bool splitTarget(HttpRequest& request) {
    const std::string_view target = request.target;
    if (target.empty() || target[0] != '/') {
        return false;
    }
    const size_t question = target.find('?');
    const std::string_view path = target.substr(0, question);
    for (size_t start = 1; start <= path.size();) {
        const size_t slash = std::min(path.find('/', start), path.size());
        const std::optional<std::string> segment =
            percentDecode(path.substr(start, slash - start), false);
        if (!segment) {
            return false;
        }
        if (!segment->empty() || slash < path.size()) {
            request.segments.push_back(*segment);
        }
        start = slash + 1;
    }
    if (question == std::string_view::npos) {
        return true;
    }
    std::string_view query = target.substr(question + 1);
    while (!query.empty()) {
        const size_t amp = std::min(query.find('&'), query.size());
        const std::string_view pair = query.substr(0, amp);
        const size_t equals = std::min(pair.find('='), pair.size());
        const auto name = percentDecode(pair.substr(0, equals), true);
        const auto value = percentDecode(equals < pair.size() ? pair.substr(equals + 1) : "", true);
        if (!name || !value) {
            return false;
        }
        request.query.emplace(*name, *value);
        query.remove_prefix(std::min(amp + 1, query.size()));
    }
    return true;
}

} // namespace

std::optional<std::string> HttpRequest::header(const std::string& lowerCaseName) const {
    const auto found = headers.find(lowerCaseName);
    return found == headers.end() ? std::nullopt : std::optional(found->second);
}

std::optional<std::string> HttpRequest::parameter(const std::string& name) const {
    const auto found = query.find(name);
    return found == query.end() ? std::nullopt : std::optional(found->second);
}

std::optional<std::string> percentDecode(std::string_view text, bool plusIsBlank) {
    std::string decoded;
    decoded.reserve(text.size());
    for (size_t i = 0; i < text.size(); ++i) {
        if (text[i] == '%') {
            unsigned byte = 0;
            const char* digits = text.data() + i + 1;
            if (i + 2 >= text.size() ||
                std::from_chars(digits, digits + 2, byte, 16).ptr != digits + 2) {
                return std::nullopt;
            }
            decoded += static_cast<char>(byte);
            i += 2;
        } else if (text[i] == '+' && plusIsBlank) {
            decoded += ' ';
        } else {
            decoded += text[i];
        }
    }
    return decoded;
}

RequestParse parseRequest(std::string_view bytes) {
    const size_t headEnd = bytes.find(HEAD_END);
    if (headEnd == std::string_view::npos) {
        if (bytes.size() >= MAX_HEAD_BYTES) {
            return refused(431, "the request's head is longer than " +
                                    std::to_string(MAX_HEAD_BYTES) + " bytes");
        }
        return {};
    }
    if (headEnd + HEAD_END.size() > MAX_HEAD_BYTES) {
        return refused(431, "the request's head is longer than " + std::to_string(MAX_HEAD_BYTES) +
                                " bytes");
    }
    RequestParse parse;
    HttpRequest& request = parse.request;
    std::string_view head = bytes.substr(0, headEnd + LINE_END.size());

    const size_t lineEnd = head.find(LINE_END);
    const std::string_view line = head.substr(0, lineEnd);
    head.remove_prefix(lineEnd + LINE_END.size());
    const size_t firstBlank = line.find(' ');
    const size_t lastBlank = line.rfind(' ');
    if (firstBlank == std::string_view::npos || firstBlank == lastBlank) {
        return refused(400, "the request line is not METHOD TARGET VERSION");
    }
    request.method = line.substr(0, firstBlank);
    request.target = line.substr(firstBlank + 1, lastBlank - firstBlank - 1);
    const std::string_view version = line.substr(lastBlank + 1);
    if (!isToken(request.method) || (version != "HTTP/1.1" && version != "HTTP/1.0")) {
        return refused(400, "the request line is not METHOD TARGET HTTP/1.x");
    }
    if (!splitTarget(request)) {
        return refused(400, "the target is not a path with valid escapes");
    }

    while (!head.empty()) {
        const size_t end = head.find(LINE_END);
        const std::string_view field = head.substr(0, end);
        head.remove_prefix(end + LINE_END.size());
        const size_t colon = field.find(':');
        if (colon == std::string_view::npos || !isToken(field.substr(0, colon))) {
            return refused(400, "a header line is not NAME: VALUE");
        }
        const std::string name = lowerCase(field.substr(0, colon));
        const std::string value(trimmed(field.substr(colon + 1)));
        const bool added = request.headers.emplace(name, value).second;
        if (!added && (name == "host" || name == "content-length")) {
            return refused(400, "the request has two " + name + " headers");
        }
    }

    if (request.header("transfer-encoding")) {
        return refused(400, "a body must come with Content-Length, not Transfer-Encoding");
    }
    size_t length = 0;
    if (const auto text = request.header("content-length")) {
        const auto [end, error] =
            std::from_chars(text->data(), text->data() + text->size(), length);
        if (error != std::errc() || end != text->data() + text->size()) {
            return refused(400, "Content-Length is not a number");
        }
        if (length > MAX_BODY_BYTES) {
            return refused(413,
                           "the body is longer than " + std::to_string(MAX_BODY_BYTES) + " bytes");
        }
    }
    const size_t bodyStart = headEnd + HEAD_END.size();
    if (bytes.size() - bodyStart < length) {
        return {};
    }
    request.body = bytes.substr(bodyStart, length);

    const std::string connection = lowerCase(request.header("connection").value_or(""));
    request.keepAlive = version == "HTTP/1.1" ? connection.find("close") == std::string::npos
                                              : connection.find("keep-alive") != std::string::npos;
    parse.outcome = RequestParse::Complete;
    parse.consumed = bodyStart + length;
    return parse;
}

const char* statusText(int status) {
    switch (status) {
    case 200:
        return "OK";
    case 400:
        return "Bad Request";
    case 401:
        return "Unauthorized";
    case 403:
        return "Forbidden";
    case 404:
        return "Not Found";
    case 405:
        return "Method Not Allowed";
    case 413:
        return "Content Too Large";
    case 431:
        return "Request Header Fields Too Large";
    case 503:
        return "Service Unavailable";
    default:
        return "Internal Server Error";
    }
}

std::string responseBytes(const HttpResponse& response, bool keepAlive) {
    std::string bytes =
        "HTTP/1.1 " + std::to_string(response.status) + " " + statusText(response.status) + "\r\n";
    bytes += "Content-Type: " + response.contentType + "\r\n";
    if (!response.eventStream) {
        bytes += "Content-Length: " + std::to_string(response.body.size()) + "\r\n";
    }
    bytes += "Cache-Control: no-store\r\nX-Content-Type-Options: nosniff\r\n";
    for (const auto& [name, value] : response.headers) {
        bytes += name + ": " + value + "\r\n";
    }
    bytes += keepAlive ? "Connection: keep-alive\r\n\r\n" : "Connection: close\r\n\r\n";
    bytes += response.body;
    return bytes;
}
