#include "common/PlatformDll.h"

#include "common/GuardedFiles.h"
#include "base/TqResultCodes.h"

#include <cstdio>
#include <fcntl.h>
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
