// Driver packages installed by Windows Update: the record read from a package's minidriver file,
// and the decisions over such records. Free of <windows.h>.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

// One candidate package, read from the version resource of its minidriver file.
struct TqDriverRecord {
    std::string FileDescription; // reported as "Name"
    std::string FileVersion;
    std::string FileVersionMajor;
    std::string FileVersionMinor;
    std::int32_t fileMajor = 0;
    std::int32_t fileMinor = 0;
    std::string ProductName;
    std::string ProductVersion;      // reported as "DisplayVersion"
    std::string ProductVersionMajor; // reported as "VersionMajor"
    std::string ProductVersionMinor; // reported as "VersionMinor"
    std::int32_t productMajor = 0;
    std::int32_t productMinor = 0;
    std::uint64_t installDate = 0; // FILETIME bytes of the package's install date
    std::string Copyright;         // reported as "Publisher"
};

// A matcher's verdicts on one candidate.
inline constexpr int kTqDriverAcceptAndStop = 4;
inline constexpr int kTqDriverAccept = 5;
inline constexpr int kTqDriverReject = 6;
inline constexpr int kTqDriverNoRecord = 1;

using TqDriverMatcher = int (*)(const char* jsonKey, const std::string& filePath,
                                const TqDriverRecord* record);
using TqDriverSelector = int (*)(std::vector<TqDriverRecord>* candidates);

// Accepts the IDEMIA minidriver packages: 5 to accept, 6 to reject, 1 without a record.
int TqIdemiaDriverMatcher(const char* jsonKey, const std::string& filePath,
                          const TqDriverRecord* record);

// Keeps only the latest installed candidate (highest install date). 1 when one is left first in
// the list; 0 when there is no list or nothing in it.
int TqSelectLatestDriver(std::vector<TqDriverRecord>* candidates);
