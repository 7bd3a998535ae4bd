// The library as the tool reaches it: loaded from the tool's own folder through
// ZelPlatformGetExportedInterface, exactly as the client loads it.
#pragma once

#include <windows.h>

#include "ZelPlatformMethods64.h"
#include "base/TqUniqueResource.h"

#include <string>

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

// The folder of zelplat.exe, ending in a backslash.
std::string ToolFolder();

// While it lives, what the library writes to standard output goes to standard error, so that
// standard output carries the answer alone (a script can parse the document).
class LibraryLinesToStandardError {
public:
    LibraryLinesToStandardError();
    ~LibraryLinesToStandardError();
    LibraryLinesToStandardError(const LibraryLinesToStandardError&) = delete;
    LibraryLinesToStandardError& operator=(const LibraryLinesToStandardError&) = delete;

private:
    int savedOutput_;
};
