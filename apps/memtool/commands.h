// The commands of memtool; each returns the process's exit status and
// throws UsageError or Failure for the errors that the frame reports.
#pragma once

#include "cli.h"
#include "program.h"

// The program's commands, for the frame and for `memtool names`.
extern const Program MEMTOOL;

int listMemories(const Arguments& arguments);
int listVariables(const Arguments& arguments);
int describeVariable(const Arguments& arguments);
int listNames(const Arguments& arguments);
int getValue(const Arguments& arguments);
int setValue(const Arguments& arguments);
int resetValues(const Arguments& arguments);
int dumpMemories(const Arguments& arguments);
int loadValues(const Arguments& arguments);
int previewDocument(const Arguments& arguments);
int postEventCommand(const Arguments& arguments);
int watchEvents(const Arguments& arguments);
int runRequest(const Arguments& arguments);
int serveInspector(const Arguments& arguments);
