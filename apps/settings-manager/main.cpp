#include "settingsmanager.h"

#include <cstdlib>

int main() {
    SettingsManager manager;
    if (manager.init()) {
        manager.doWork();
    }
    manager.close();
    std::exit(0);
}
