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
