/* A client linked the MSVC way: compiled for x86_64-pc-windows-msvc and linked by lld-link with
 * ZelPlatformMethods64.lib. No MSVC C runtime is at hand, so the program has its own entry
 * point and declares the few kernel32 functions it calls. */
#include "ZelPlatformMethods64.h"

typedef void* Handle;
__declspec(dllimport) Handle __stdcall GetStdHandle(unsigned long which);
__declspec(dllimport) int __stdcall WriteFile(Handle file, const void* data, unsigned long size,
                                              unsigned long* written, void* overlapped);
__declspec(dllimport) Handle __stdcall GetModuleHandleA(const char* name);
__declspec(dllimport) unsigned long __stdcall GetModuleFileNameA(Handle module, char* path,
                                                                 unsigned long size);
__declspec(dllimport) __declspec(noreturn) void __stdcall ExitProcess(unsigned int code);

static void say(const char* text) {
    unsigned long length = 0;
    unsigned long written = 0;
    while (text[length] != '\0') {
        ++length;
    }
    WriteFile(GetStdHandle((unsigned long)-11), text, length, &written, 0);
}

void start(void) {
    ZelPlatformExportedInterface table;
    char path[520];
    char* version = 0;
    int length = -1;

    if (ZelPlatformGetExportedInterface(&table) != 0 || table.GetFileVersion != GetFileVersion ||
        table.FreeStringData != FreeStringData) {
        say("interface table refused or not the imports\r\n");
        ExitProcess(1);
    }
    if (GetModuleFileNameA(GetModuleHandleA("ZelPlatformMethods64.dll"), path, sizeof path) == 0 ||
        GetFileVersion(path, &version, &length, 0) != 0 || version == 0) {
        say("GetFileVersion failed\r\n");
        ExitProcess(1);
    }
    say("GetFileVersion: \"");
    say(version);
    say("\"\r\n");
    FreeStringData(&version);
    say(version == 0 ? "FreeStringData: NULL\r\n" : "FreeStringData: left set\r\n");
    ExitProcess(0);
}
