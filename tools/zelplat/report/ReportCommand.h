// zelplat report and zelplat doctor: the report of every read-only answer, and the rules read
// over it.
#pragma once

#include "library/LibraryCommands.h"

// zelplat report [--json | --table] [--output FILE]
int RunReportCommand(const Arguments& arguments, const char* logFile);
