// zelplat: asks ZelPlatformMethods64.dll the workstation questions, the way the client does.
#include "card/CardCommands.h"
#include "doctor/DoctorCommand.h"
#include "library/LibraryCommands.h"
#include "report/ReportCommand.h"
#include "commandline/Usage.h"
#include "common/ExitCodes.h"
#include "common/GuardedFiles.h"
#include "common/PlatformDll.h"
#include "base/TqResultCodes.h"
#include "ZelVersion.h"

#include <windows.h>

#include <cstdio>
#include <string>

namespace {

// The commands that take their own options; the rest ask one export each.
struct CommandGroup {
    const char* word;
    int (*run)(const Arguments& arguments, const char* logFile);
};

const CommandGroup kGroups[] = {
    {"report", RunReportCommand},
    {"doctor", RunDoctorCommand},
    {"card", RunCardCommand},
};

int help(const Arguments& words) {
    if (words.size() == 1) {
        PrintUsage();
        return 0;
    }
    if (words.size() == 2 && PrintCommandHelp(words[1])) {
        return 0;
    }
    return UsageError("no help for that: zelplat help COMMAND");
}

int run(const Arguments& words, const char* logFile) {
    // The library appends to the log by name, following what the name leads to: only an
    // ordinary file, or none yet, is handed over.
    if (logFile != nullptr) {
        const std::string problem = LogFileProblem(logFile);
        if (!problem.empty()) {
            std::fprintf(stderr, "zelplat: cannot log to %s: %s\n", logFile, problem.c_str());
            return zelexit::kCannotWrite;
        }
    }
    if (words.empty()) {
        return UsageError("no command given");
    }
    if (words[0] == "help") {
        return help(words);
    }
    if (words.size() == 2 && words[1] == "--help" && PrintCommandHelp(words[0])) {
        return 0;
    }
    for (const CommandGroup& group : kGroups) {
        if (words[0] == group.word) {
            return group.run(Arguments(words.begin() + 1, words.end()), logFile);
        }
    }
    const LibraryCommand* command = FindLibraryCommand(words);
    if (command == nullptr) {
        return UsageError("unknown command or arguments");
    }
    return RunLibraryCommand(*command, words, logFile);
}

} // namespace

int main(int argc, char** argv) {
    // Before anything can load a DLL: System32 only, never the folder zelplat runs from (a
    // downloads folder or a share where anyone may have left a version.dll). Every import that is
    // not a KnownDLL is delay-loaded, so nothing was mapped along the default order before this.
    ::SetDefaultDllDirectories(LOAD_LIBRARY_SEARCH_SYSTEM32);
    EnforceRedirectionTrust();
    Arguments words(argv + 1, argv + argc);
    if (!words.empty() && words[0] == "--help") {
        PrintUsage();
        return 0;
    }
    if (!words.empty() && words[0] == "--version") {
        std::fputs("zelplat " ZEL_VERSION_TEXT "\n", stdout);
        return 0;
    }
    // The options before the command, in any order.
    std::string logFile;
    bool logGiven = false;
    for (;;) {
        if (!words.empty() && words[0] == "--log") {
            if (words.size() < 2) {
                return UsageError("--log needs a file name");
            }
            logFile = words[1];
            logGiven = true;
            words.erase(words.begin(), words.begin() + 2);
        } else if (!words.empty() && words[0] == "--verbose") {
            ShowLibraryLines(true);
            words.erase(words.begin());
        } else {
            break;
        }
    }
    return run(words, logGiven ? logFile.c_str() : nullptr);
}
