/* A DLL that tells it was loaded: when a process maps it, it creates "<its own path>.loaded"
   beside itself. The planting tests copy it beside a program under the names of Windows DLLs
   (version.dll, WinSCard.dll). It exports none of their functions, so a program that took it for
   the real one would also fail at its first call. */
#include <windows.h>

BOOL WINAPI DllMain(HINSTANCE instance, DWORD reason, LPVOID reserved) {
    WCHAR path[MAX_PATH + 8];
    DWORD length;
    HANDLE file;
    (void)reserved;
    if (reason != DLL_PROCESS_ATTACH) {
        return TRUE;
    }
    length = GetModuleFileNameW(instance, path, MAX_PATH);
    if (length == 0 || length >= MAX_PATH) {
        return TRUE;
    }
    lstrcpyW(path + length, L".loaded");
    file = CreateFileW(path, GENERIC_WRITE, 0, NULL, CREATE_ALWAYS, FILE_ATTRIBUTE_NORMAL, NULL);
    if (file != INVALID_HANDLE_VALUE) {
        CloseHandle(file);
    }
    return TRUE;
}
