// Which applet the PIV minidriver presents: one per-user registry value.
#pragma once

inline constexpr const char* kTqEnrollmentKey =
    "SOFTWARE\\Oberthur Technologies\\Minidriver\\PIVMinidriver";
inline constexpr const char* kTqEnrollmentValue = "EnableKVREnrollment";

// Writes "AGILE" (0) or "COMPATIBILITY" (1). Returns 0, 1 (null mode), 4 or 23.
int TqSwitchEnrollmentMode(const char* mode, const char* logFile);

// Reads the mode into a new buffer: "AGILE", "COMPATIBILITY" or "NOT SET".
// Returns 0, 4 (value absent), 11 (key absent), 1 (null output) or 23.
int TqGetEnrollmentMode(char** modeOut, int* modeLengthOut, const char* logFile);
