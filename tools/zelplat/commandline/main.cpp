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

// Options whose next word is their value: that word is never taken for an option of its own.
bool takesValue(const std::string& word) {
    for (const char* option : {"--output", "--undo", "--expect", "--only", "--skip", "--scope"}) {
        if (SameWord(word, option)) {
            return true;
        }
    }
    return false;
}

bool knownCommand(const std::string& word) {
    for (const CommandGroup& group : kGroups) {
        if (SameWord(word, group.word)) {
            return true;
        }
    }
    return IsLibraryCommandWord(word);
}

int help(const Arguments& words) {
    if (words.size() == 1) {
        PrintUsage();
        return 0;
    }
    if (words.size() == 2 && PrintCommandHelp(words[1])) {
        return 0;
    }
    return CommandUsageError("help", words.size() == 2 ? "help: no command '" + words[1] + "'"
                                                       : "help: one command expected");
}

int run(const Arguments& words, const char* logFile, bool helpAsked) {
    if (words.empty()) {
        if (helpAsked) {
            PrintUsage();
            return 0;
        }
        return UsageError("no command given");
    }
    if (SameWord(words[0], "help")) {
        return help(words);
    }
    if (!knownCommand(words[0])) {
        return UsageError("unknown command '" + words[0] + "'");
    }
    if (helpAsked) {
        PrintCommandHelp(words[0]);
        return 0;
    }
    // The library appends to the log by name, following what the name leads to: only an
    // ordinary file, or none yet, is handed over.
    if (logFile != nullptr) {
        const std::string problem = LogFileProblem(logFile);
        if (!problem.empty()) {
            std::fprintf(stderr, "zelplat: cannot log to %s: %s\n", logFile, problem.c_str());
            return zelexit::kCannotWrite;
        }
    }
    for (const CommandGroup& group : kGroups) {
        if (SameWord(words[0], group.word)) {
            return group.run(Arguments(words.begin() + 1, words.end()), logFile);
        }
    }
    std::string problem;
    const LibraryCommand* command = FindLibraryCommand(words, problem);
    if (command == nullptr) {
        return CommandUsageError(words[0], problem);
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
    const Arguments typed(argv + 1, argv + argc);
    if (typed.size() == 1 && SameWord(typed[0], "--version")) {
        std::fputs("zelplat " ZEL_VERSION_TEXT "\n", stdout);
        return 0;
    }
    // --log, --verbose and the help words anywhere on the line; the rest is the command's.
    Arguments words;
    std::string logFile;
    bool logGiven = false;
    bool helpAsked = false;
    for (std::size_t at = 0; at < typed.size(); ++at) {
        const std::string& word = typed[at];
        if (SameWord(word, "--log")) {
            if (at + 1 == typed.size() || logGiven) {
                return UsageError(logGiven ? "--log given twice" : "--log needs a file name");
            }
            logFile = typed[++at];
            logGiven = true;
        } else if (SameWord(word, "--verbose")) {
            ShowLibraryLines(true);
        } else if (IsHelpWord(word)) {
            helpAsked = true;
        } else {
            words.push_back(word);
            if (takesValue(word) && at + 1 < typed.size()) {
                words.push_back(typed[++at]);
            }
        }
    }
    return run(words, logGiven ? logFile.c_str() : nullptr, helpAsked);
}
