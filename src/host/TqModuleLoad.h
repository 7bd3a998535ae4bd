// Loading a module that the registry or a caller names, never along the default search order.
#pragma once

#include <windows.h>

// A bare file name ("x.dll") is loaded from System32 only. A full path on a local drive
// ("C:\dir\x.dll", forward slashes taken as backslashes) is loaded as it stands, its own imports
// from its folder and System32 only. Everything else names no definite local file and is refused
// with ERROR_BAD_PATHNAME: relative paths, shares ("\\server\share"), and the "\\?\" and "\\.\"
// forms (UNC, devices, object-manager paths). Null on failure, with the reason in GetLastError().
HMODULE TqLoadNamedModule(const char* name) noexcept;
