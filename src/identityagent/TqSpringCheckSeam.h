// The one registry write whose failure the switch-off must undo, alone in TqZelCheckWrite.cpp: a
// test program links a definition of its own in its place to make that write fail. The shipped
// DLL holds only the library's definition. Not part of the library's interface.
#pragma once

#include <windows.h>

// RegSetValueExA of the ZelCheck value (REG_BINARY) in the library.
LSTATUS TqWriteZelCheck(HKEY key, const BYTE* data, DWORD size) noexcept;
