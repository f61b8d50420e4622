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
// - The wait for the readiness semaphore is bounded by READY_WAIT_MS on the
//   monotonic clock (sem_clockwait, so that a clock set at boot cannot stretch
//   it).  A client killed while it held the semaphore never gives it back;
//   after the bound the constructor logs a Warn line and connects without the
//   semaphore, and then does not post it.  A signal during the wait still
//   fails with "sem_wait".
// - Incoming records are reassembled (RecordReader, brokerprotocol.h): a
//   record split across two reads is delivered whole and the later records
//   stay aligned.  Each wake-up still makes one read of at most READ_BATCH
//   records into a batch on the stack.
// - Writes are completed after a short write or EINTR; only a write that
//   fails outright is "Could not send message to server".
// - A failed read is logged at Error ("Read error") and closes the connection
//   as a hang-up does, instead of throwing out of the event loop.
// - A connection that the broker ended (a hang-up or a failed read) tells the
//   handler through connectionLost(); the owner may then call reconnect(),
//   which makes one quiet attempt (nothing is logged while the broker's
//   semaphore does not exist) and, once connected, logs "Connected again".
//   A process that lost its broker thus does not stay deaf for good; the
//   owner subscribes again after a reconnect.
// - A failed socket() is caught where it happens ("socket" and the system's
//   reason), not later at the poll's registration.
// - eventName() of an id outside the event table names EVENT_NAME[Invalid],
//   so that a stray record from a faulty peer is logged instead of read out of
//   bounds.
#pragma once

#include "settings-service/brokerprotocol.h"
#include "settings-service/eventpoll.h"
#include "settings-service/notify.h"

#include <cstddef>
#include <semaphore.h>
#include <span>

class ServerConnection : public EventPoll::Callback {
public:
    // Receiver of the records that arrive on the connection.
    class EventHandler {
    public:
        virtual void handleEvent(const Notify& notify) = 0;
        // The broker ended the connection; it is closed.  close() of the
        // owner does not call it.
        virtual void connectionLost() {}
    };

    // Failed opens of the readiness semaphore after which the constructor gives up.
    static constexpr int MAX_OPEN_ATTEMPTS = 20;
    // Records read by one call of event().
    static constexpr int READ_BATCH = 256;
    // How long close() waits for the broker's last bytes before closing.
    static constexpr int DRAIN_TIMEOUT_MS = 100;
    // How long the constructor waits for the readiness semaphore.
    static constexpr int READY_WAIT_MS = 3000;

    explicit ServerConnection(EventPoll& poll);
    ServerConnection(const ServerConnection&) = delete;
    ServerConnection& operator=(const ServerConnection&) = delete;

    void event(EventType type) override;
    virtual ~ServerConnection();

    void connect();
    void close();
    bool isConnected() const { return fd != -1; }
    // One attempt to connect again after the connection was lost, through the
    // readiness semaphore as at construction; false when the broker is not
    // there (its semaphore missing, or connect failing).  True at once when
    // connected.
    bool reconnect();
    void postEvent(const Notify& notify);
    void subscribe(const Notify& notify);
    // Subscribes each event (not indexed), in order, with one write: the
    // bytes of one subscribe() per event, without a system call for each.
    void subscribeEach(std::span<const EventId> events);
    void subscribeAll();
    void setEventHandler(EventHandler* eventHandler) { handler = eventHandler; }

private:
    // Takes the readiness semaphore `ready` (bounded), connects and gives the
    // semaphore back; closes this process's handle to it in every case.
    void connectThrough(sem_t* ready);
    // close() after the broker ended the connection, and tell the handler.
    void lose();

    EventPoll& poll;
    int fd;
    EventHandler* handler;
    RecordReader reader;
};

// The process's one connection, null when there is none; owned through this pointer.
extern ServerConnection* gServerConnection;

// Posts through gServerConnection; throws when there is no connection.  While a
// PostingSuspended exists it posts nothing.
void postEvent(Notify notify);

// While an object of this class exists, postEvent() posts nothing and needs no
// connection: for a dry run that stores values into a private copy of a memory,
// of whose changes no other process may hear.
class PostingSuspended {
public:
    PostingSuspended();
    ~PostingSuspended();
    PostingSuspended(const PostingSuspended&) = delete;
    PostingSuspended& operator=(const PostingSuspended&) = delete;
};
// One read of up to maxCount records; returns the number of whole records read
// (a trailing part of a record is dropped: the connection reads through a
// RecordReader instead).
int readEvents(int fd, Notify* buffer, int maxCount);
const char* eventName(Notify notify);

namespace gen {
ServerConnection* getServerConnection();
void closeServerConnection();
// Subscribes the service's events (generated with the catalogue) on the
// process's connection; throws when there is none.
void subscribeNotifications();
// The same on `connection`.
void subscribeNotifications(ServerConnection& connection);
} // namespace gen
