// The Identity Agent document as a short readable summary, for support staff.
// Free of <windows.h>.
#pragma once

#include <string>

// "Agent:           KVR" and five more lines: version, spring check, locked, ZelCheck set,
// restarted since.
std::string TqFormatIdentityAgentTable(const std::string& document);
