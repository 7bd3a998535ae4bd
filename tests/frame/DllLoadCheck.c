/* Loads the DLL into a process of its own, as a client does, and tells which of the system DLLs
   that only some calls need came along: shell32 and winscard are loaded on first use. */
#include <windows.h>

#include <stdio.h>
#include <string.h>

static void reportLoaded(const char* dll) {
    printf("%s %s\n", dll, GetModuleHandleA(dll) != NULL ? "loaded" : "not loaded");
}

int main(void) {
    char path[MAX_PATH];
    DWORD length = GetModuleFileNameA(NULL, path, MAX_PATH);
    char* folderEnd;
    if (length == 0 || length >= MAX_PATH) {
        printf("no program path\n");
        return 1;
    }
    folderEnd = strrchr(path, '\\');
    if (folderEnd == NULL || (size_t)(folderEnd + 1 - path) + 25 > MAX_PATH) {
        printf("no program folder\n");
        return 1;
    }
    strcpy(folderEnd + 1, "ZelPlatformMethods64.dll");
    reportLoaded("shell32.dll");
    reportLoaded("winscard.dll");
    if (LoadLibraryA(path) == NULL) {
        printf("LoadLibrary failed: %lu\n", GetLastError());
        return 1;
    }
    reportLoaded("ZelPlatformMethods64.dll");
    reportLoaded("shell32.dll");
    reportLoaded("winscard.dll");
    return 0;
}
