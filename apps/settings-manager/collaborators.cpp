#include "collaborators.h"

#include "settings-service/introspection.h"

ServiceMemories ServiceMemories::ofProcess() {
    return ServiceMemories{gen::memPersistent(), gen::memStatic(),
                           gen::memUserSetups(), gen::memDeviceState(),
                           gen::memGuiLocal(),   Introspection::getMemIndex("MemPersistent")};
}

Clocks Clocks::system() {
    return Clocks{[] { return std::time(nullptr); },
                  [] { return std::chrono::steady_clock::now(); }};
}
