// Minidrivers that Windows Update installed as driver packages: found through the driver-update
// records of their hardware id and the driver store, reported as JSON records.
#pragma once

#include "middleware/TqDriverSelection.h"

#include <string>
#include <vector>

inline constexpr const char* kTqDriverUpdatesKey =
    "SOFTWARE\\Microsoft\\Windows\\CurrentVersion\\DriverSearching\\DriverUpdates\\";

// Looks for packages whose "HardwareIds" begin with "scfilter\" + driverId, keeps those the
// matcher accepts and lets the selector choose. recordsOut (may be null) receives one detected
// record per chosen package, or one not-detected record, or one exception record. Returns 1
// found, 0 not found, or a negative code (-1 null argument, -4 registry search failure, -23).
int TqMSUpdateDriverDetectionSearchJSON(const char* jsonKey, const char* driverId,
                                        TqDriverMatcher driverMatcher,
                                        TqDriverSelector driverSelector,
                                        std::vector<std::string>* recordsOut, const char* logFile);
