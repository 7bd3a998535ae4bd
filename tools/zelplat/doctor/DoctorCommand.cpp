#include "doctor/DoctorCommand.h"

#include "doctor/Doctor.h"
#include "report/ReportTable.h"
#include "commandline/Usage.h"
#include "base/TqResultCodes.h"

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

} // namespace

int RunDoctorCommand(const Arguments& arguments, const char* logFile) {
    const bool json = arguments.size() == 1 && arguments[0] == "--json";
    if (!arguments.empty() && !json) {
        return CommandUsageError("doctor", "doctor: unknown option '" + arguments[0] + "'");
    }
    const PlatformDll dll;
    if (!dll.loaded()) {
        return tq::kLoadFailed;
    }
    const std::vector<Finding> findings = DiagnoseReport(BuildReport(dll, logFile));
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
