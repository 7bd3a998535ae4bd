// Times the first LoadLibraryA of the DLL named first on the command line in this fresh process,
// and says whether the DLLs the library loads only on first use were loaded with it. DLLs named
// after it are loaded before the clock starts.
#include <windows.h>

#include <cstdio>

int main(int argc, char** argv) {
    if (argc < 2) {
        std::fprintf(stderr, "usage: zel_load_probe DLL [DLL loaded before it]...\n");
        return 2;
    }
    for (int i = 2; i < argc; ++i) {
        if (::LoadLibraryA(argv[i]) == nullptr) {
            std::fprintf(stderr, "LoadLibraryA %s failed (%lu)\n", argv[i], ::GetLastError());
            return 1;
        }
    }
    LARGE_INTEGER frequency;
    LARGE_INTEGER start;
    LARGE_INTEGER end;
    ::QueryPerformanceFrequency(&frequency);
    ::QueryPerformanceCounter(&start);
    const HMODULE module = ::LoadLibraryA(argv[1]);
    ::QueryPerformanceCounter(&end);
    if (module == nullptr) {
        std::fprintf(stderr, "LoadLibraryA %s failed (%lu)\n", argv[1], ::GetLastError());
        return 1;
    }
    const double microseconds = static_cast<double>(end.QuadPart - start.QuadPart) * 1e6 /
                                static_cast<double>(frequency.QuadPart);
    const bool shell32 = ::GetModuleHandleA("shell32.dll") != nullptr;
    const bool winscard = ::GetModuleHandleA("winscard.dll") != nullptr;
    std::printf("load_us %.1f\n", microseconds);
    if (!shell32 && !winscard) {
        std::printf("delay-loaded shell32 winscard: not loaded\n");
    } else {
        std::printf("delay-loaded shell32 winscard: loaded with the DLL:%s%s\n",
                    shell32 ? " shell32" : "", winscard ? " winscard" : "");
    }
    return 0;
}
