// What the service's classes use of the device besides the settings folder,
// handed to each of them when it is built: the memories they read and write,
// the clocks they read, and the broker link they post their own events on.
//
// SettingsManager, the service's top object, builds them from the process's
// globals once gen::init has run (gen::mem*(), gen::getServerConnection(),
// gen::getEventPoll()); the entry point hands it the event loop and the
// clocks.  A unit test builds a class with stand-ins instead: the broker
// double's connection, the test process's memories, clocks that it sets.
//
// The catalogue's converters and setVariable post on the process's connection
// (gServerConnection) as the catalogue defines them; the service wires that
// connection and the one it hands its classes to the same object, and so do
// the tests.
#pragma once

#include "settings-service/notify.h"
#include "settings-service/records.h"
#include "settings-service/serverconnection.h"

#include <chrono>
#include <cstdint>
#include <ctime>
#include <functional>

// The memories the service's classes read and write.
struct ServiceMemories {
    gen::MemPersistentRecord& persistent;
    gen::MemStaticRecord& statics;
    gen::MemUserSetupsRecord& userSetups;
    gen::MemDeviceStateRecord& deviceState;
    gen::MemGuiLocalRecord& guiLocal;
    // The catalogue's index of MemPersistent, whose variables make a settings
    // document.
    uint32_t persistentIndex;

    // The memories this process mapped (gen::init or gen::initMemories).
    static ServiceMemories ofProcess();
};

// The broker connection as the service's classes use it: posting an event,
// and subscribing the service's events again after an unsubscribe-all.
struct BrokerLink {
    std::function<void(const Notify&)> post;
    std::function<void()> subscribe;

    // The process's connection as it is at each call (postEvent,
    // gen::subscribeNotifications): once it is closed, a post fails as
    // postEvent fails, never on a connection that is gone.
    static BrokerLink ofProcess();
    // `connection`, which outlives the link.
    static BrokerLink of(ServerConnection& connection);
};

// The clocks the service reads.
struct Clocks {
    // The wall clock: a new user setup's proposed name.
    std::function<std::time_t()> wall;
    // The steady clock: the once-a-second paces of the loop.
    std::function<std::chrono::steady_clock::time_point()> steady;

    // The system's clocks.
    static Clocks system();
};
