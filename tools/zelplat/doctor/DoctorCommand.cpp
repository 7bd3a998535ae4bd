#include "doctor/DoctorCommand.h"

#include "doctor/Doctor.h"
#include "doctor/DoctorJudgement.h"
#include "doctor/RepairRecord.h"
#include "doctor/RepairTestHook.h"
#include "report/ReportTable.h"
#include "commandline/Usage.h"
#include "common/ExitCodes.h"
#include "base/TqResultCodes.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <io.h>
#include <sstream>

namespace {

// The version of the --json document's shape (docs/doctor.schema.json).
constexpr int kDoctorSchemaVersion = 1;

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

struct DoctorOptions {
    bool json = false;
    bool fix = false;
    bool yes = false;
    bool dryRun = false;
    std::string scope; // "", "machine" or "user"
    std::string undo;  // the record to put back
    DoctorPolicy policy = DoctorPolicy::object();
    std::vector<std::string> only;
    std::vector<std::string> skip;
};

// "spring-check=default" and its like: the policy's words, as --expect and its file spell them.
bool takeExpectation(const std::string& key, const std::string& value, DoctorPolicy& policy) {
    const struct {
        const char* key;
        const char* member;
        const char* first;
        const char* second;
    } kKeys[] = {{"spring-check", "springCheck", "default", "off"},
                 {"applet", "applet", "AGILE", "COMPATIBILITY"},
                 {"minidriver", "minidriver", "GEMSAFE", "PIVMINIDRIVER"}};
    for (const auto& known : kKeys) {
        if (SameWord(key, known.key) &&
            (SameWord(value, known.first) || SameWord(value, known.second))) {
            policy[known.member] = SameWord(value, known.first) ? known.first : known.second;
            return true;
        }
    }
    return false;
}

// The rule's own spelling of a name typed in any letter case; empty when no rule has it.
std::string knownRule(const std::string& rule) {
    for (const std::string& name : DoctorRuleNames()) {
        if (SameWord(rule, name.c_str())) {
            return name;
        }
    }
    return "";
}

// --expect spring-check=default,applet=AGILE, or --expect FILE holding
// {"spring-check": "default", "applet": "AGILE", "minidriver": "GEMSAFE", "skip": [rules]}.
bool readExpectation(const std::string& argument, DoctorOptions& options) {
    if (argument.find('=') != std::string::npos) {
        std::size_t start = 0;
        while (start <= argument.size()) {
            const std::size_t comma = std::min(argument.find(',', start), argument.size());
            const std::string pair = argument.substr(start, comma - start);
            const std::size_t equals = pair.find('=');
            if (equals == std::string::npos ||
                !takeExpectation(pair.substr(0, equals), pair.substr(equals + 1), options.policy)) {
                return false;
            }
            start = comma + 1;
        }
        return true;
    }
    std::ifstream in(argument, std::ios::binary);
    std::stringstream text;
    text << in.rdbuf();
    const ReportJson file = ReportJson::parse(text.str(), nullptr, false);
    if (!in || !file.is_object()) {
        return false;
    }
    for (auto member = file.begin(); member != file.end(); ++member) {
        if (member.key() == "skip" && member.value().is_array()) {
            for (const ReportJson& rule : member.value()) {
                if (!rule.is_string() || knownRule(rule.get<std::string>()).empty()) {
                    return false;
                }
                options.skip.push_back(knownRule(rule.get<std::string>()));
            }
        } else if (!member.value().is_string() ||
                   !takeExpectation(member.key(), member.value().get<std::string>(),
                                    options.policy)) {
            return false;
        }
    }
    return true;
}

// The findings of the rules --only and --skip leave.
std::vector<Finding> selected(std::vector<Finding> findings, const DoctorOptions& options) {
    findings.erase(std::remove_if(findings.begin(), findings.end(),
                                  [&](const Finding& finding) {
                                      const auto named = [&](const std::vector<std::string>& list) {
                                          return std::find(list.begin(), list.end(),
                                                           finding.rule) != list.end();
                                      };
                                      return (!options.only.empty() && !named(options.only)) ||
                                             named(options.skip);
                                  }),
                   findings.end());
    return findings;
}

// A fix zelplat applies itself: one of the library's switches, with its exact word.
struct AutomaticFix {
    const char* command; // as the rules name it
    FixFamily family;
    int (*apply)(const ZelPlatformExportedInterface& dll, const char* logFile);
};

const AutomaticFix kAutomaticFixes[] = {
    {"zelplat atr set PIVMINIDRIVER", FixFamily::kAtr,
     [](const ZelPlatformExportedInterface& dll, const char* logFile) {
         return dll.SetATRMiddlewareDetection("PIVMINIDRIVER", logFile);
     }},
    {"zelplat atr set GEMSAFE", FixFamily::kAtr,
     [](const ZelPlatformExportedInterface& dll, const char* logFile) {
         return dll.SetATRMiddlewareDetection("GEMSAFE", logFile);
     }},
    {"zelplat enrollment set AGILE", FixFamily::kEnrollment,
     [](const ZelPlatformExportedInterface& dll, const char* logFile) {
         return dll.SwitchEnrollmentMode("AGILE", logFile);
     }},
    {"zelplat enrollment set COMPATIBILITY", FixFamily::kEnrollment,
     [](const ZelPlatformExportedInterface& dll, const char* logFile) {
         return dll.SwitchEnrollmentMode("COMPATIBILITY", logFile);
     }},
    {"zelplat ia spring-check off", FixFamily::kSpringCheck,
     [](const ZelPlatformExportedInterface& dll, const char* logFile) {
         return dll.SetIdentityAgentSpringCheck(0, logFile);
     }},
    {"zelplat ia spring-check default", FixFamily::kSpringCheck,
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

// Who may apply a finding's fix: a management tool runs the machine-wide ones as SYSTEM and the
// per-user ones as the user.
const char* fixScopeWord(const Finding& finding) {
    const AutomaticFix* fix = automaticFix(finding.fix);
    if (fix == nullptr) {
        return "by hand";
    }
    return ScopeOf(fix->family) == RepairScope::kMachine ? "machine-wide" : "per-user";
}

ReportJson findingsJson(const std::vector<Finding>& findings) {
    ReportJson list = ReportJson::array();
    for (const Finding& finding : findings) {
        list.push_back(ReportJson{{"rule", finding.rule},
                                  {"severity", finding.severity},
                                  {"summary", finding.summary},
                                  {"facts", finding.facts},
                                  {"fix", finding.fix},
                                  {"fixScope", fixScopeWord(finding)}});
    }
    return list;
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

// What the fixes left for the exit code, and the undo records written.
struct FixRun {
    int exitCode = zelexit::kHealthy;
    std::vector<std::string> records;
    void atLeast(int code) { exitCode = std::max(exitCode, code); }
};

bool accessDenied(const std::vector<KeyFailure>& failures) {
    return std::any_of(failures.begin(), failures.end(),
                       [](const KeyFailure& f) { return f.status == ERROR_ACCESS_DENIED; });
}

void printFailures(const char* lead, const std::vector<KeyFailure>& failures, std::FILE* out) {
    for (const KeyFailure& failure : failures) {
        std::fprintf(out, "  %s: %s %s\n", lead, failure.key.c_str(), failure.text.c_str());
    }
}

// Whether this process may not apply fixes of the scope; what it lacks is said, the keys it
// cannot open for writing named. Nothing is written.
bool refusedForRights(RepairScope scope, const std::vector<TouchedKey>& keys,
                      const ProcessAccount& account, std::FILE* out) {
    if (scope == RepairScope::kMachine && !RunsElevated()) {
        // A process that is not elevated cannot be made under Wine, where every one is.
        std::fputs("  refused: needs an administrator\n", out);
        return true;
    }
    if (scope == RepairScope::kUser) {
        const std::string reason = NotTheWorkstationUser(account);
        if (!reason.empty()) {
            std::fprintf(out, "  skipped: must run as the workstation's user: %s\n",
                         reason.c_str());
            return true;
        }
    }
    // The keys' own security decides even for an administrator.
    const std::vector<KeyFailure> failures = CheckWriteAccess(keys);
    if (failures.empty()) {
        return false;
    }
    printFailures("refused, nothing written", failures, out);
    return true;
}

// The values of the scope as they are now, or none when one cannot be read.
bool readScope(const std::vector<TouchedKey>& keys, std::vector<SavedKey>& saved, FixRun& run,
               std::FILE* out) {
    std::vector<KeyFailure> failures;
    saved = ReadTouchedKeys(keys, failures);
    if (failures.empty()) {
        return true;
    }
    std::fputs("undo record: not made, nothing applied\n", out);
    printFailures("unreadable", failures, out);
    run.atLeast(accessDenied(failures) ? zelexit::kAccessDenied : zelexit::kCannotWrite);
    return false;
}

std::string writeRecord(UndoRecord& record, const char* kind, FixRun& run, std::FILE* out) {
    std::string problem;
    std::string path = WriteUndoRecord(record, kind, problem);
    if (path.empty()) {
        std::fprintf(out, "undo record: cannot be written, nothing applied: %s\n", problem.c_str());
        run.atLeast(zelexit::kCannotWrite);
        return "";
    }
    std::fprintf(out, "undo record: %s\n", path.c_str());
    run.records.push_back(path);
    return path;
}

// Applies the fixes of one scope after their undo record is written; a fix that fails is put
// back as the record holds it.
void applyScope(const PlatformDll& dll, RepairScope scope,
                const std::vector<const AutomaticFix*>& approved, const ReportJson& findings,
                const ProcessAccount& account, const char* logFile, FixRun& run, std::FILE* out) {
    UndoRecord record;
    record.scope = scope;
    record.fixes = RecordJson::array();
    for (const AutomaticFix* fix : approved) {
        if (ScopeOf(fix->family) == scope) {
            record.fixes.push_back(fix->command);
        }
    }
    if (record.fixes.empty()) {
        return;
    }
    const std::vector<TouchedKey> keys = TouchedKeys(scope);
    if (!readScope(keys, record.keys, run, out)) {
        return;
    }
    record.time = UtcTimeText();
    record.computer = ComputerName();
    record.account = account;
    record.command = "doctor --fix";
    record.findings = findings;
    if (writeRecord(record, "fix", run, out).empty()) {
        return;
    }
    for (const AutomaticFix* fix : approved) {
        if (ScopeOf(fix->family) != scope) {
            continue;
        }
        int result = 0;
        {
            const FixFailureHookForTests hook(fix->family);
            const LibraryConsole libraryLines;
            result = fix->apply(dll.api(), logFile);
        }
        if (result == 0) {
            std::fprintf(out, "%s: applied\n", fix->command);
            continue;
        }
        std::fprintf(out, "%s: failed: %s\n", fix->command, TqGetCommonResultText(result).c_str());
        std::vector<SavedKey> touched;
        for (const SavedKey& key : record.keys) {
            if (key.key.family == fix->family) {
                touched.push_back(key);
            }
        }
        const std::vector<KeyFailure> failures = PutBack(touched);
        if (failures.empty()) {
            std::fputs("  put back as the undo record holds it: nothing of this fix is left\n",
                       out);
        } else {
            printFailures("not put back", failures, out);
            run.atLeast(accessDenied(failures) ? zelexit::kAccessDenied : zelexit::kProblems);
        }
    }
}

// Says for each finding what its fix needs and whether it is applied; then writes the undo
// record of each scope and applies the fixes. The lines go to out.
FixRun applyFixes(const PlatformDll& dll, const std::vector<Finding>& findings,
                  const DoctorOptions& options, const char* logFile, std::FILE* out) {
    FixRun run;
    const ProcessAccount account = CurrentAccount();
    std::vector<const AutomaticFix*> approved;
    std::vector<std::string> done;
    for (const Finding& finding : findings) {
        const AutomaticFix* fix = automaticFix(finding.fix);
        if (finding.fix.rfind(kNeedsAPerson, 0) == 0) {
            std::fprintf(out, "fix %s: %s\n", finding.rule.c_str(), finding.fix.c_str());
            continue;
        }
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
        const RepairScope scope = ScopeOf(fix->family);
        std::fputs(scope == RepairScope::kMachine
                       ? "  machine-wide: needs an administrator (or SYSTEM)\n"
                       : "  per-user: must run as the workstation's user\n",
                   out);
        if (!options.scope.empty() && options.scope != ScopeWord(scope)) {
            std::fprintf(out, "  left to the %s run (--scope %s)\n",
                         scope == RepairScope::kMachine ? "machine-wide" : "per-user",
                         options.scope.c_str());
            continue;
        }
        if (refusedForRights(scope, TouchedKeys(fix->family), account, out)) {
            run.atLeast(zelexit::kRefusedForRights);
            continue;
        }
        if (options.dryRun) {
            std::fputs("  not applied (--dry-run)\n", out);
            continue;
        }
        if (!options.yes && !confirmed(out)) {
            std::fputs("  not applied\n", out);
            continue;
        }
        approved.push_back(fix);
    }
    std::fputs("\n", out);
    const ReportJson listed = findingsJson(findings);
    for (const RepairScope scope : {RepairScope::kMachine, RepairScope::kUser}) {
        applyScope(dll, scope, approved, listed, account, logFile, run, out);
    }
    if (!approved.empty()) {
        std::fputs("\n", out);
    }
    std::fflush(out);
    return run;
}

// zelplat doctor --undo FILE: the record's values put back, after a record of their own.
int undoRepair(const std::string& file) {
    UndoRecord old;
    std::string problem;
    if (!ReadUndoRecord(file, old, problem)) {
        std::fprintf(stderr,
                     "zelplat: doctor --undo: %s is not an undo record zelplat can put "
                     "back: %s\n",
                     file.c_str(), problem.c_str());
        return zelexit::kRecordRefused;
    }
    const std::string computer = ComputerName();
    if (_stricmp(old.computer.c_str(), computer.c_str()) != 0) {
        std::fprintf(stderr,
                     "zelplat: doctor --undo: %s was made on computer %s, not on %s: "
                     "refused\n",
                     file.c_str(), old.computer.c_str(), computer.c_str());
        return zelexit::kRecordRefused;
    }
    const ProcessAccount account = CurrentAccount();
    if (old.account.sid != account.sid) {
        std::fprintf(stderr,
                     "zelplat: doctor --undo: %s was made by %s (%s), this is %s (%s): "
                     "refused\n",
                     file.c_str(), old.account.name.c_str(), old.account.sid.c_str(),
                     account.name.c_str(), account.sid.c_str());
        return zelexit::kRecordRefused;
    }
    std::vector<TouchedKey> keys;
    keys.reserve(old.keys.size());
    for (const SavedKey& key : old.keys) {
        keys.push_back(key.key);
    }
    FixRun run;
    std::fprintf(stdout, "undo %s\n", file.c_str());
    if (refusedForRights(old.scope, keys, account, stdout)) {
        return zelexit::kRefusedForRights;
    }
    UndoRecord record;
    record.scope = old.scope;
    if (!readScope(keys, record.keys, run, stdout)) {
        return run.exitCode;
    }
    record.time = UtcTimeText();
    record.computer = computer;
    record.account = account;
    record.command = "doctor --undo " + file;
    record.findings = RecordJson::array();
    record.fixes = RecordJson::array({"zelplat doctor --undo " + file});
    if (writeRecord(record, "undo", run, stdout).empty()) {
        return run.exitCode;
    }
    const std::vector<KeyFailure> failures = PutBack(old.keys);
    if (!failures.empty()) {
        printFailures("not put back", failures, stdout);
        return accessDenied(failures) ? zelexit::kAccessDenied : zelexit::kProblems;
    }
    std::fputs("put back: every value the record holds\n", stdout);
    return zelexit::kHealthy;
}

// The queries the rules read that did not answer: the doctor has nothing to say about them.
std::string failedQuery(const std::vector<Finding>& findings) {
    for (const Finding& finding : findings) {
        if (finding.rule != "could-not-assess") {
            continue;
        }
        for (auto fact = finding.facts.begin(); fact != finding.facts.end(); ++fact) {
            const std::string& key = fact.key();
            const std::string suffix = ".outcomeText";
            if (key.size() > suffix.size() &&
                key.compare(key.size() - suffix.size(), suffix.size(), suffix) == 0 &&
                fact.value().is_string()) {
                return key.substr(0, key.size() - suffix.size()) + ": " +
                       fact.value().get<std::string>();
            }
        }
    }
    return "";
}

// A problem names the option, or the value, zelplat did not understand.
bool readDoctorOptions(const Arguments& arguments, DoctorOptions& options, std::string& problem) {
    for (std::size_t at = 0; at < arguments.size(); ++at) {
        const std::string& argument = arguments[at];
        const bool valueGiven = at + 1 < arguments.size();
        const std::string value = valueGiven ? arguments[at + 1] : "";
        if (SameWord(argument, "--json")) {
            options.json = true;
        } else if (SameWord(argument, "--fix")) {
            options.fix = true;
        } else if (SameWord(argument, "--yes")) {
            options.yes = true;
        } else if (SameWord(argument, "--dry-run")) {
            options.dryRun = true;
        } else if (SameWord(argument, "--scope")) {
            if (!SameWord(value, "machine") && !SameWord(value, "user")) {
                problem = valueGiven ? "doctor: --scope takes machine or user, not '" + value + "'"
                                     : "doctor: --scope needs machine or user";
                return false;
            }
            options.scope = SameWord(value, "machine") ? "machine" : "user";
            ++at;
        } else if (SameWord(argument, "--undo")) {
            if (!valueGiven || !options.undo.empty()) {
                problem = valueGiven ? "doctor: --undo given twice" : "doctor: --undo needs a file";
                return false;
            }
            options.undo = arguments[++at];
        } else if (SameWord(argument, "--expect")) {
            if (!valueGiven || !readExpectation(value, options)) {
                problem = valueGiven ? "doctor: --expect: '" + value +
                                           "' is neither KEY=VALUE,... nor an expectation file"
                                     : "doctor: --expect needs KEY=VALUE,... or a file";
                return false;
            }
            ++at;
        } else if (SameWord(argument, "--only") || SameWord(argument, "--skip")) {
            const std::string rule = knownRule(value);
            if (rule.empty()) {
                problem = "doctor: ";
                problem += argument;
                problem += valueGiven ? ": no rule '" + value + "'" : std::string(" needs a rule");
                return false;
            }
            (SameWord(argument, "--only") ? options.only : options.skip).push_back(rule);
            ++at;
        } else {
            problem = "doctor: unknown option '" + argument + "'";
            return false;
        }
    }
    if ((options.yes || options.dryRun || !options.scope.empty()) && !options.fix) {
        problem = std::string("doctor: ") +
                  (options.yes      ? "--yes"
                   : options.dryRun ? "--dry-run"
                                    : "--scope") +
                  " goes with --fix";
        return false;
    }
    if (!options.undo.empty() && (options.fix || options.json)) {
        problem =
            std::string("doctor: --undo does not go with ") + (options.fix ? "--fix" : "--json");
        return false;
    }
    return true;
}

} // namespace

int RunDoctorCommand(const Arguments& arguments, const char* logFile) {
    DoctorOptions options;
    std::string problem;
    if (!readDoctorOptions(arguments, options, problem)) {
        return CommandUsageError("doctor", problem);
    }
    if (!options.undo.empty()) {
        return undoRepair(options.undo);
    }
    const bool json = options.json;
    const PlatformDll dll;
    if (!dll.loaded()) {
        return zelexit::kLibraryNotLoaded;
    }
    ReportJson report = BuildReport(dll, logFile);
    std::vector<Finding> findings = selected(DiagnoseReport(report, options.policy), options);
    FixRun run;
    if (options.fix) {
        // With --json the document alone goes to standard output.
        run = applyFixes(dll, findings, options, logFile, json ? stderr : stdout);
        if (!options.dryRun) {
            report = BuildReport(dll, logFile);
            findings = selected(DiagnoseReport(report, options.policy), options);
        }
    }
    const std::string failed = failedQuery(findings);
    if (!failed.empty()) {
        std::fprintf(stderr, "zelplat: doctor: could not assess: %s\n", failed.c_str());
        run.atLeast(zelexit::kCouldNotAssess);
    }
    std::size_t problems = 0;
    for (const Finding& finding : findings) {
        problems += finding.severity == "problem" ? 1 : 0;
    }
    if (json) {
        const ReportJson document{{"schemaVersion", kDoctorSchemaVersion},
                                  {"problems", problems},
                                  {"warnings", findings.size() - problems},
                                  {"findings", findingsJson(findings)},
                                  {"undoRecords", run.records}};
        std::fputs(ReportText(document).c_str(), stdout);
    } else {
        const bool colour = colourWanted();
        for (const Finding& finding : findings) {
            std::fputs(findingText(finding, colour).c_str(), stdout);
        }
        std::fputs(summaryLine(problems, findings.size() - problems).c_str(), stdout);
    }
    run.atLeast(problems > 0       ? zelexit::kProblems
                : findings.empty() ? zelexit::kHealthy
                                   : zelexit::kWarningsOnly);
    return run.exitCode;
}
