// zelplat: asks ZelPlatformMethods64.dll the workstation questions, the way the client does.
#include <windows.h>

#include "MiddlewareTable.h"
#include "ZelPlatformMethods64.h"
#include "hostutil/TqUniqueResource.h"
#include "platform/TqResultCodes.h"

#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

namespace {

constexpr int kUsageError = 1;  // "One or more invalid arguments"
constexpr int kLoadFailed = 29; // "Failed to load required component"

const char kUsage[] =
    "usage: zelplat [--log FILE] COMMAND [ARGUMENTS]\n"
    "\n"
    "Asks ZelPlatformMethods64.dll (next to zelplat.exe) about this workstation.\n"
    "\n"
    "commands:\n"
    "  enrollment get                       applet the PIV minidriver presents\n"
    "  enrollment set AGILE|COMPATIBILITY   switch the PIV minidriver's applet\n"
    "  file-version PATH                    major file version of a module\n"
    "  middleware [--table]                 supported smart-card middleware (JSON, or a table)\n"
    "  oberthur                             the OT middleware record (exit 1: detected)\n"
    "  atr get                              minidriver the JCOP 41 card entries name\n"
    "  atr set GEMSAFE|PIVMINIDRIVER        point the JCOP 41 card entries at a minidriver\n"
    "\n"
    "options:\n"
    "  --log FILE   append the library's log lines to FILE\n"
    "  --help       show this text\n"
    "\n"
    "The answer goes to standard output; a failure is explained on standard error and its\n"
    "result code is the exit code.\n";

using Arguments = std::vector<std::string>;

struct Command {
    std::vector<const char*> words;
    std::size_t argumentCount;
    int (*run)(const ZelPlatformExportedInterface& dll, const Arguments& arguments,
               const char* logFile);
    // Results from 0 up to this one are answers, not failures: nothing to explain.
    int highestAnswer = 0;
};

// Prints a text answer that the library handed out and gives it back to the library.
int printAnswer(const ZelPlatformExportedInterface& dll, int result, char* text) {
    if (text != nullptr) {
        std::printf("%s\n", text);
        dll.FreeStringData(&text);
    }
    return result;
}

// The same for a JSON document, which ends in its own line end or none.
int printDocument(const ZelPlatformExportedInterface& dll, int result, char* text) {
    if (text != nullptr) {
        const std::size_t length = std::strlen(text);
        std::printf(length > 0 && text[length - 1] == '\n' ? "%s" : "%s\n", text);
        dll.FreeStringData(&text);
    }
    return result;
}

const Command kCommands[] = {
    {{"enrollment", "get"},
     0,
     [](const ZelPlatformExportedInterface& dll, const Arguments&, const char* logFile) {
         char* mode = nullptr;
         int length = 0;
         const int result = dll.GetEnrollmentMode(&mode, &length, logFile);
         return printAnswer(dll, result, mode);
     }},
    {{"enrollment", "set"},
     1,
     [](const ZelPlatformExportedInterface& dll, const Arguments& arguments, const char* logFile) {
         return dll.SwitchEnrollmentMode(arguments[0].c_str(), logFile);
     }},
    {{"file-version"},
     1,
     [](const ZelPlatformExportedInterface& dll, const Arguments& arguments, const char* logFile) {
         char* version = nullptr;
         int length = 0;
         const int result = dll.GetFileVersion(arguments[0].c_str(), &version, &length, logFile);
         return printAnswer(dll, result, version);
     }},
    {{"middleware"},
     0,
     [](const ZelPlatformExportedInterface& dll, const Arguments&, const char* logFile) {
         char* document = nullptr;
         int length = 0;
         const int result = dll.SupportedMiddlewareDetection(&document, &length, logFile);
         return printDocument(dll, result, document);
     }},
    {{"middleware", "--table"},
     0,
     [](const ZelPlatformExportedInterface& dll, const Arguments&, const char* logFile) {
         char* document = nullptr;
         int length = 0;
         const int result = dll.SupportedMiddlewareDetection(&document, &length, logFile);
         if (document != nullptr) {
             std::fputs(TqFormatMiddlewareTable(document).c_str(), stdout);
             dll.FreeStringData(&document);
         }
         return result;
     }},
    {{"oberthur"},
     0,
     [](const ZelPlatformExportedInterface& dll, const Arguments&, const char* logFile) {
         char* record = nullptr;
         int length = 0;
         const int result = dll.OberthurMiddlewareDetection(&record, &length, logFile);
         return printDocument(dll, result, record);
     },
     1},
    {{"atr", "get"},
     0,
     [](const ZelPlatformExportedInterface& dll, const Arguments&, const char* logFile) {
         char* middleware = nullptr;
         int length = 0;
         const int result = dll.GetATRMiddlewareDetection(&middleware, &length, logFile);
         return printAnswer(dll, result, middleware);
     }},
    {{"atr", "set"},
     1,
     [](const ZelPlatformExportedInterface& dll, const Arguments& arguments, const char* logFile) {
         return dll.SetATRMiddlewareDetection(arguments[0].c_str(), logFile);
     }},
};

int usageError(const char* problem) {
    std::fprintf(stderr, "zelplat: %s\n\n%s", problem, kUsage);
    return kUsageError;
}

std::string dllPathBesideThisProgram() {
    char path[MAX_PATH * 4];
    const DWORD length = ::GetModuleFileNameA(nullptr, path, sizeof path);
    std::string folder(path, length);
    folder.erase(folder.find_last_of("\\/") + 1);
    return folder + "ZelPlatformMethods64.dll";
}

} // namespace

int main(int argc, char** argv) {
    Arguments words(argv + 1, argv + argc);
    std::string logFile;
    bool haveLogFile = false;
    if (!words.empty() && words[0] == "--help") {
        std::fputs(kUsage, stdout);
        return 0;
    }
    if (!words.empty() && words[0] == "--log") {
        if (words.size() < 2) {
            return usageError("--log needs a file name");
        }
        logFile = words[1];
        haveLogFile = true;
        words.erase(words.begin(), words.begin() + 2);
    }

    const Command* command = nullptr;
    for (const Command& candidate : kCommands) {
        const std::size_t count = candidate.words.size();
        if (words.size() == count + candidate.argumentCount &&
            std::equal(candidate.words.begin(), candidate.words.end(), words.begin())) {
            command = &candidate;
            break;
        }
    }
    if (command == nullptr) {
        return usageError(words.empty() ? "no command given" : "unknown command or arguments");
    }

    const std::string dllPath = dllPathBesideThisProgram();
    const TqUniqueModule dll(::LoadLibraryA(dllPath.c_str()));
    if (!dll) {
        std::fprintf(stderr, "zelplat: cannot load %s (Windows error %lu)\n", dllPath.c_str(),
                     static_cast<unsigned long>(::GetLastError()));
        return kLoadFailed;
    }
    const auto getInterface = reinterpret_cast<ZelPlatformGetExportedInterfaceFn>(
        reinterpret_cast<void*>(::GetProcAddress(dll.get(), "ZelPlatformGetExportedInterface")));
    ZelPlatformExportedInterface table{};
    if (getInterface == nullptr || getInterface(&table) != 0) {
        std::fprintf(stderr, "zelplat: %s has no usable ZelPlatformGetExportedInterface\n",
                     dllPath.c_str());
        return kLoadFailed;
    }

    const Arguments arguments(words.begin() + static_cast<long>(command->words.size()),
                              words.end());
    const int result = command->run(table, arguments, haveLogFile ? logFile.c_str() : nullptr);
    std::fflush(stdout);
    if (result < 0 || result > command->highestAnswer) {
        std::fprintf(stderr, "zelplat: %s\n", TqGetCommonResultText(result).c_str());
    }
    return result;
}
