// Display-name filters of the installed-program search: each accepts an Uninstall entry only when
// its display name has the product's exact shape, and yields the platform word size from it.
// Free of <windows.h>.
#pragma once

#include <string>

// Signature shared by the filters: true when the display name is the product; only then is
// platform written ("32" or "64").
using TqNameFilter = bool (*)(const std::string& displayName, std::string& platform);

bool TqClassicClientNameFilter(const std::string& displayName, std::string& platform);
bool TqAWPNameFilter(const std::string& displayName, std::string& platform);
bool TqIdemiaNameFilter(const std::string& displayName, std::string& platform);

// Signature of the version parsers: split a display version into build number and revision.
using TqVersionParser = void (*)(const std::string& displayVersion, std::string& buildNumber,
                                 std::string& revision);

// "7.3.1.23" gives revision "1" and build number "23"; with three parts or fewer both are left
// as they were. Throws TqFailure when the version cannot be split.
void TqSplitDisplayVersion(const std::string& displayVersion, std::string& buildNumber,
                           std::string& revision);
