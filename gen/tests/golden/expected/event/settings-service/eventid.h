// Generated from gen/model by gen/generator. Do not edit.
#pragma once

#include <cstdint>

enum EventId : uint32_t {
    Invalid = 0,
    Subscribe = 1,
    Unsubscribe = 2,
    SubscribeAll = 3,
    UnsubscribeAll = 4,
    CalibAllMotor = 5,
    VarBrightnessChanged = 6,
    VarGainChanged = 7,
    VarEnabledChanged = 8,
    VarTitleChanged = 9,
    VarTintChanged = 10,
    VarCodeChanged = 11,
    VarMaskChanged = 12,
    VarPointsChanged = 13,
    VarReadyChanged = 14,
    VarBusyChanged = 15,
    VarServiceLevelChanged = 16,
    VarOtherLevelChanged = 17,
    VarRemoteValueChanged = 18,
    VarContrastChanged = 19,
};

constexpr uint32_t EVENT_ID_COUNT = 20;

// The name of every event, indexed by EventId.
extern const char* const EVENT_NAME[];
