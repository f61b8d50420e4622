// memtool serve: the inspector, a web page of the device's memories, events
// and settings, served with a JSON API (inspectorapi.h) by a small HTTP server
// on memtool's event loop (httpserver.h).
//
// It is a client of the device like any other program: it maps the memories
// that the settings service made and keeps one broker connection, subscribed
// to every event, whose records it passes to the pages' event streams.  Once a
// second it looks after both:
// - A memory whose object was removed or replaced (the service stopped or
//   started again) is unmapped, and mapped again once it is there.
// - A broker connection that ended is made again (one attempt a second, made
//   only while the broker's semaphore exists, so that nothing is logged while
//   there is no broker); an inspector started without a broker connects once
//   one is there.
// After either, the event streams are ended: the pages connect again and read
// the values afresh, since values may have changed without an event.
//
// Choices made here: without --token a token of 32 hexadecimal digits is
// made from the kernel's random numbers, and the page's address with it is the
// first line on standard output; a token given with --token is not printed.
// A token holds printable ASCII characters without blanks.  A listening
// address that is not a loopback one is allowed, with a warning.
#include "commands.h"
#include "device.h"
#include "httpserver.h"
#include "inspectoraccess.h"
#include "inspectorapi.h"
#include "settings-service/brokerlink.h"
#include "settings-service/eventpoll.h"
#include "settings-service/serverconnection.h"

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <memory>
#include <unistd.h>

namespace {

constexpr const char* DEFAULT_LISTEN = "127.0.0.1:8765";

// Passes the broker's records to the event streams and keeps the connection.
class EventRelay : public ServerConnection::EventHandler {
public:
    EventRelay(Device& device, HttpServer& server) : device(device), server(server) {}

    void handleEvent(const Notify& notify) override {
        if (server.streamCount() != 0) {
            server.broadcast(eventMessage(device, notify));
        }
    }

    void connectionLost() override {
        std::fprintf(stderr, "memtool serve: lost the message broker; trying again every second\n");
    }

    // Connects when there is no connection and the broker is there; true when
    // a connection was made.  An error when this user may not use the broker.
    Result<bool> keepConnected() {
        if (!device.brokerConnected()) {
            TRY(requireDeviceAccess(R_OK | W_OK));
        }
        try {
            if (!BrokerLink::keepConnected(
                    device.eventPoll(), this,
                    [](ServerConnection& connection) { connection.subscribeAll(); })) {
                return false;
            }
        } catch (const std::exception& error) {
            std::fprintf(stderr, "memtool serve: %s\n", errorMessage(error).c_str());
            return false;
        }
        std::fprintf(stderr, "memtool serve: connected to the message broker\n");
        return true;
    }

private:
    Device& device;
    HttpServer& server;
};

Result<std::string> checkedToken(const std::optional<std::string>& given) {
    if (!given) {
        return randomToken();
    }
    const bool printable = std::all_of(given->begin(), given->end(),
                                       [](unsigned char c) { return c > ' ' && c < 127; });
    if (given->empty() || !printable) {
        return usageError("--token needs printable characters without blanks");
    }
    return *given;
}

// The address for a browser: a wildcard address is reached through loopback.
std::string pageAddress(const ListenAddress& address) {
    std::string host = address.hostText();
    if (address.isWildcard()) {
        host = address.address.ss_family == AF_INET ? "127.0.0.1" : "[::1]";
    }
    return "http://" + host + ":" + std::to_string(address.port()) + "/";
}

} // namespace

Result<int> serveInspector(Device& device, const Arguments& arguments) {
    TRY(arguments.expectPositional(0, 0));
    const std::string listen = arguments.value("--listen").value_or(DEFAULT_LISTEN);
    const std::optional<ListenAddress> address = parseListenAddress(listen);
    if (!address) {
        return usageError("--listen " + listen +
                          ": give ADDRESS:PORT, e.g. 127.0.0.1:8765, [::1]:8765 or localhost:0");
    }
    const std::optional<std::string> given = arguments.value("--token");
    const std::string token = TRY(checkedToken(given));
    const bool readOnly = arguments.has("--read-only");
    device.mapMemoriesReadOnly(readOnly);
    TRY(requireDeviceAccess(readOnly ? R_OK : R_OK | W_OK));

    EventPoll& poll = device.eventPoll();
    // The access checks compare addresses, not ports: the address as asked for serves.
    const InspectorApi inspector(device, *address, token, readOnly);
    const std::unique_ptr<HttpServer> listening =
        TRY(HttpServer::listen(poll, *address, [&inspector](const HttpRequest& request) {
            return inspector.answer(request);
        }));
    HttpServer& server = *listening;
    EventRelay broker(device, server);
    if (!TRY(broker.keepConnected())) {
        std::fprintf(stderr, "memtool serve: no message broker yet; events follow once it is "
                             "there\n");
    }

    const std::string page = pageAddress(server.address());
    std::printf("%s\n", given ? page.c_str() : (page + "?token=" + token).c_str());
    std::fflush(stdout);
    std::fprintf(stderr, "memtool serve: the inspector listens on %s%s; Ctrl-C ends it\n",
                 server.address().text().c_str(), readOnly ? ", read-only" : "");
    if (!server.address().isLoopback()) {
        std::fprintf(stderr,
                     "memtool serve: %s is not a loopback address: whoever reaches it "
                     "and has the token can use the inspector\n",
                     server.address().text().c_str());
    }

    using Clock = std::chrono::steady_clock;
    Clock::time_point nextTick = Clock::now() + std::chrono::seconds(1);
    for (;;) {
        const auto left =
            std::chrono::duration_cast<std::chrono::milliseconds>(nextTick - Clock::now());
        if (poll.wait(static_cast<int>(std::max<int64_t>(left.count(), 0))) ==
            EventPoll::Terminate) {
            break;
        }
        if (Clock::now() < nextTick) {
            continue;
        }
        nextTick = Clock::now() + std::chrono::seconds(1);
        server.tick();
        const bool reconnected = TRY(broker.keepConnected());
        if (device.refreshMemories() || reconnected) {
            server.endStreams();
        }
    }
    std::fprintf(stderr, "memtool serve: stopped\n");
    return ExitSuccess;
}
