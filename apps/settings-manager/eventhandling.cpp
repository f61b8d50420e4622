// The broker's notifications: the user interface's requests are served here,
// every other event is a change of a persistent variable.  No exception leaves
// handleEvent: an event that could not be handled is logged and a request is
// answered as refused (see the header's choices).
#include "settingsmanager.h"

#include "flagvariable.h"
#include "log.h"
#include "records.h"

#include <exception>

void SettingsManager::handleEvent(const Notify& notification) {
    try {
        dispatch(notification);
    } catch (const std::exception& error) {
        refuse(notification.id, error.what());
    } catch (...) {
        refuse(notification.id, "unknown error");
    }
}

void SettingsManager::dispatch(const Notify& notification) {
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

void SettingsManager::refuse(EventId event, const char* reason) {
    const char* name = eventName(Notify{event, 0, 0});
    LOG(Error, "Could not handle %s: %s", name, reason);
    try {
        finishRefusedRequest(event);
    } catch (const std::exception& error) {
        LOG(Error, "Could not answer %s: %s", name, error.what());
    }
}

// The flags end as for a request that was checked and turned down.
void SettingsManager::finishRefusedRequest(EventId event) {
    auto& setups = gen::memUserSetups();
    switch (event) {
    case VarFactoryResetChanged:
        setFlag(gen::memGuiLocal().FactoryReset, VarFactoryResetChanged, false);
        break;
    case VarUserSetupAcceptLoadFileNameChanged:
        setFlag(setups.UserSetupAcceptLoadFileName, VarUserSetupAcceptLoadFileNameChanged, false);
        break;
    case VarUserSetupAcceptSaveFileNameChanged:
        setFlag(setups.UserSetupFileCheckDone, VarUserSetupFileCheckDoneChanged, true);
        setFlag(setups.UserSetupAcceptSaveFileName, VarUserSetupAcceptSaveFileNameChanged, false);
        break;
    case VarUserSetupAddNewChanged:
        setFlag(setups.UserSetupAddNew, VarUserSetupAddNewChanged, false);
        break;
    case VarUserSetupRenameChanged:
        setFlag(setups.UserSetupRename, VarUserSetupRenameChanged, false);
        setFlag(setups.UserSetupFileCheckDone, VarUserSetupFileCheckDoneChanged, true);
        break;
    case VarUserSetupOverwriteFileChanged:
        setFlag(setups.UserSetupOverwriteFile, VarUserSetupOverwriteFileChanged, false);
        setFlag(setups.UserSetupFileCheckDone, VarUserSetupFileCheckDoneChanged, true);
        break;
    case VarUserSetupDeleteChanged:
        setFlag(setups.UserSetupDelete, VarUserSetupDeleteChanged, false);
        break;
    default:
        break;
    }
}
