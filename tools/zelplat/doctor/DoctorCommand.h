// zelplat doctor [--json], --fix and --undo: the findings of the rules over the report, the fixes
// with their undo records. The exit codes are those of common/ExitCodes.h.
#pragma once

#include "library/LibraryCommands.h"

int RunDoctorCommand(const Arguments& arguments, const char* logFile);
