// The yardstick for the DLL's load time: built with the same toolchain and link options, and
// holding nothing but its entry point.
#include <windows.h>

BOOL WINAPI DllMain(HINSTANCE, DWORD, LPVOID) {
    return TRUE;
}
