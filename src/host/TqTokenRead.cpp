#include "host/TqProcessSeam.h"

BOOL TqGetTokenInformation(HANDLE token, TOKEN_INFORMATION_CLASS kind, void* buffer, DWORD size,
                           DWORD* needed) noexcept {
    return ::GetTokenInformation(token, kind, buffer, size, needed);
}
