// Times the first LoadLibraryA of the DLL named first on the command line in this fresh process,
// and says whether the DLLs the library loads only on first use were loaded with it. DLLs named
// after it are loaded before the clock starts.
#include <windows.h>

#include <cstdio>
#include <string>

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
    // The DLLs the library binds only on the first call that needs one.
    std::string loaded;
    for (const char* dll : {"shell32", "winscard", "version"}) {
        if (::GetModuleHandleA((std::string(dll) + ".dll").c_str()) != nullptr) {
            loaded += std::string(" ") + dll;
        }
    }
    std::printf("load_us %.1f\n", microseconds);
    if (loaded.empty()) {
        std::printf("delay-loaded shell32 winscard version: not loaded\n");
    } else {
        std::printf("delay-loaded shell32 winscard version: loaded with the DLL:%s\n",
                    loaded.c_str());
    }
    return 0;
}
