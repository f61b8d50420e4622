#include "collaborators.h"

#include "settings-service/introspection.h"

ServiceMemories ServiceMemories::ofProcess() {
    return ServiceMemories{gen::memPersistent(), gen::memStatic(),
                           gen::memUserSetups(), gen::memDeviceState(),
                           gen::memGuiLocal(),   Introspection::getMemIndex("MemPersistent")};
}

BrokerLink BrokerLink::ofProcess() {
    return BrokerLink{[](const Notify& notify) { postEvent(notify); },
                      [] { gen::subscribeNotifications(); }};
}

BrokerLink BrokerLink::of(ServerConnection& connection) {
    return BrokerLink{[&connection](const Notify& notify) { connection.postEvent(notify); },
                      [&connection] { gen::subscribeNotifications(connection); }};
}

Clocks Clocks::system() {
    return Clocks{[] { return std::time(nullptr); },
                  [] { return std::chrono::steady_clock::now(); }};
}
