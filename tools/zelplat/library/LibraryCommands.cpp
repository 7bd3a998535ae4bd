#include "library/LibraryCommands.h"

#include "library/IdentityAgentTable.h"
#include "library/MiddlewareTable.h"
#include "common/PlatformDll.h"
#include "common/ExitCodes.h"
#include "base/TqResultCodes.h"

#include <algorithm>
#include <cstdio>
#include <iterator>

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

bool IsLibraryCommandWord(const std::string& word) {
    return std::any_of(std::begin(kCommands), std::end(kCommands),
                       [&](const Command& command) { return SameWord(word, command.words[0]); });
}

namespace {

bool matchesFirst(const Command& command, const Arguments& words, std::size_t count) {
    return words.size() >= count && command.words.size() >= count &&
           std::equal(command.words.begin(), command.words.begin() + static_cast<long>(count),
                      words.begin(), [](const char* word, const std::string& typed) {
                          return SameWord(typed, word);
                      });
}

// The argument as the usage names it.
std::string argumentName(const Command& command) {
    if (command.choices.empty()) {
        return "PATH";
    }
    std::string name;
    for (const char* word : command.choices) {
        name += name.empty() ? word : std::string("|") + word;
    }
    return name;
}

// Which word of the line is wrong, or which piece is missing, after the longest run of words
// some command starts with.
std::string lineProblem(const Arguments& words) {
    std::size_t matched = 1;
    while (std::any_of(std::begin(kCommands), std::end(kCommands), [&](const Command& command) {
        return matchesFirst(command, words, matched + 1);
    })) {
        ++matched;
    }
    std::string said;
    for (std::size_t at = 0; at < matched; ++at) {
        said += (at == 0 ? "" : " ") + words[at];
    }
    // What may follow the words matched so far: the next word of a longer command, or a
    // command's argument.
    std::vector<std::string> next;
    bool complete = false; // the words matched are a command of their own
    bool nextWord = false; // a word of a longer command may follow, not only an argument
    for (const Command& command : kCommands) {
        if (!matchesFirst(command, words, matched)) {
            continue;
        }
        std::string piece;
        if (command.words.size() > matched) {
            piece = command.words[matched];
            nextWord = true;
        } else if (command.argumentCount > 0) {
            piece = argumentName(command);
        } else {
            complete = true;
        }
        if (!piece.empty() && std::find(next.begin(), next.end(), piece) == next.end()) {
            next.push_back(piece);
        }
    }
    std::string expected;
    for (const std::string& piece : next) {
        expected += (expected.empty() ? "" : " or ") + piece;
    }
    if (words.size() == matched) {
        return said + ": " + expected + " missing";
    }
    if (next.empty()) {
        return said + ": unexpected word '" + words[matched] + "'";
    }
    if (!nextWord) {
        // The argument was given; what follows it is one word too many.
        return said + " " + words[matched] + ": unexpected word '" + words[matched + 1] + "'";
    }
    return said + ": unknown word '" + words[matched] + "' (" + expected +
           (complete ? ", or nothing" : "") + " expected)";
}

} // namespace

const LibraryCommand* FindLibraryCommand(const Arguments& words, std::string& problem) {
    for (const Command& candidate : kCommands) {
        const std::size_t count = candidate.words.size();
        if (words.size() == count + candidate.argumentCount &&
            matchesFirst(candidate, words, count)) {
            return &candidate;
        }
    }
    problem = words.empty() ? "no command given" : lineProblem(words);
    return nullptr;
}

int RunLibraryCommand(const LibraryCommand& command, const Arguments& words, const char* logFile) {
    const PlatformDll dll;
    if (!dll.loaded()) {
        return zelexit::kLibraryNotLoaded;
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
    if (outcome.result >= 0 && outcome.result <= command.highestAnswer) {
        return zelexit::kHealthy;
    }
    std::fprintf(stderr, "zelplat: %s\n", TqGetCommonResultText(outcome.result).c_str());
    return zelexit::OfLibraryFailure(outcome.result);
}
