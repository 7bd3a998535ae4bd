// zelplat: asks ZelPlatformMethods64.dll the workstation questions, the way the client does.
#include <windows.h>

#include "IdentityAgentTable.h"
#include "MiddlewareTable.h"
#include "ZelPlatformMethods64.h"
#include "ZelVersion.h"
#include "base/TqUniqueResource.h"
#include "base/TqResultCodes.h"

#include <algorithm>
#include <cstdio>
#include <io.h>
#include <string>
#include <vector>

namespace {

constexpr int kUsageError = tq::kInvalidArguments;
constexpr int kLoadFailed = tq::kLoadFailed;

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
    "  ia                                   the Identity Agent document (JSON); exit 0 whether\n"
    "                                       or not an agent runs, non-zero when the detection\n"
    "                                       failed\n"
    "  ia --table                           the Identity Agent and its spring check, readable\n"
    "  ia spring-check off|default          switch the spring check off for this user, or\n"
    "                                       back to the agent's default\n"
    "\n"
    "options:\n"
    "  --log FILE   append the library's log lines to FILE\n"
    "  --help       show this text\n"
    "  --version    show zelplat's version\n"
    "\n"
    "The answer goes to standard output, and nothing else does: the library's own progress\n"
    "lines go to standard error. A failure is explained on standard error and its result\n"
    "code is the exit code.\n";

using Arguments = std::vector<std::string>;

// What a command got from the library: its result and the text to print.
struct Outcome {
    int result = 0;
    std::string answer;
};

struct Command {
    std::vector<const char*> words;
    std::size_t argumentCount;
    Outcome (*run)(const ZelPlatformExportedInterface& dll, const Arguments& arguments,
                   const char* logFile);
    // Results from 0 up to this one are answers, not failures: nothing to explain.
    int highestAnswer = 0;
};

// Takes over a text the library handed out and gives the buffer back to the library.
std::string takeText(const ZelPlatformExportedInterface& dll, char* text) {
    std::string copy = text != nullptr ? text : "";
    dll.FreeStringData(&text);
    return copy;
}

// The text as printed lines: a line end after it unless it has its own.
std::string asLines(std::string text) {
    if (!text.empty() && text.back() != '\n') {
        text += '\n';
    }
    return text;
}

// DetectIdentityAgent's answers, found (1) and nothing found (0), are both the tool's success:
// the document says which. Only a failed detection is a failure of the command.
Outcome agentAnswer(Outcome outcome) {
    constexpr int kAgentFound = 1;
    if (outcome.result == kAgentFound) {
        outcome.result = 0;
    }
    return outcome;
}

// A query whose answer is one text, printed as it is.
template <typename Query> Outcome textAnswer(const ZelPlatformExportedInterface& dll, Query query) {
    char* text = nullptr;
    int length = 0;
    Outcome outcome;
    outcome.result = query(&text, &length);
    outcome.answer = asLines(takeText(dll, text));
    return outcome;
}

const Command kCommands[] = {
    {{"enrollment", "get"},
     0,
     [](const ZelPlatformExportedInterface& dll, const Arguments&, const char* logFile) {
         return textAnswer(dll, [&](char** text, int* length) {
             return dll.GetEnrollmentMode(text, length, logFile);
         });
     }},
    {{"enrollment", "set"},
     1,
     [](const ZelPlatformExportedInterface& dll, const Arguments& arguments, const char* logFile) {
         return Outcome{dll.SwitchEnrollmentMode(arguments[0].c_str(), logFile), {}};
     }},
    {{"file-version"},
     1,
     [](const ZelPlatformExportedInterface& dll, const Arguments& arguments, const char* logFile) {
         return textAnswer(dll, [&](char** text, int* length) {
             return dll.GetFileVersion(arguments[0].c_str(), text, length, logFile);
         });
     }},
    {{"middleware"},
     0,
     [](const ZelPlatformExportedInterface& dll, const Arguments&, const char* logFile) {
         return textAnswer(dll, [&](char** text, int* length) {
             return dll.SupportedMiddlewareDetection(text, length, logFile);
         });
     }},
    {{"middleware", "--table"},
     0,
     [](const ZelPlatformExportedInterface& dll, const Arguments&, const char* logFile) {
         Outcome outcome = textAnswer(dll, [&](char** text, int* length) {
             return dll.SupportedMiddlewareDetection(text, length, logFile);
         });
         if (!outcome.answer.empty()) {
             outcome.answer = TqFormatMiddlewareTable(outcome.answer);
         }
         return outcome;
     }},
    {{"oberthur"},
     0,
     [](const ZelPlatformExportedInterface& dll, const Arguments&, const char* logFile) {
         return textAnswer(dll, [&](char** text, int* length) {
             return dll.OberthurMiddlewareDetection(text, length, logFile);
         });
     },
     1},
    {{"atr", "get"},
     0,
     [](const ZelPlatformExportedInterface& dll, const Arguments&, const char* logFile) {
         return textAnswer(dll, [&](char** text, int* length) {
             return dll.GetATRMiddlewareDetection(text, length, logFile);
         });
     }},
    {{"atr", "set"},
     1,
     [](const ZelPlatformExportedInterface& dll, const Arguments& arguments, const char* logFile) {
         return Outcome{dll.SetATRMiddlewareDetection(arguments[0].c_str(), logFile), {}};
     }},
    {{"ia"},
     0,
     [](const ZelPlatformExportedInterface& dll, const Arguments&, const char* logFile) {
         return agentAnswer(textAnswer(dll, [&](char** text, int* length) {
             return dll.DetectIdentityAgent(text, length, logFile);
         }));
     }},
    {{"ia", "--table"},
     0,
     [](const ZelPlatformExportedInterface& dll, const Arguments&, const char* logFile) {
         Outcome outcome = textAnswer(dll, [&](char** text, int* length) {
             return dll.DetectIdentityAgent(text, length, logFile);
         });
         if (!outcome.answer.empty()) {
             outcome.answer = TqFormatIdentityAgentTable(outcome.answer);
         }
         return agentAnswer(outcome);
     }},
    {{"ia", "spring-check", "off"},
     0,
     [](const ZelPlatformExportedInterface& dll, const Arguments&, const char* logFile) {
         return Outcome{dll.SetIdentityAgentSpringCheck(0, logFile), {}};
     }},
    {{"ia", "spring-check", "default"},
     0,
     [](const ZelPlatformExportedInterface& dll, const Arguments&, const char* logFile) {
         return Outcome{dll.SetIdentityAgentSpringCheck(1, logFile), {}};
     }},
};

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

const Command* findCommand(const Arguments& words) {
    for (const Command& candidate : kCommands) {
        const std::size_t count = candidate.words.size();
        if (words.size() == count + candidate.argumentCount &&
            std::equal(candidate.words.begin(), candidate.words.end(), words.begin())) {
            return &candidate;
        }
    }
    return nullptr;
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
    if (!words.empty() && words[0] == "--version") {
        std::fputs("zelplat " ZEL_VERSION_TEXT "\n", stdout);
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
    const Command* command = findCommand(words);
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
    Outcome outcome;
    {
        const LibraryLinesToStandardError libraryLines;
        outcome = command->run(table, arguments, haveLogFile ? logFile.c_str() : nullptr);
    }
    std::fputs(outcome.answer.c_str(), stdout);
    std::fflush(stdout);
    if (outcome.result < 0 || outcome.result > command->highestAnswer) {
        std::fprintf(stderr, "zelplat: %s\n", TqGetCommonResultText(outcome.result).c_str());
    }
    return outcome.result;
}
