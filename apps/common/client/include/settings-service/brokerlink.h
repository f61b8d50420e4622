// A client's connection to the message broker, kept across restarts of the broker.
//
// The connection is gServerConnection, through which the catalogue's setters announce the changes
// they make. keepConnected() is called now and then (once a second suits): a connection that the
// broker ended is made again, one quiet attempt per call, made only while the broker's semaphore
// and socket exist, so that nothing is logged while there is no broker; the subscriptions are made
// anew on every new connection.
//
// A broker that this user may not use (EACCES on its semaphore or socket: the user is not in the
// daemons' group) is no passing state: connect() and keepConnected() throw AccessRefused
// (deviceaccess.h) for it instead of failing quietly, and a caller stops trying on it.
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
// AccessRefused when this user may not use the broker's semaphore or socket, otherwise
// ClientError "cannot connect to the message broker: ... (is the message broker running?)".
ServerConnection& connect(EventPoll& poll);
// Connects (connect()) or reconnects gServerConnection when it is not connected and the broker is
// there, gives it `handler` and calls `subscribe` with it; true when a connection was made.
// Throws what connect() and `subscribe` throw, and AccessRefused when an attempt failed because
// this user may not use the broker: the caller reports it and calls no more.
bool keepConnected(EventPoll& poll, ServerConnection::EventHandler* handler,
                   const std::function<void(ServerConnection&)>& subscribe);

} // namespace BrokerLink
