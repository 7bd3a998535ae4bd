/* A client of the installed package: it links the import library the package names and asks
 * the DLL for its interface table and for the file version of the DLL itself. */
#include <stdio.h>
#include <string.h>
#include <windows.h>

#include "ZelPlatformMethods64.h"

int main(void) {
    ZelPlatformExportedInterface table;
    const void* const* entries = (const void* const*)&table;
    size_t filled = 0;
    size_t i;
    char path[MAX_PATH];
    char* version = NULL;
    int length = -1;
    int result;

    memset(&table, 0, sizeof table);
    result = ZelPlatformGetExportedInterface(&table);
    for (i = 0; i < sizeof table / sizeof(void*); ++i) {
        filled += entries[i] != NULL;
    }
    printf("ZelPlatformGetExportedInterface: %d, %u of %u entries\n", result, (unsigned)filled,
           (unsigned)(sizeof table / sizeof(void*)));
    printf("entries are the imports: %s\n",
           table.GetFileVersion == GetFileVersion && table.FreeStringData == FreeStringData &&
                   table.ZelPlatformGetExportedInterface == ZelPlatformGetExportedInterface
               ? "yes"
               : "no");
    if (table.GetFileVersion == NULL || table.FreeStringData == NULL ||
        GetModuleFileNameA(GetModuleHandleA("ZelPlatformMethods64.dll"), path, sizeof path) == 0) {
        return 1;
    }
    result = table.GetFileVersion(path, &version, &length, NULL);
    printf("GetFileVersion: %d, \"%s\", length %d\n", result, version != NULL ? version : "(null)",
           length);
    table.FreeStringData(&version);
    printf("FreeStringData: %s\n", version == NULL ? "NULL" : "left set");
    return 0;
}
