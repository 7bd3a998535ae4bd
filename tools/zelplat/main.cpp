// zelplat: asks ZelPlatformMethods64.dll the workstation questions, the way the client does.
#include <windows.h>

#include "ZelPlatformMethods64.h"
#include "hostutil/TqUniqueResource.h"
#include "platform/TqResultCodes.h"

#include <cstdio>
#include <cstring>
#include <io.h>
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
    "  ia                                   the Identity Agent document (JSON)\n"
    "  ia --table                           the Identity Agent and its spring check, readable\n"
    "  ia spring-check off|default          switch the spring check off for this user, or\n"
    "                                       back to the agent's default\n"
    "\n"
    "options:\n"
    "  --log FILE   append the library's log lines to FILE\n"
    "  --help       show this text\n"
    "\n"
    "The answer goes to standard output; the library's own progress lines and an explanation\n"
    "of a failure go to standard error, and the result code is the exit code.\n";

using Arguments = std::vector<std::string>;

struct Command {
    std::vector<const char*> words;
    std::size_t argumentCount;
    int (*run)(const ZelPlatformExportedInterface& dll, const Arguments& arguments,
               const char* logFile);
};

// Prints a text answer that the library handed out and gives it back to the library.
int printAnswer(const ZelPlatformExportedInterface& dll, int result, char* text) {
    if (text != nullptr) {
        std::printf("%s\n", text);
        dll.FreeStringData(&text);
    }
    return result;
}

// While it lives, what the library writes to standard output goes to standard error, so that
// standard output carries the answer alone (a script can parse the document).
class LibraryLinesToStandardError {
public:
    LibraryLinesToStandardError() : savedOutput_(_dup(1)) {
        std::fflush(stdout);
        if (savedOutput_ != -1) {
            _dup2(2, 1);
        }
    }
    ~LibraryLinesToStandardError() {
        std::fflush(stdout);
        if (savedOutput_ != -1) {
            _dup2(savedOutput_, 1);
            _close(savedOutput_);
        }
    }
    LibraryLinesToStandardError(const LibraryLinesToStandardError&) = delete;
    LibraryLinesToStandardError& operator=(const LibraryLinesToStandardError&) = delete;

private:
    int savedOutput_;
};

// The Identity Agent document, or null (with the result) when the library gave none.
int detectIdentityAgent(const ZelPlatformExportedInterface& dll, const char* logFile,
                        char** document) {
    const LibraryLinesToStandardError libraryLines;
    int length = 0;
    return dll.DetectIdentityAgent(document, &length, logFile);
}

// The text of "key": "text" in the document; every value of it is a string without quotes.
std::string documentValue(const std::string& document, const char* key) {
    const std::string opening = std::string("\"") + key + "\": \"";
    const std::size_t start = document.find(opening);
    if (start == std::string::npos) {
        return "";
    }
    const std::size_t from = start + opening.size();
    const std::size_t end = document.find('"', from);
    return end == std::string::npos ? "" : document.substr(from, end - from);
}

// "true"/"false"/"unknown" as support staff say it.
std::string yesNo(const std::string& flag, const char* yes = "yes") {
    if (flag == "true") {
        return yes;
    }
    return flag == "false" ? "no" : flag;
}

void printIdentityAgentTable(const std::string& document) {
    const std::string agent = documentValue(document, "name");
    const bool found = agent != "unknown";
    const std::string restarted = documentValue(document, "hasRebooted");
    // maxVersion holds the major number, minVersion the minor one.
    const std::string rows[][2] = {
        {"Agent", found ? agent : "none installed and running"},
        {"Version",
         found ? documentValue(document, "maxVersion") + "." + documentValue(document, "minVersion")
               : "-"},
        {"Spring check", documentValue(document, "status")},
        {"Locked", yesNo(documentValue(document, "locked"), "yes (machine-wide or policy value)")},
        {"ZelCheck set", yesNo(documentValue(document, "zelSet"))},
        {"Restarted since", restarted == "pending"
                                ? "no (the switch waits for the agent to restart)"
                                : yesNo(restarted)},
    };
    for (const auto& row : rows) {
        std::printf("%-17s%s\n", (row[0] + ":").c_str(), row[1].c_str());
    }
}

int switchSpringCheck(const ZelPlatformExportedInterface& dll, unsigned char enable,
                      const char* logFile) {
    const LibraryLinesToStandardError libraryLines;
    return dll.SetIdentityAgentSpringCheck(enable, logFile);
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
    {{"ia"},
     0,
     [](const ZelPlatformExportedInterface& dll, const Arguments&, const char* logFile) {
         char* document = nullptr;
         const int result = detectIdentityAgent(dll, logFile, &document);
         return printAnswer(dll, result, document);
     }},
    {{"ia", "--table"},
     0,
     [](const ZelPlatformExportedInterface& dll, const Arguments&, const char* logFile) {
         char* document = nullptr;
         const int result = detectIdentityAgent(dll, logFile, &document);
         if (document != nullptr) {
             printIdentityAgentTable(document);
             dll.FreeStringData(&document);
         }
         return result;
     }},
    {{"ia", "spring-check", "off"},
     0,
     [](const ZelPlatformExportedInterface& dll, const Arguments&, const char* logFile) {
         return switchSpringCheck(dll, 0, logFile);
     }},
    {{"ia", "spring-check", "default"},
     0,
     [](const ZelPlatformExportedInterface& dll, const Arguments&, const char* logFile) {
         return switchSpringCheck(dll, 1, logFile);
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
    if (result != 0) {
        std::fprintf(stderr, "zelplat: %s\n", TqGetCommonResultText(result).c_str());
    }
    return result;
}
