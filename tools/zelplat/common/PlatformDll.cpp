#include "common/PlatformDll.h"

#include "base/TqResultCodes.h"

#include <cstdio>
#include <io.h>

PlatformDll::PlatformDll() : path_(ToolFolder() + "ZelPlatformMethods64.dll") {
    module_.reset(::LoadLibraryA(path_.c_str()));
    if (!module_) {
        std::fprintf(stderr, "zelplat: cannot load %s (Windows error %lu)\n", path_.c_str(),
                     static_cast<unsigned long>(::GetLastError()));
        return;
    }
    const auto getInterface =
        reinterpret_cast<ZelPlatformGetExportedInterfaceFn>(reinterpret_cast<void*>(
            ::GetProcAddress(module_.get(), "ZelPlatformGetExportedInterface")));
    if (getInterface == nullptr || getInterface(&table_) != 0) {
        std::fprintf(stderr, "zelplat: %s has no usable ZelPlatformGetExportedInterface\n",
                     path_.c_str());
        return;
    }
    loaded_ = true;
}

std::string TakeLibraryText(const ZelPlatformExportedInterface& dll, char* text) {
    std::string copy = text != nullptr ? text : "";
    dll.FreeStringData(&text);
    return copy;
}

std::string ToolFolder() {
    char path[MAX_PATH * 4];
    const DWORD length = ::GetModuleFileNameA(nullptr, path, sizeof path);
    std::string folder(path, length);
    folder.erase(folder.find_last_of("\\/") + 1);
    return folder;
}

LibraryLinesToStandardError::LibraryLinesToStandardError() : savedOutput_(_dup(1)) {
    std::fflush(stdout);
    if (savedOutput_ != -1) {
        _dup2(2, 1);
    }
}

LibraryLinesToStandardError::~LibraryLinesToStandardError() {
    std::fflush(stdout);
    if (savedOutput_ != -1) {
        _dup2(savedOutput_, 1);
        _close(savedOutput_);
    }
}
