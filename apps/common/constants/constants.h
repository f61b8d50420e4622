// Text constants shared by the device's programs: folders, file names and
// the keys of the hardware record.
#pragma once

namespace Constants {

// Folders and files of the settings service.
constexpr const char* LOCAL_FOLDER = "/var/";
constexpr const char* SETUPS_FOLDER = "/SETUPS/";
constexpr const char* CURRENT_USERSETTINGS_FILE = ".current";
constexpr const char* SETUPS_EXTENSION = ".stp";
constexpr const char* PRODUCT_INFO_FILE = "/product.info";

// Keys of the hardware record.
constexpr const char* HWINFO_SERIAL = "serial";
constexpr const char* HWINFO_BOARD = "board";
constexpr const char* HWINFO_REVISION = "revision";
constexpr const char* HWINFO_K = "k";
constexpr const char* KNOB_POS_MIN = "knob_position_min";
constexpr const char* KNOB_POS_MAX = "knob_position_max";
constexpr const char* SLIDER_POS_MIN = "slider_position_min";
constexpr const char* SLIDER_POS_MAX = "slider_position_max";
constexpr const char* JOYSTICK_ZERO_POS_X = "zoom_zero_pos_x";
constexpr const char* JOYSTICK_ZERO_POS_Y = "zoom_zero_pos_y";
constexpr const char* VIBRATION_BEMF_GAIN = "bemf_gain";
constexpr const char* VIBRATION_CAL_COMP = "cal_comp";
constexpr const char* VIBRATION_CAL_BEMF = "cal_bemf";
constexpr const char* HWINFO_KNOB_LINEARIZATION = "knob_linearization";
constexpr const char* HWINFO_UPDATE_REQ = "update_requested";
constexpr const char* HWINFO_UNUSED = "unused";
constexpr const char* HWINFO_BOOT_FAILED = "boot_failed";
constexpr const char* HWINFO_BOOT_FAILED_COUNTER = "boot_failed_counter";

} // namespace Constants
