// The process's connection to the message broker.
//
// The broker is a separate process reached over a UNIX-domain stream socket.
// Records travel as bare 12-byte Notify values; a subscription is the command
// record {Subscribe, 0, 0} immediately followed by the record to subscribe to.
// The constructor waits for the broker's readiness semaphore, which lets one
// client at a time set up its connection, then connects and registers the
// socket with the process's EventPoll.  Incoming records are read in batches
// and handed to the installed EventHandler.
//
// Choices made here:
// - When connect() fails inside the constructor, the readiness semaphore is
//   posted again before the error propagates, so that one failing client does
//   not keep every later client of the device waiting for ever.
// - eventName() of an id outside the event table names EVENT_NAME[Invalid],
//   so that a stray record from a faulty peer is logged instead of read out of
//   bounds.
#pragma once

#include "eventpoll.h"
#include "notify.h"

#include <sys/un.h>

class ServerConnection : public EventPoll::Callback {
public:
    // Receiver of the records that arrive on the connection.
    class EventHandler {
    public:
        virtual void handleEvent(const Notify& notify) = 0;
    };

    static constexpr const char* SOCKET_PATH = "/var/volatile/message-broker.socket";
    static constexpr const char* READY_SEMAPHORE = "/message-broker-ready";
    // Failed opens of the readiness semaphore after which the constructor gives up.
    static constexpr int MAX_OPEN_ATTEMPTS = 20;
    // Records read by one call of event().
    static constexpr int READ_BATCH = 256;
    // How long close() waits for the broker's last bytes before closing.
    static constexpr int DRAIN_TIMEOUT_MS = 100;

    // The broker's address: SOCKET_PATH, the rest of the path field zeroed.
    static sockaddr_un address();

    explicit ServerConnection(EventPoll& poll);
    ServerConnection(const ServerConnection&) = delete;
    ServerConnection& operator=(const ServerConnection&) = delete;

    void event(EventType type) override;
    virtual ~ServerConnection();

    void connect();
    void close();
    void postEvent(const Notify& notify);
    void subscribe(const Notify& notify);
    void subscribeAll();
    void setEventHandler(EventHandler* eventHandler) { handler = eventHandler; }

private:
    EventPoll& poll;
    int fd;
    EventHandler* handler;
};

// The process's one connection, null when there is none; owned through this pointer.
extern ServerConnection* gServerConnection;

// Posts through gServerConnection; throws when there is no connection.
void postEvent(Notify notify);
// One read of up to maxCount records; returns the number of whole records read.
int readEvents(int fd, Notify* buffer, int maxCount);
const char* eventName(Notify notify);

namespace gen {
ServerConnection* getServerConnection();
void closeServerConnection();
// Subscribes the service's events (generated with the catalogue).
void subscribeNotifications();
} // namespace gen
