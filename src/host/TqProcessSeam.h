// A seam in front of the token read of TqGetProcessSIDInfo. The tests set it to make one of the
// two calls fail, which no real token does between them; the library never sets it. Not part of
// the library's interface.
#pragma once

#include <windows.h>

// Called instead of GetTokenInformation while it is non-null.
using TqTokenInformationReader = BOOL (*)(HANDLE token, TOKEN_INFORMATION_CLASS kind, void* buffer,
                                          DWORD size, DWORD* needed);
extern TqTokenInformationReader gTqTokenReadHook;
