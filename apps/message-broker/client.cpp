#include "client.h"

#include "broker.h"

void Client::event(EventType type) {
    broker.serve(*this, type);
}
