// The broker's notifications: the user interface's requests are served here,
// every other event is a change of a persistent variable.
#include "settingsmanager.h"

void SettingsManager::handleEvent(const Notify& notification) {
    switch (notification.id) {
    case VarFactoryResetChanged:
        factoryReset();
        break;
    case VarUserSetupAcceptLoadFileNameChanged:
        loadUserSetup();
        break;
    case VarUserSetupAcceptSaveFileNameChanged:
        saveUserSetup();
        break;
    case VarUserSetupAddNewChanged:
        proposeNewUserSetup();
        break;
    case VarUserSetupRenameChanged:
        renameUserSetup();
        break;
    case VarUserSetupOverwriteFileChanged:
        overwriteUserSetup();
        break;
    case VarUserSetupDeleteChanged:
        deleteUserSetup();
        break;
    default:
        addUpdate(notification.id);
        break;
    }
}
