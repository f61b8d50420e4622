#include "inspectoraccess.h"

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <sys/random.h>

namespace {

std::string lowerCase(std::string text) {
    std::transform(text.begin(), text.end(), text.begin(),
                   [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
    return text;
}

bool equalInConstantTime(const std::string& given, const std::string& expected) {
    if (expected.empty()) {
        return false;
    }
    unsigned char difference = given.size() == expected.size() ? 0 : 1;
    for (size_t i = 0; i < given.size(); ++i) {
        difference |= static_cast<unsigned char>(given[i] ^ expected[i % expected.size()]);
    }
    return difference == 0;
}

} // namespace

bool isOwnHost(const std::string& host, const ListenAddress& listening) {
    // NAME or NAME:PORT, where NAME may be a bracketed IPv6 literal.
    std::string name = lowerCase(host);
    const size_t close = name.rfind(']');
    const size_t colon = name.rfind(':');
    if (colon != std::string::npos && (close == std::string::npos || colon > close)) {
        const std::string port = name.substr(colon + 1);
        if (port.empty() || !std::all_of(port.begin(), port.end(), ::isdigit)) {
            return false;
        }
        name.erase(colon);
    }
    if (name == "localhost") {
        return listening.isLoopback() || listening.isWildcard();
    }
    const std::optional<ListenAddress> literal = parseListenAddress(name + ":0");
    if (!literal) {
        return false;
    }
    return listening.isWildcard() || (listening.isLoopback() && literal->isLoopback()) ||
           literal->hostText() == listening.hostText();
}

bool isOwnOrigin(const std::optional<std::string>& origin, const std::string& host) {
    return !origin || lowerCase(*origin) == "http://" + lowerCase(host);
}

bool carriesToken(const HttpRequest& request, const std::string& token) {
    if (const std::optional<std::string> authorization = request.header("authorization")) {
        const std::string scheme = "bearer ";
        if (lowerCase(authorization->substr(0, scheme.size())) == scheme &&
            equalInConstantTime(authorization->substr(scheme.size()), token)) {
            return true;
        }
    }
    const std::optional<std::string> parameter = request.parameter("token");
    return parameter && equalInConstantTime(*parameter, token);
}

Result<std::string> randomToken() {
    unsigned char bytes[16];
    size_t got = 0;
    while (got < sizeof bytes) {
        const ssize_t read = getrandom(bytes + got, sizeof bytes - got, 0);
        if (read == -1 && errno == EINTR) {
            continue;
        }
        if (read <= 0) {
            return failure("cannot make a token: no random numbers from the kernel",
                           read == -1 ? errno : 0);
        }
        got += static_cast<size_t>(read);
    }
    static const char DIGITS[] = "0123456789abcdef";
    std::string token;
    for (const unsigned char byte : bytes) {
        token += DIGITS[byte >> 4];
        token += DIGITS[byte & 15];
    }
    return token;
}
