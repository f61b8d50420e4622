// The broker's notifications: the user interface's requests are served here,
// every other event is a change of a persistent variable.  A request handler
// reports a request it cannot carry out as a reason; it is logged here and the
// request answered as refused.  An exception of a library call is turned into
// such a reason here, so none leaves handleEvent.
#include "settingsmanager.h"

#include "flagvariable.h"
#include "settings-service/log.h"

#include <exception>

namespace {

// The user-setup requests: the event whose flag asks for one, and its handler.
struct UserSetupRequest {
    EventId event;
    Result<void> (UserSetups::*serve)();
};

constexpr UserSetupRequest USER_SETUP_REQUESTS[] = {
    {VarUserSetupAcceptLoadFileNameChanged, &UserSetups::load},
    {VarUserSetupAcceptSaveFileNameChanged, &UserSetups::save},
    {VarUserSetupAddNewChanged, &UserSetups::proposeNew},
    {VarUserSetupRenameChanged, &UserSetups::rename},
    {VarUserSetupOverwriteFileChanged, &UserSetups::overwrite},
    {VarUserSetupDeleteChanged, &UserSetups::remove},
};

} // namespace

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
    if (notification.id == VarFactoryResetChanged) {
        loader.factoryReset([this] { userSetups.removeAll(); });
        return;
    }
    for (const UserSetupRequest& request : USER_SETUP_REQUESTS) {
        if (request.event == notification.id) {
            if (const Result<void> served = (userSetups.*request.serve)(); !served) {
                refuse(notification.id, served.error().text.c_str());
            }
            return;
        }
    }
    addUpdate(notification.id);
}

// Each handler acts only when its flag is set, so every request is offered.
void SettingsManager::servePendingRequests() {
    handleEvent(Notify{VarFactoryResetChanged, 0, 0});
    for (const UserSetupRequest& request : USER_SETUP_REQUESTS) {
        handleEvent(Notify{request.event, 0, 0});
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
    auto& setups = memories.userSetups;
    switch (event) {
    case VarFactoryResetChanged:
        setFlag(broker, memories.guiLocal.FactoryReset, VarFactoryResetChanged, false);
        break;
    case VarUserSetupAcceptLoadFileNameChanged:
        setFlag(broker, setups.UserSetupAcceptLoadFileName, VarUserSetupAcceptLoadFileNameChanged,
                false);
        break;
    case VarUserSetupAcceptSaveFileNameChanged:
        setFlag(broker, setups.UserSetupFileCheckDone, VarUserSetupFileCheckDoneChanged, true);
        setFlag(broker, setups.UserSetupAcceptSaveFileName, VarUserSetupAcceptSaveFileNameChanged,
                false);
        break;
    case VarUserSetupAddNewChanged:
        setFlag(broker, setups.UserSetupAddNew, VarUserSetupAddNewChanged, false);
        break;
    case VarUserSetupRenameChanged:
        setFlag(broker, setups.UserSetupRename, VarUserSetupRenameChanged, false);
        setFlag(broker, setups.UserSetupFileCheckDone, VarUserSetupFileCheckDoneChanged, true);
        break;
    case VarUserSetupOverwriteFileChanged:
        setFlag(broker, setups.UserSetupOverwriteFile, VarUserSetupOverwriteFileChanged, false);
        setFlag(broker, setups.UserSetupFileCheckDone, VarUserSetupFileCheckDoneChanged, true);
        break;
    case VarUserSetupDeleteChanged:
        setFlag(broker, setups.UserSetupDelete, VarUserSetupDeleteChanged, false);
        break;
    default:
        break;
    }
}
