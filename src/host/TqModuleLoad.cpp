#include "TqModuleLoad.h"

#include <cstring>

namespace {

bool isSeparator(char c) {
    return c == '\\' || c == '/';
}

bool isDriveLetterPath(const char* name) {
    const bool letter = (name[0] >= 'A' && name[0] <= 'Z') || (name[0] >= 'a' && name[0] <= 'z');
    return letter && name[1] == ':' && isSeparator(name[2]);
}

HMODULE refuse() {
    ::SetLastError(ERROR_BAD_PATHNAME);
    return nullptr;
}

} // namespace

HMODULE TqLoadNamedModule(const char* name) noexcept {
    if (name == nullptr || name[0] == '\0') {
        return refuse();
    }
    if (std::strpbrk(name, "\\/:") == nullptr) {
        return ::LoadLibraryExA(name, nullptr, LOAD_LIBRARY_SEARCH_SYSTEM32);
    }
    if (!isDriveLetterPath(name)) {
        return refuse();
    }
    // LOAD_LIBRARY_SEARCH_DLL_LOAD_DIR wants backslashes. The copy is small: a path of at most
    // the longest a file name may be.
    char path[MAX_PATH];
    const std::size_t length = std::strlen(name);
    if (length >= sizeof path) {
        return refuse();
    }
    for (std::size_t at = 0; at <= length; ++at) {
        path[at] = name[at] == '/' ? '\\' : name[at];
    }
    return ::LoadLibraryExA(path, nullptr,
                            LOAD_LIBRARY_SEARCH_DLL_LOAD_DIR | LOAD_LIBRARY_SEARCH_SYSTEM32);
}
