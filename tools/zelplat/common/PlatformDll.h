// The library as the tool reaches it: loaded from the tool's own folder through
// ZelPlatformGetExportedInterface, exactly as the client loads it.
#pragma once

#include <windows.h>

#include "ZelPlatformMethods64.h"
#include "base/TqUniqueResource.h"

#include <string>
#include <vector>

// What a command got from the library: its result and the text to print.
struct Outcome {
    int result = 0;
    std::string answer;
};

class PlatformDll {
public:
    // Explains on standard error why the library could not be loaded; then loaded() is false.
    PlatformDll();
    bool loaded() const { return loaded_; }
    const ZelPlatformExportedInterface& api() const { return table_; }
    const std::string& path() const { return path_; }

private:
    std::string path_;
    TqUniqueModule module_;
    ZelPlatformExportedInterface table_{};
    bool loaded_ = false;
};

// Takes over a text the library handed out and gives the buffer back to the library.
std::string TakeLibraryText(const ZelPlatformExportedInterface& dll, char* text);

// A query whose answer is one text: its result and the text as it came.
template <typename Query> Outcome AskForText(const ZelPlatformExportedInterface& dll, Query query) {
    char* text = nullptr;
    int length = 0;
    Outcome outcome;
    outcome.result = query(&text, &length);
    outcome.answer = TakeLibraryText(dll, text);
    return outcome;
}

// The folder of zelplat.exe, ending in a backslash; empty when its path cannot be read whole.
std::wstring ToolFolder();

// The library writes lines of its own ("<function> : <message>") to the process's standard
// output and standard error; most describe what it met, not failures. While a LibraryConsole
// lives, both streams go to a file of its own, so that zelplat's streams carry zelplat's words
// alone; lines() gives what the library wrote. With --verbose (ShowLibraryLines) the lines also
// go to standard error when the capture ends.
class LibraryConsole {
public:
    LibraryConsole();
    ~LibraryConsole();
    LibraryConsole(const LibraryConsole&) = delete;
    LibraryConsole& operator=(const LibraryConsole&) = delete;

    // Ends the capture (the streams are zelplat's again) and returns the lines, without their
    // line ends. Later calls return the same lines.
    const std::vector<std::string>& lines();

private:
    int file_ = -1;
    int savedOutput_ = -1;
    int savedError_ = -1;
    bool finished_ = false;
    std::vector<std::string> lines_;
};

void ShowLibraryLines(bool show);
