"""The facts about the catalogue that other programs and documents rely on.

These are fixed outside the model (the device's memory table, the settings document's variable
list, the events other programs use); checks.py compares the model with them.
"""

MEMORY_TABLE = [
    ("MemPersistent", 1136, 140), ("MemDynamic", 432, 92), ("MemDistanceMeasure", 3588, 90),
    ("MemCamera", 139120, 112), ("MemStatic", 252, 11), ("MemLens", 61244, 33),
    ("MemLensMarkers", 15, 15), ("MemExternalDevices", 3708, 31), ("MemMotors", 684, 52),
    ("MemHwControl", 7232, 46), ("MemBluetooth", 520, 5), ("MemGuiLocal", 14008, 177),
    ("MemServiceMode", 2844, 36), ("MemDeviceState", 24, 12), ("MemMedia", 20396, 17),
    ("MemUserSetups", 476, 11), ("MemLensProgramming", 156, 38), ("MemTestautomation", 28, 8),
    ("MemDebug", 360, 1), ("MemApp", 68, 17),
]
VARIABLE_TOTAL = 944

PERSISTENT_NAMES = (
    "AUXTorque BluetoothPower ButtonBrightness ButtonsLocked CinefadeDisplayModeValue CinefadeTorque "
    "CircleofConfusion CtmDampFactor DMDTorque DisableForcePad DisableTouchscreen DisplayBrightness "
    "DisplayBrightnessAuto DisplayUnit EnableNextSupFeatures EndSlateVibrationEnable FocusTableHidden "
    "FocusTableInverted FocusTorque ForcePadAssignment ForcePadLock ForcePadReverse ForcePadSpeed "
    "FuncLDD GuiDesignIsNightStyle GuiRotate IrisScaleSide IrisTableHidden IrisTableInverted "
    "IrisTorque KnobAssignment KnobBrightness KnobColor KnobLock KnobReverse LandingPage Language "
    "LastKnownFocusValue LastKnownIrisValue LastKnownZoomValue LedRunBrightness "
    "LensFileFavouriteFolder LensFileTransferCalibrate "
    + " ".join(f"LensMarkerAbsFocusValue{i}" for i in range(8)) + " "
    + " ".join(f"LensMarkerAbsIrisValue{i}" for i in range(8)) + " "
    "LensMarkerColorExternal LensMarkerColorInternal "
    + " ".join(f"LensMarkerFocusValue{i}" for i in range(8)) + " "
    + " ".join(f"LensMarkerIrisValue{i}" for i in range(8)) + " "
    "LensMarkerVibrationEnable LensMarkerVibrationType "
    + " ".join(f"LensMarkerZoomValue{i}" for i in range(8)) + " "
    "MenuScrollSpeed MruLensFileList MruLensFileListSize NudgeVibrationEnable NudgeVibrationType "
    "OverrideVibrationEnable OverrideVibrationType PreMarkedEnumImperial PreMarkedEnumMetric "
    "PreMarkedIrisAutoDet PreMarkedIrisEnd PreMarkedIrisHasClose PreMarkedIrisOpen "
    "PreMarkedRingAutoDet PreMarkedRingFeet PreMarkedRingInch PreMarkedRingMeter ProductName "
    "ProductVersion RadioBoost RadioModuleList RadioPower RecentLensFiles RecordingVibrationEnable "
    "RecordingVibrationType ScreenSaverMode ScreenSaverSpeed SliderAssignment SliderLock "
    "SliderReverse SoundMute SoundType SoundVolume StealthMode UserButton1 UserButton2 UserButton3 "
    "UserButton4 UserButton4_Name UserButton5 UserButton5_Name UserButton6 UserButton6_Name "
    "UserButton7 UserButton7_Name UserButton8 UserButton8_Name UserButton9 UserButton9_Name "
    "UserButtonVibrationEnable ZoomTableHidden ZoomTableInverted ZoomTorque"
).split()

# name: (event, offset, type, min, max); None for "none", OPEN where the row leaves it open.
OPEN = object()
PERSISTENT_TELLING_ROWS = {
    "AUXTorque": (173, 56, "int", "1", "4"),
    "BluetoothPower": (269, 644, "bool", None, None),
    "ButtonBrightness": (482, 132, "int", "0", "10"),
    "ButtonsLocked": (334, 184, "bool", None, None),
    "CinefadeDisplayModeValue": (990, 1132, "CinefadeDisplayMode", None, None),
    "CinefadeTorque": (177, 64, "int", "1", "4"),
    "CircleofConfusion": (49, 172, "float", OPEN, OPEN),
}

# memory: [(name, type, length or None, event or None)]
NAMED_VARIABLES = {
    "MemPersistent": [("ProductName", "string", 20, 230), ("ProductVersion", "string", 20, 231),
                      ("FocusTorque", "int", None, 167)],
    "MemStatic": [("ProductLastCommit", "string", 50, 232), ("ProductSerial", "string", 50, 233),
                  ("ProductRevision", "string", 50, 234)],
    "MemDeviceState": [("FileAlreadyExists", "bool", None, 882), ("FileNotFound", "bool", None, None)],
    "MemGuiLocal": [("FactoryReset", "bool", None, 328)],
}

# The user-setup dialogue: (name, type, length or element count, event).
USER_SETUPS = [
    ("UserSetupSave", "string", 18, 922),
    ("UserSetupAcceptSaveFileName", "bool", None, 924),
    ("UserSetupAcceptLoadFileName", "bool", None, 923),
    ("UserSetupAddNew", "bool", None, 925),
    ("UserSetupRename", "bool", None, 926),
    ("UserSetupList", "UserSetupFiles", 20, 929),
    ("UserSetupListSize", "int", None, 930),
    ("UserSetupSelectedFileIndex", "int", None, 931),
    ("UserSetupOverwriteFile", "bool", None, 927),
    ("UserSetupDelete", "bool", None, 932),
    ("UserSetupFileCheckDone", "bool", None, 934),
]
USER_SETUP_FILE_LENGTH = 22

# MemApp: one log level per program; the service's own (the model names it) lies at offset 20.
APP_LOG_LEVELS = 17
SERVICE_LOG_LEVEL_OFFSET = 20

# struct: [(member, offset, type)]
STRUCT_EXAMPLES = {
    "ScaleValues": [("TableEntryFlags", 0, "int"), ("EncoderValue", 4, "int"),
                    ("EngravedValue", 8, "float"), ("PrimaryEngravedValueAsString", 12, "string"),
                    ("SecondaryEngravedValueAsString", 27, "string"),
                    ("InterpolEngravedVal", 44, "float")],
    "LensTable": [("TableActive", None, "bool"), ("LensTableMaxInterpolPos", None, None),
                  ("LensTableMinInterpolPos", None, None), ("LensTableUpperBound", None, None),
                  ("LensTableLowerBound", None, None), ("LensTableValueListSize", None, "int"),
                  ("LensTableValueList", 24, "ScaleValues"),
                  ("LensTableMotorAtLeftSide", 12312, "bool"), ("LensTableInverse", 12313, "bool")],
}

ENUM_TABLE = [
    ("LogLevel", 8), ("MotorStatus", 6), ("MotorConnection", 3), ("PowerState", 6),
    ("ScalePartType", 5), ("Language", 4), ("EditVariable", 94), ("SteeringAxis", 7), ("Axis", 7),
    ("LensType", 9), ("LenUnit", 2), ("UserButton", 53), ("RadioRegion", 21), ("CamIntStates", 3),
    ("SoundType", 2), ("MotorSide", 2), ("RadioStates", 14), ("CameraState", 11),
    ("FootageUnit", 5), ("SupplyWarning", 3), ("SupplyUnit", 3), ("BluetoothDeviceState", 2),
    ("ButtonName", 13), ("FuncLDDPages", 4), ("UsbState", 3), ("CtmStates", 5), ("FocusBugFOV", 3),
    ("UpdateState", 14), ("SkipCalibration", 3), ("DisplayUnit", 3), ("DataSources", 2),
    ("DisplayUnitConversion", 3), ("LensBrand", 12), ("KnobColor", 10), ("MarkColor", 11),
    ("FocalLength", 36), ("ConTransState", 6), ("BorderColor", 3), ("AutoWBResults", 5),
    ("CameraType", 15), ("LensProgTypes", 3), ("SDIStatusInfo", 3), ("PageName", 3),
    ("CommandResult", 4), ("TimezoneSelection", 2), ("PlaybackSpeed", 14), ("SymbolTypes", 1),
    ("SymbolColor", 5), ("CamDataState", 3), ("ForcePadDir", 5), ("SymbolPopup", 23),
    ("MotorPriorityForGui", 3), ("MotorPriorityToCam", 2), ("ModemType", 4), ("LedColor", 5),
    ("ScreenSaver", 10), ("DmdSources", 3), ("DmdTypes", 5), ("DmdTargetType", 6),
    ("MotorTeeth", 4), ("VibrationType", 2), ("FileBrowserFunction", 9),
    ("FileBrowserOperation", 6), ("FileBrowserFilter", 2), ("LensFileFunction", 3),
    ("DeviceUpdateType", 2), ("ValidationIndicator", 3), ("CanConnectState", 4),
    ("DisplayTest", 7), ("PremarkedMetric", 12), ("PremarkedImperial", 14), ("PreviousPage", 2),
    ("RemoveLogCmd", 4), ("ClearAllOptions", 3), ("CinefadeMode", 3), ("UBCategory", 6),
    ("MessageType", 3), ("Message", 13), ("FocusBugSourceAndFOV", 8), ("ScaleSide", 2),
    ("CinefadeDisplayMode", 3),
]
ENUM_FIRST_ENTRIES = {"CinefadeDisplayMode": ["Default", "Filter", "Distance"]}

STRUCT_NAMES = (
    "BluetoothDeviceStruct ButtonState CamClipListItemStruct CamExposureIndexListStruct "
    "CamExposureTimeListStruct CamFeatureStruct CamListTextLabelStruct CamNdFilterListStruct "
    "CamShutterListStruct CamSpeedListStruct CamUserButtonStruct CamUserSetupListStruct "
    "CamWhiteBalanceListStruct CameraSupplyStruct CdmCoordinates DateTimezoneContinentStruct "
    "DateTimezoneCountryStruct DebugIntListStruct DeviceUpdateFileStruct FileBrowserEntryStruct "
    "HostUpdateFileStruct QlinkDevice LensDescTable LensFile LensTable LensTableRawStruct Motor "
    "RadioRssiStruct RadioStruct ScaleValues TraceInfoStruct UserSetupFiles"
).split()

FIXED_EVENTS = ["Invalid", "Subscribe", "Unsubscribe", "SubscribeAll", "UnsubscribeAll",
                "CalibAllMotor"]
NAMED_EVENTS = {6: "VarAppLogLevelChanged", 7: "VarFocusTargetValueChanged",
                167: "VarFocusTorqueChanged", 1060: "VarAppDofCalculationLogLevelChanged"}
EVENT_COUNT = 1061
SUBSCRIPTION_COUNT = 148
