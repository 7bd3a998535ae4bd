// A seam in front of the one registry write whose failure the switch-off must undo. The tests
// set it to make that write fail; the library never does. Not part of the library's interface.
#pragma once

#include <windows.h>

// Called instead of RegSetValueExA for the ZelCheck value while it is non-null.
using TqZelCheckWriter = LSTATUS (*)(HKEY key, const BYTE* data, DWORD size);
extern TqZelCheckWriter gTqZelCheckWriteHook;
