// The test programs' own definitions of the library's link seams (the src/*Seam.h functions):
// each behaves as the library's until a test sets its hook. Every test program links Seams.cpp as
// an object of its own, so the linker never takes the library's definition from its archive; the
// shipped DLL and zelplat.exe hold the library's definitions only.
#pragma once

#include <windows.h>

#include <cstddef>

// Called instead of calloc(size, 1) for the client's buffer while it is non-null.
using TqClientAllocator = void* (*)(std::size_t size);
extern TqClientAllocator gTqClientAllocateHook;

// Called instead of GetTokenInformation while it is non-null.
using TqTokenInformationReader = BOOL (*)(HANDLE token, TOKEN_INFORMATION_CLASS kind, void* buffer,
                                          DWORD size, DWORD* needed);
extern TqTokenInformationReader gTqTokenReadHook;

// Called instead of RegSetValueExA for the ZelCheck value while it is non-null.
using TqZelCheckWriter = LSTATUS (*)(HKEY key, const BYTE* data, DWORD size);
extern TqZelCheckWriter gTqZelCheckWriteHook;

// With snapshots disallowed every search reads the registry afresh, which is how the tests compare
// the two. Allowed by default, as in the library.
void TqAllowRegistrySnapshots(bool allowed) noexcept;
