// Generated from gen/model by gen/generator. Do not edit.
#include "settings-service/eventid.h"

const char* const EVENT_NAME[EVENT_ID_COUNT] = {
    "Invalid",
    "Subscribe",
    "Unsubscribe",
    "SubscribeAll",
    "UnsubscribeAll",
    "CalibAllMotor",
    "VarBrightnessChanged",
    "VarGainChanged",
    "VarEnabledChanged",
    "VarTitleChanged",
    "VarTintChanged",
    "VarCodeChanged",
    "VarMaskChanged",
    "VarPointsChanged",
    "VarReadyChanged",
    "VarBusyChanged",
    "VarServiceLevelChanged",
    "VarOtherLevelChanged",
    "VarRemoteValueChanged",
    "VarContrastChanged",
};
