// The start-up that the introspection tests share: the broker double, then the
// catalogue's own start-up (memories with their defaults, the connection and
// its subscriptions).  The subscriptions are read off before the first test,
// so `brokerPeer().received()` returns exactly what a test posted.
#pragma once

#include "brokerdouble.h"

BrokerDouble& brokerPeer();
