#include "library/LibraryCommands.h"

#include "library/IdentityAgentTable.h"
#include "library/MiddlewareTable.h"
#include "common/PlatformDll.h"
#include "common/ExitCodes.h"
#include "base/TqResultCodes.h"

#include <algorithm>
#include <cctype>
#include <cstring>
#include <cstdio>

struct LibraryCommand {
    std::vector<const char*> words;
    std::size_t argumentCount;
    Outcome (*run)(const ZelPlatformExportedInterface& dll, const Arguments& arguments,
                   const char* logFile);
    // Results from 0 up to this one are answers, not failures: nothing to explain.
    int highestAnswer = 0;
    // The words the argument may be, in the library's own spelling; empty: any text.
    std::vector<const char*> choices = {};
};

namespace {

using Command = LibraryCommand;

// The text as printed lines: a line end after it unless it has its own.
std::string asLines(std::string text) {
    if (!text.empty() && text.back() != '\n') {
        text += '\n';
    }
    return text;
}

// A query whose answer is one text, printed as it is.
template <typename Query> Outcome textAnswer(const ZelPlatformExportedInterface& dll, Query query) {
    Outcome outcome = AskForText(dll, query);
    outcome.answer = asLines(outcome.answer);
    return outcome;
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
     },
     0,
     {"AGILE", "COMPATIBILITY"}},
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
     },
     0,
     {"GEMSAFE", "PIVMINIDRIVER"}},
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

} // namespace

bool SameWord(const std::string& typed, const char* word) {
    return std::equal(typed.begin(), typed.end(), word, word + std::strlen(word),
                      [](char a, char b) {
                          return std::toupper(static_cast<unsigned char>(a)) ==
                                 std::toupper(static_cast<unsigned char>(b));
                      });
}

const LibraryCommand* FindLibraryCommand(const Arguments& words) {
    for (const Command& candidate : kCommands) {
        const std::size_t count = candidate.words.size();
        if (words.size() == count + candidate.argumentCount &&
            std::equal(
                candidate.words.begin(), candidate.words.end(), words.begin(),
                [](const char* word, const std::string& typed) { return SameWord(typed, word); })) {
            return &candidate;
        }
    }
    return nullptr;
}

int RunLibraryCommand(const LibraryCommand& command, const Arguments& words, const char* logFile) {
    const PlatformDll dll;
    if (!dll.loaded()) {
        return tq::kLoadFailed;
    }
    Arguments arguments(words.begin() + static_cast<long>(command.words.size()), words.end());
    if (!command.choices.empty()) {
        // A word in any letter case; the library gets its own spelling.
        const auto chosen =
            std::find_if(command.choices.begin(), command.choices.end(),
                         [&](const char* word) { return SameWord(arguments[0], word); });
        if (chosen == command.choices.end()) {
            std::string words;
            for (const char* word : command.choices) {
                words += words.empty() ? word : std::string(", ") + word;
            }
            std::fprintf(stderr, "zelplat: %s %s: '%s' is not one of the words %s\n",
                         command.words[0], command.words[1], arguments[0].c_str(), words.c_str());
            return zelexit::kUsageError;
        }
        arguments[0] = *chosen;
    }
    Outcome outcome;
    {
        const LibraryConsole libraryLines;
        outcome = command.run(dll.api(), arguments, logFile);
    }
    std::fputs(outcome.answer.c_str(), stdout);
    std::fflush(stdout);
    if (outcome.result < 0 || outcome.result > command.highestAnswer) {
        std::fprintf(stderr, "zelplat: %s\n", TqGetCommonResultText(outcome.result).c_str());
    }
    return outcome.result;
}
