// hwinfo's commands: they read and write the hardware record and the boot
// status register from the command line, for the factory and for service work.
//
// The reading commands (print, get, parameters) never write: they judge the
// record as the settings service does at start, and a record with a wrong
// length or checksum is reported, left exactly as it is, and the command
// fails.  Only set and reset write.  set first repairs a record that is not
// valid (a shorter record is extended, a wrong one reset to its defaults) and
// says so; the service reads such a record as that repair would leave it but
// never writes it.
//
// "set" checks every assignment (key known, not private, text short enough,
// number valid) before it writes any, so a rejected command line leaves the
// record and the register exactly as they were.  A number is taken up to its
// first non-digit, as the record's own conversion does ("12abc" stores 12).
//
// print, get and parameters open the devices read-only.  set and reset flush
// their writes to the devices (msync and fsync) before they report success.
// A hidden field ("unused", reserved bits of the boot register) is refused by
// set like a private one.
//
// Exit status: 0 done, 1 the command failed and nothing was written, 2 wrong
// usage (an unknown command, option or key included).
//
// The commands open the devices through the opener they are given (main
// passes one that maps /dev/mmcblk1 and /dev/mem), so that a test can hand
// them another.  Errors are returned to the frame (program.h); the hardware
// record's exceptions on opening, checking and flushing become errors here,
// the others reach the frame's dispatch.
#pragma once

#include "hwinfo.h"
#include "program.h"

#include <functional>
#include <memory>

// Opens and maps the devices for a use; throws as HwInfo's constructor does.
using OpenDevices = std::function<std::unique_ptr<HwInfo>(HwInfo::Use)>;

// hwinfo's commands, each opening the devices with `open` when it needs them.
Program hwinfoProgram(OpenDevices open);
