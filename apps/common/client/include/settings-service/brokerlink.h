// A client's connection to the message broker, kept across restarts of the broker.
//
// The connection is gServerConnection, through which the catalogue's setters announce the changes
// they make. keepConnected() is called now and then (once a second suits): a connection that the
// broker ended is made again, one quiet attempt per call, made only while the broker's semaphore
// and socket exist, so that nothing is logged while there is no broker; the subscriptions are made
// anew on every new connection.
#pragma once

#include "settings-service/eventpoll.h"
#include "settings-service/serverconnection.h"

#include <functional>
#include <string>

namespace BrokerLink {

// The file of the broker's readiness semaphore.
std::string semaphorePath();
// True when the broker is there: its readiness semaphore and its socket exist.
bool brokerPresent();
// Connects gServerConnection through `poll` when there is no connection object yet; throws
// ClientError "cannot connect to the message broker: ... (is the message broker running?)".
ServerConnection& connect(EventPoll& poll);
// Connects (connect()) or reconnects gServerConnection when it is not connected and the broker is
// there, gives it `handler` and calls `subscribe` with it; true when a connection was made.
// Throws what connect() and `subscribe` throw.
bool keepConnected(EventPoll& poll, ServerConnection::EventHandler* handler,
                   const std::function<void(ServerConnection&)>& subscribe);

} // namespace BrokerLink
