/* A client written in C: the public header compiles as C and the import library links. */
#include <stdio.h>

#include "ZelPlatformMethods64.h"

int main(void) {
    ZelPlatformExportedInterface table;
    const void* const* entries = (const void* const*)&table;
    size_t count = 0;
    size_t i;
    char* text = NULL;
    int length = 0;

    if (ZelPlatformGetExportedInterface(NULL) != 1 ||
        ZelPlatformGetExportedInterface(&table) != 0) {
        printf("interface refused\n");
        return 1;
    }
    for (i = 0; i < sizeof table / sizeof(void*); ++i) {
        count += entries[i] != NULL;
    }
    if (table.GetFileVersion != GetFileVersion || table.FreeStringData != FreeStringData) {
        printf("interface entries differ from the imports\n");
        return 1;
    }
    GetEnrollmentMode(&text, &length, NULL);
    if (text == NULL || length <= 0) {
        printf("no enrollment text\n");
        return 1;
    }
    FreeStringData(&text);
    printf("interface ok: %u entries, FreeStringData %s\n", (unsigned)count,
           text == NULL ? "ok" : "left the pointer set");
    return 0;
}
