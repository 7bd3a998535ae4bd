// Registry writes whose stored bytes depend on nothing but the data given.
#pragma once

#include <windows.h>

#include <string_view>

// Writes text as a REG_SZ value with exactly text.size() as the count. RegSetValueExA stores a
// terminating NUL itself when the byte right after the data is one, so the text is first copied
// into a buffer that has that NUL: the stored value is the text and a NUL, wherever the caller's
// text lives (an empty text stores no bytes). Returns the registry call's status.
LSTATUS TqSetRegistryText(HKEY key, const char* name, std::string_view text);
