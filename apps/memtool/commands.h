// The commands of memtool; each returns the process's exit status and
// throws UsageError or Failure for the errors that main reports.
#pragma once

#include "cli.h"

#include <set>
#include <string>

struct Command {
    const char* name;
    const char* synopsis;
    const char* description;
    std::set<std::string> flags;
    std::set<std::string> valued;
    int (*run)(const Arguments& arguments);
};

int listMemories(const Arguments& arguments);
int listVariables(const Arguments& arguments);
int getValue(const Arguments& arguments);
int setValue(const Arguments& arguments);
int dumpMemories(const Arguments& arguments);
int postEventCommand(const Arguments& arguments);
int watchEvents(const Arguments& arguments);
int runRequest(const Arguments& arguments);
