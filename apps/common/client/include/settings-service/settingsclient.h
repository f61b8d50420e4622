// A program of the device as a client of the settings service: the memories that the service made,
// opened as they are (never created, never reset: no gen::init), checked to come from the
// catalogue this program was built with, and the message broker.
//
// - Catalogue: the service publishes the fingerprint of its catalogue beside the memories
//   (gen::publishCatalogueFingerprint, settings-service/memories.h); the client compares it with
//   its own before it maps anything and refuses memories of another catalogue, whose record sizes
//   may well match, with a ClientError that says so.
// - Signals: nothing of this library installs a signal handler. The client's event loop is an
//   EventPoll with Signals::LeaveAlone; a program that wants SIGINT and SIGTERM to end its loop
//   (EventPoll::shouldTerminate, wait() answering Terminate) calls EventPoll::handleSignals().
// - Log: the library's log lines go through a level of the client's own (Options::logLevel, Warn
//   unless given), not the service's level in its memory.
// - Restarts: keepUp(), called now and then (once a second suits), maps again the memories that a
//   restarted service made anew, once their fingerprint is there and is this catalogue's (until
//   then they stay unmapped and the getters answer "n/a"), and makes the broker connection again
//   with the client's subscriptions when the broker restarted.
// - Access: a user outside the daemons' group is refused the memories and the broker (EACCES),
//   for good. The constructor and keepUp() then throw AccessRefused (deviceaccess.h), and keepUp()
//   tries nothing more after that: every later call throws the same AccessRefused at once, so a
//   program reports it instead of waiting for a service that it may never use.
#pragma once

#include "settings-service/brokerlink.h"
#include "settings-service/clienterror.h"
#include "settings-service/eventpoll.h"
#include "settings-service/log.h"
#include "settings-service/mappedmemories.h"
#include "settings-service/notify.h"
#include "settings-service/serverconnection.h"

#include <optional>
#include <string>
#include <vector>

// The fingerprint that the memories' owner published; nothing when it published none.
std::optional<std::string> publishedCatalogueFingerprint();
// Throws ClientError unless the published fingerprint is this program's catalogue's.
void checkCatalogueFingerprint();

class SettingsClient {
public:
    struct Options {
        gen::LogLevel logLevel = gen::Warn;
        // Map the memories read-only: the setters then cannot be used.
        bool readOnly = false;
    };

    // Checks the catalogue, maps every memory and connects to the broker; throws ClientError when
    // the service or the broker is not there or the memories are another catalogue's, and
    // AccessRefused when this user may not use them.
    explicit SettingsClient(Options options);
    // Closes the broker connection and unmaps the memories.
    ~SettingsClient();
    SettingsClient(const SettingsClient&) = delete;
    SettingsClient& operator=(const SettingsClient&) = delete;

    EventPoll& poll() { return eventPoll; }
    // Subscribes `event` now and on every later connection.
    void subscribe(EventId event);
    // Receives the events of the subscriptions, and the loss of the connection.
    void setEventHandler(ServerConnection::EventHandler* eventHandler);
    // Follows a restarted service and a restarted broker; true when memories were mapped anew or
    // the broker connection was made again, after which values may have changed without an event.
    // Throws ClientError when the memories now come from another catalogue, and AccessRefused when
    // this user may not use the memories or the broker: from then on, without trying again.
    bool keepUp();
    // The client's own log level.
    gen::LogLevel& logLevel() { return level; }

private:
    void subscribeAll(ServerConnection& connection) const;
    bool followRestarts();

    gen::LogLevel level;
    gen::LogLevel* previousLevel;
    EventPoll eventPoll;
    MappedMemories memories;
    std::vector<EventId> subscriptions;
    ServerConnection::EventHandler* handler = nullptr;
    // The memories as mapped were checked against the published fingerprint.
    bool verified = false;
    // This user was refused the memories or the broker: nothing is tried again.
    std::optional<AccessRefused> refused;
};
