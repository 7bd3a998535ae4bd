// The token read of TqGetProcessSIDInfo, alone in TqTokenRead.cpp: a test program links a
// definition of its own in its place to make one of the two calls fail, which no real token does
// between them. The shipped DLL holds only the library's definition. Not part of the library's
// interface.
#pragma once

#include <windows.h>

// GetTokenInformation in the library.
BOOL TqGetTokenInformation(HANDLE token, TOKEN_INFORMATION_CLASS kind, void* buffer, DWORD size,
                           DWORD* needed) noexcept;
