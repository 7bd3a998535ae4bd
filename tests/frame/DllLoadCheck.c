/* Loads the DLL into a process of its own, as a client does, and tells which of the system DLLs
   that only some calls need came along: shell32, winscard and version are loaded on first use,
   and GetFileVersion loads version. */
#include <windows.h>

#include <stdio.h>
#include <string.h>

static void reportLoaded(const char* dll) {
    printf("%s %s\n", dll, GetModuleHandleA(dll) != NULL ? "loaded" : "not loaded");
}

typedef int (*GetFileVersionFn)(const char*, char**, int*, const char*);

int main(void) {
    char path[MAX_PATH];
    HMODULE module;
    GetFileVersionFn getFileVersion;
    char* version = NULL;
    int versionLength = 0;
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
    reportLoaded("version.dll");
    module = LoadLibraryA(path);
    if (module == NULL) {
        printf("LoadLibrary failed: %lu\n", GetLastError());
        return 1;
    }
    reportLoaded("ZelPlatformMethods64.dll");
    reportLoaded("shell32.dll");
    reportLoaded("winscard.dll");
    reportLoaded("version.dll");
    getFileVersion = (GetFileVersionFn)(void (*)(void))GetProcAddress(module, "GetFileVersion");
    if (getFileVersion == NULL) {
        printf("no GetFileVersion\n");
        return 1;
    }
    printf("GetFileVersion %d\n", getFileVersion(path, &version, &versionLength, NULL));
    reportLoaded("version.dll");
    return 0;
}
