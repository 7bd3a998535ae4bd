#include "Seams.h"

#include "base/TqOutputTextSeam.h"
#include "host/TqProcessSeam.h"
#include "host/TqRegistrySnapshotSeam.h"
#include "identityagent/TqSpringCheck.h"
#include "identityagent/TqSpringCheckSeam.h"

#include <atomic>
#include <cstdlib>

TqClientAllocator gTqClientAllocateHook = nullptr;
TqTokenInformationReader gTqTokenReadHook = nullptr;
TqZelCheckWriter gTqZelCheckWriteHook = nullptr;

namespace {

std::atomic<bool> snapshotsAllowed{true};

} // namespace

void TqAllowRegistrySnapshots(bool allowed) noexcept {
    snapshotsAllowed = allowed;
}

void* TqAllocateClientBuffer(std::size_t size) noexcept {
    return gTqClientAllocateHook != nullptr ? gTqClientAllocateHook(size) : std::calloc(size, 1);
}

BOOL TqGetTokenInformation(HANDLE token, TOKEN_INFORMATION_CLASS kind, void* buffer, DWORD size,
                           DWORD* needed) noexcept {
    return gTqTokenReadHook != nullptr ? gTqTokenReadHook(token, kind, buffer, size, needed)
                                       : ::GetTokenInformation(token, kind, buffer, size, needed);
}

bool TqRegistrySnapshotsAllowed() noexcept {
    return snapshotsAllowed;
}

LSTATUS TqWriteZelCheck(HKEY key, const BYTE* data, DWORD size) noexcept {
    return gTqZelCheckWriteHook != nullptr
               ? gTqZelCheckWriteHook(key, data, size)
               : ::RegSetValueExA(key, kTqZelCheckValue, 0, REG_BINARY, data, size);
}
