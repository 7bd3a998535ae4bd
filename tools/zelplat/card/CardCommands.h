// zelplat card: the readers and their cards, and the Oberthur card's check and cache clearing,
// through the library's card code linked into the tool (the DLL exports no card function).
#pragma once

#include "library/LibraryCommands.h"

// card list | card check READER [--pin PIN] | card clear-cache READER [--pin PIN]
int RunCardCommand(const Arguments& arguments, const char* logFile);
