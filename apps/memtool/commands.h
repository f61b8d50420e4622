// The commands of memtool; each returns the process's exit status, or the
// error that the frame reports (a usage error: status 2, any other: 1).  They
// reach the device through the Device that main made.
#pragma once

#include "cli.h"
#include "device.h"
#include "program.h"

// The program's commands bound to `device`, for the frame and for `memtool names`.
Program memtoolProgram(Device& device);

Result<int> listMemories(Device& device, const Arguments& arguments);
Result<int> listVariables(Device& device, const Arguments& arguments);
Result<int> describeVariable(Device& device, const Arguments& arguments);
Result<int> listNames(Device& device, const Arguments& arguments);
Result<int> getValue(Device& device, const Arguments& arguments);
Result<int> setValue(Device& device, const Arguments& arguments);
Result<int> resetValues(Device& device, const Arguments& arguments);
Result<int> dumpMemories(Device& device, const Arguments& arguments);
Result<int> loadValues(Device& device, const Arguments& arguments);
Result<int> previewDocument(Device& device, const Arguments& arguments);
Result<int> postEventCommand(Device& device, const Arguments& arguments);
Result<int> watchEvents(Device& device, const Arguments& arguments);
Result<int> runRequest(Device& device, const Arguments& arguments);
Result<int> serveInspector(Device& device, const Arguments& arguments);
