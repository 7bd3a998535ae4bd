/* The planting tests' control: a program that loads version.dll the careless way, along the
   default search order, which starts with the program's own folder. It shows that a DLL planted
   there really is picked up in the test's setting, so that "not loaded" elsewhere means
   something. */
#include <windows.h>

#include <stdio.h>

int main(void) {
    char path[MAX_PATH * 2];
    HMODULE module = LoadLibraryA("version.dll");
    DWORD length;
    if (module == NULL) {
        printf("version.dll not loaded: %lu\n", GetLastError());
        return 1;
    }
    length = GetModuleFileNameA(module, path, sizeof path);
    printf("version.dll from %.*s\n", (int)length, path);
    return 0;
}
