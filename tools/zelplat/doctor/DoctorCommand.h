// zelplat doctor [--json]: the findings of the rules over the report. Exit 0 when nothing is
// found, 1 for warnings only, 2 when there is a problem.
#pragma once

#include "library/LibraryCommands.h"

int RunDoctorCommand(const Arguments& arguments, const char* logFile);
