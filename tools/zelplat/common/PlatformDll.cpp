#include "common/PlatformDll.h"

#include "common/GuardedFiles.h"
#include "base/TqResultCodes.h"

#include <cstdio>
#include <fcntl.h>
#include <io.h>

namespace {

// zelplat.exe's full path, read whole; empty when it cannot be.
std::wstring toolPath() {
    constexpr std::size_t kLongestPath = 32768;
    std::wstring path(MAX_PATH, L'\0');
    for (;;) {
        const DWORD length =
            ::GetModuleFileNameW(nullptr, path.data(), static_cast<DWORD>(path.size()));
        if (length == 0) {
            return {};
        }
        if (length < path.size()) {
            path.resize(length);
            return path;
        }
        if (path.size() >= kLongestPath) {
            ::SetLastError(ERROR_INSUFFICIENT_BUFFER);
            return {};
        }
        path.resize(path.size() * 2);
    }
}

} // namespace

std::wstring ToolFolder() {
    std::wstring folder = toolPath();
    const std::size_t separator = folder.find_last_of(L"\\/");
    if (separator == std::wstring::npos) {
        return {};
    }
    folder.erase(separator + 1);
    return folder;
}

PlatformDll::PlatformDll() {
    const std::wstring folder = ToolFolder();
    if (folder.empty()) {
        // Never a load by bare name: that would search the very folders this avoids.
        std::fprintf(stderr,
                     "zelplat: cannot tell the folder zelplat.exe runs from (Windows error %lu)\n",
                     static_cast<unsigned long>(::GetLastError()));
        return;
    }
    const std::wstring file = folder + L"ZelPlatformMethods64.dll";
    path_ = SystemCodePageText(file);
    // By full path; the library's own imports from its folder and System32 only.
    module_.reset(::LoadLibraryExW(
        file.c_str(), nullptr, LOAD_LIBRARY_SEARCH_DLL_LOAD_DIR | LOAD_LIBRARY_SEARCH_SYSTEM32));
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

namespace {

bool gShowLibraryLines = false;

// The captured bytes as lines: CR LF and LF both end a line; a last line without one counts.
std::vector<std::string> splitLines(const std::string& text) {
    std::vector<std::string> lines;
    std::string line;
    for (const char c : text) {
        if (c == '\n') {
            if (!line.empty() && line.back() == '\r') {
                line.pop_back();
            }
            lines.push_back(line);
            line.clear();
        } else {
            line += c;
        }
    }
    if (!line.empty()) {
        lines.push_back(line);
    }
    return lines;
}

} // namespace

void ShowLibraryLines(bool show) {
    gShowLibraryLines = show;
}

LibraryConsole::LibraryConsole() {
    // Made once under a new name and used only through this handle; it goes away when the last
    // descriptor on it closes.
    std::wstring path;
    TqUniqueFile capture = CreateTemporaryFile(GENERIC_READ | GENERIC_WRITE | DELETE, 0,
                                               FILE_FLAG_DELETE_ON_CLOSE, path);
    if (!capture) {
        finished_ = true; // nothing captured: the library's lines stay on the streams
        return;
    }
    file_ = _open_osfhandle(reinterpret_cast<intptr_t>(capture.get()), _O_BINARY);
    if (file_ == -1) {
        finished_ = true;
        return;
    }
    capture.release(); // the descriptor owns the handle now
    std::fflush(stdout);
    std::fflush(stderr);
    savedOutput_ = _dup(1);
    savedError_ = _dup(2);
    _dup2(file_, 1);
    _dup2(file_, 2);
}

LibraryConsole::~LibraryConsole() {
    lines();
    if (file_ != -1) {
        _close(file_);
    }
}

const std::vector<std::string>& LibraryConsole::lines() {
    if (finished_) {
        return lines_;
    }
    finished_ = true;
    // The library shares this process's C runtime: its buffered lines are in these streams.
    std::fflush(stdout);
    std::fflush(stderr);
    if (savedOutput_ != -1) {
        _dup2(savedOutput_, 1);
        _close(savedOutput_);
    }
    if (savedError_ != -1) {
        _dup2(savedError_, 2);
        _close(savedError_);
    }
    std::string text;
    _lseek(file_, 0, SEEK_SET);
    char buffer[4096];
    for (int got = 0; (got = _read(file_, buffer, sizeof buffer)) > 0;) {
        text.append(buffer, static_cast<size_t>(got));
    }
    lines_ = splitLines(text);
    if (gShowLibraryLines) {
        for (const std::string& line : lines_) {
            std::fprintf(stderr, "%s\n", line.c_str());
        }
        std::fflush(stderr);
    }
    return lines_;
}
