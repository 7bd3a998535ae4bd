#include "doctor/DoctorCommand.h"

#include "doctor/Doctor.h"
#include "report/ReportTable.h"
#include "commandline/Usage.h"
#include "base/TqResultCodes.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <io.h>

namespace {

constexpr int kNothingFound = 0;
constexpr int kWarningsOnly = 1;
constexpr int kProblemsFound = 2;

// Severity words in colour only for a person at a console, never into a file or a pipe.
bool colourWanted() {
    return _isatty(_fileno(stdout)) != 0 && std::getenv("NO_COLOR") == nullptr;
}

std::string severityWord(const std::string& severity, bool colour) {
    std::string word = severity == "problem" ? "PROBLEM" : "WARNING";
    if (!colour) {
        return word;
    }
    return (severity == "problem" ? "\x1b[31m" : "\x1b[33m") + word + "\x1b[0m";
}

std::string factText(const ReportJson& value) {
    return value.is_string() ? value.get<std::string>()
                             : value.dump(-1, ' ', false, nlohmann::json::error_handler_t::replace);
}

std::string findingText(const Finding& finding, bool colour) {
    std::string text = severityWord(finding.severity, colour) + "  " + finding.rule + "\n  " +
                       finding.summary + "\n  facts:\n";
    std::vector<std::vector<std::string>> facts;
    for (auto fact = finding.facts.begin(); fact != finding.facts.end(); ++fact) {
        facts.push_back({"   ", fact.key(), factText(fact.value())});
    }
    text += AlignedColumns(facts);
    return text + "  fix:   " + finding.fix + "\n\n";
}

std::string summaryLine(std::size_t problems, std::size_t warnings) {
    if (problems + warnings == 0) {
        return "doctor: nothing wrong found\n";
    }
    return "doctor: " + std::to_string(problems) + (problems == 1 ? " problem, " : " problems, ") +
           std::to_string(warnings) + (warnings == 1 ? " warning\n" : " warnings\n");
}

ReportJson findingsJson(const std::vector<Finding>& findings, std::size_t problems) {
    ReportJson list = ReportJson::array();
    for (const Finding& finding : findings) {
        list.push_back(ReportJson{{"rule", finding.rule},
                                  {"severity", finding.severity},
                                  {"summary", finding.summary},
                                  {"facts", finding.facts},
                                  {"fix", finding.fix}});
    }
    return ReportJson{
        {"problems", problems}, {"warnings", findings.size() - problems}, {"findings", list}};
}

struct DoctorOptions {
    bool json = false;
    bool fix = false;
    bool yes = false;
    bool dryRun = false;
};

// A fix zelplat applies itself: one of the library's switches, with its exact word.
struct AutomaticFix {
    const char* command; // as the rules name it
    int (*apply)(const ZelPlatformExportedInterface& dll, const char* logFile);
};

const AutomaticFix kAutomaticFixes[] = {
    {"zelplat atr set PIVMINIDRIVER",
     [](const ZelPlatformExportedInterface& dll, const char* logFile) {
         return dll.SetATRMiddlewareDetection("PIVMINIDRIVER", logFile);
     }},
    {"zelplat atr set GEMSAFE",
     [](const ZelPlatformExportedInterface& dll, const char* logFile) {
         return dll.SetATRMiddlewareDetection("GEMSAFE", logFile);
     }},
    {"zelplat enrollment set AGILE",
     [](const ZelPlatformExportedInterface& dll, const char* logFile) {
         return dll.SwitchEnrollmentMode("AGILE", logFile);
     }},
    {"zelplat enrollment set COMPATIBILITY",
     [](const ZelPlatformExportedInterface& dll, const char* logFile) {
         return dll.SwitchEnrollmentMode("COMPATIBILITY", logFile);
     }},
    {"zelplat ia spring-check off",
     [](const ZelPlatformExportedInterface& dll, const char* logFile) {
         return dll.SetIdentityAgentSpringCheck(0, logFile);
     }},
    {"zelplat ia spring-check default",
     [](const ZelPlatformExportedInterface& dll, const char* logFile) {
         return dll.SetIdentityAgentSpringCheck(1, logFile);
     }},
};

const AutomaticFix* automaticFix(const std::string& fix) {
    for (const AutomaticFix& candidate : kAutomaticFixes) {
        if (fix == candidate.command) {
            return &candidate;
        }
    }
    return nullptr;
}

// A person says yes at the prompt; no answer (no console, end of input) is no.
bool confirmed(std::FILE* out) {
    std::fputs("  apply it? [y/N] ", out);
    std::fflush(out);
    char answer[16] = {};
    if (std::fgets(answer, sizeof answer, stdin) == nullptr) {
        std::fputs("\n", out);
        return false;
    }
    return answer[0] == 'y' || answer[0] == 'Y';
}

// Applies the fixes the findings name, each once, as the options say. The lines go to out.
void applyFixes(const PlatformDll& dll, const std::vector<Finding>& findings,
                const DoctorOptions& options, const char* logFile, std::FILE* out) {
    std::vector<std::string> done;
    for (const Finding& finding : findings) {
        const AutomaticFix* fix = automaticFix(finding.fix);
        if (fix == nullptr) {
            std::fprintf(out, "fix %s: zelplat cannot do this itself: %s\n", finding.rule.c_str(),
                         finding.fix.c_str());
            continue;
        }
        std::fprintf(out, "fix %s: %s\n", finding.rule.c_str(), finding.fix.c_str());
        if (std::find(done.begin(), done.end(), finding.fix) != done.end()) {
            std::fputs("  the same fix as above\n", out);
            continue;
        }
        done.push_back(finding.fix);
        if (options.dryRun) {
            std::fputs("  not applied (--dry-run)\n", out);
            continue;
        }
        if (!options.yes && !confirmed(out)) {
            std::fputs("  not applied\n", out);
            continue;
        }
        int result = 0;
        {
            const LibraryConsole libraryLines;
            result = fix->apply(dll.api(), logFile);
        }
        if (result == 0) {
            std::fputs("  applied\n", out);
        } else {
            std::fprintf(out, "  failed: %s\n", TqGetCommonResultText(result).c_str());
        }
    }
    std::fputs("\n", out);
    std::fflush(out);
}

bool readDoctorOptions(const Arguments& arguments, DoctorOptions& options, std::string& unknown) {
    for (const std::string& argument : arguments) {
        if (argument == "--json") {
            options.json = true;
        } else if (argument == "--fix") {
            options.fix = true;
        } else if (argument == "--yes") {
            options.yes = true;
        } else if (argument == "--dry-run") {
            options.dryRun = true;
        } else {
            unknown = argument;
            return false;
        }
    }
    if ((options.yes || options.dryRun) && !options.fix) {
        unknown = options.yes ? "--yes" : "--dry-run";
        return false;
    }
    return true;
}

} // namespace

int RunDoctorCommand(const Arguments& arguments, const char* logFile) {
    DoctorOptions options;
    std::string unknown;
    if (!readDoctorOptions(arguments, options, unknown)) {
        return CommandUsageError("doctor", "doctor: unknown option '" + unknown + "'");
    }
    const bool json = options.json;
    const PlatformDll dll;
    if (!dll.loaded()) {
        return tq::kLoadFailed;
    }
    std::vector<Finding> findings = DiagnoseReport(BuildReport(dll, logFile));
    if (options.fix) {
        // With --json the document alone goes to standard output.
        applyFixes(dll, findings, options, logFile, json ? stderr : stdout);
        if (!options.dryRun) {
            findings = DiagnoseReport(BuildReport(dll, logFile));
        }
    }
    std::size_t problems = 0;
    for (const Finding& finding : findings) {
        problems += finding.severity == "problem" ? 1 : 0;
    }
    if (json) {
        std::fputs(ReportText(findingsJson(findings, problems)).c_str(), stdout);
    } else {
        const bool colour = colourWanted();
        for (const Finding& finding : findings) {
            std::fputs(findingText(finding, colour).c_str(), stdout);
        }
        std::fputs(summaryLine(problems, findings.size() - problems).c_str(), stdout);
    }
    if (problems > 0) {
        return kProblemsFound;
    }
    return findings.empty() ? kNothingFound : kWarningsOnly;
}
