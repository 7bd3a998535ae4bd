// Every DLL that the library and zelplat delay-load (shell32, version, winscard) is a Windows
// system DLL, and none of them is a KnownDLL. The runtime's delay-load helper would load each with
// plain LoadLibraryA, along the default search order, which starts with the folder of the program:
// a version.dll or winscard.dll left beside the host would be mapped into it, and one that lacks
// the function asked for would end the host with a delay-load exception. This hook loads them from
// System32 only. It changes nothing process-wide: the host's own search settings stay as they are.
//
// It is linked into the DLL and into zelplat.exe as an object of their own (not from an archive),
// so that the linker takes it instead of the runtime's null hook. The pointer is const: it lives
// in read-only memory.
#include <windows.h>

// The runtime's header declares the hook writable; ours is const, so its declaration is renamed.
// The reserved name is the runtime's own.
// NOLINTNEXTLINE(bugprone-reserved-identifier)
#define __pfnDliNotifyHook2 tqRuntimeDeclaredNotifyHook
#include <delayimp.h>
#undef __pfnDliNotifyHook2

namespace {

FARPROC WINAPI loadFromSystemFolder(unsigned notification, PDelayLoadInfo info) {
    if (notification != dliNotePreLoadLibrary) {
        return nullptr; // the helper goes on as it would without a hook
    }
    const HMODULE module = ::LoadLibraryExA(info->szDll, nullptr, LOAD_LIBRARY_SEARCH_SYSTEM32);
    if (module == nullptr) {
        // A null answer would send the helper to LoadLibraryA and the default search order. Fail
        // the way the helper fails when a DLL cannot be loaded, and do not let a handler resume.
        info->dwLastError = ::GetLastError();
        const ULONG_PTR argument = reinterpret_cast<ULONG_PTR>(info);
        ::RaiseException(VcppException(ERROR_SEVERITY_ERROR, ERROR_MOD_NOT_FOUND),
                         EXCEPTION_NONCONTINUABLE, 1, &argument);
    }
    return reinterpret_cast<FARPROC>(module);
}

} // namespace

extern "C" {
extern const PfnDliHook __pfnDliNotifyHook2; // NOLINT(bugprone-reserved-identifier)
}
const PfnDliHook __pfnDliNotifyHook2 = loadFromSystemFolder; // NOLINT(bugprone-reserved-identifier)
