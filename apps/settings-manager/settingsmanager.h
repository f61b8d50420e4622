// The settings service: owns the persistence of the device's settings.
//
// One object of this class lives for the whole process.  The entry point
// constructs it, runs init(), runs doWork() while start-up succeeded, and
// always ends with close().  All work happens on one thread inside the
// callbacks that the process's EventPoll dispatches.
#pragma once

#include <chrono>
#include <cstdint>
#include <sstream>
#include <string>

class SettingsManager {
public:
    SettingsManager();
    virtual ~SettingsManager();
    SettingsManager(const SettingsManager&) = delete;
    SettingsManager& operator=(const SettingsManager&) = delete;

    // Start-up; false when the settings folder could not be created.
    bool init();
    // The event loop; returns EventPoll::Terminate after SIGINT or SIGTERM.
    int doWork();
    // Shutdown: closes the broker connection; returns true.
    bool close();

    const std::string& settingsFolder() const { return settingsPath; }

private:
    void signalReadiness();

    std::chrono::steady_clock::time_point lastSaveCheck;
    uint32_t persistentMemoryIndex = 0;
    std::stringstream defaults;
    std::string productName;
    std::string productVersion;
    std::string settingsPath;
    bool dirty = false;
    bool renamePending = false;
};
