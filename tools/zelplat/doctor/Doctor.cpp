#include "doctor/Doctor.h"

#include "doctor/DoctorJudgement.h"
#include "doctor/DoctorRules.h"

namespace {

bool detected(const ReportJson& report, const std::string& middleware) {
    return ReportTextAt(report, "/middleware/document/" + middleware + "/Detected") == "true";
}

// The middleware that serves the card when the JCOP 41 entries give this answer.
const char* middlewareOf(const std::string& atrAnswer) {
    return atrAnswer == "GEMSAFE" ? "GemaltoMiddleware" : "OTMiddleware";
}

// The answer the entries should give on this workstation: the one whose middleware and
// minidriver are there; when none is, the judgement of the fix names what is missing.
std::string fittingAnswer(const ReportJson& report, const std::string& current) {
    std::string expected = ReportTextAt(report, "/expected/minidriver");
    if (!expected.empty()) {
        return expected;
    }
    if ((current == "GEMSAFE" || current == "PIVMINIDRIVER") &&
        AtrWordBlocker(report, current).empty()) {
        return current;
    }
    if (!InstalledAtrWord(report).empty()) {
        return InstalledAtrWord(report);
    }
    return detected(report, "GemaltoMiddleware") && !detected(report, "OTMiddleware")
               ? "GEMSAFE"
               : "PIVMINIDRIVER";
}

void atrMiddlewareMissing(const ReportJson& report, std::vector<Finding>& findings) {
    const std::string answer = ReportTextAt(report, "/atr/answer");
    if (answer != "GEMSAFE" && answer != "PIVMINIDRIVER") {
        return;
    }
    const std::string middleware = middlewareOf(answer);
    // A search that did not answer says nothing about the middleware: could-not-assess says so.
    if (ReportTextAt(report, "/middleware/document/" + middleware + "/Detected") != "false") {
        return;
    }
    const std::string other = answer == "GEMSAFE" ? "PIVMINIDRIVER" : "GEMSAFE";
    const bool otherInstalled = detected(report, middlewareOf(other));
    findings.push_back(
        {"atr-middleware-missing", "problem",
         "The JCOP 41 card entries give the card to " + answer + ", but " + middleware +
             " is not installed: the card will not work here.",
         ReportJson{
             {"atr.answer", answer},
             {"atr.entries[0].minidriver", ReportTextAt(report, "/atr/entries/0/minidriver")},
             {middleware + ".Detected",
              ReportTextAt(report, "/middleware/document/" + middleware + "/Detected")}},
         otherInstalled ? "zelplat atr set " + other
                        : "install " + middleware + ", or zelplat atr set " + other +
                              " once its middleware is installed"});
}

// The fields of a JCOP 41 entry that decide which minidriver takes the card.
std::string entryShape(const ReportJson& entry) {
    return entry.value("state", "") + "|" + entry.value("atr", "") + "|" +
           entry.value("atrMask", "") + "|" + entry.value("minidriver", "");
}

void atrViewsDisagree(const ReportJson& report, std::vector<Finding>& findings) {
    const ReportJson entries = report.value("/atr/entries"_json_pointer, ReportJson::array());
    ReportJson facts = ReportJson::object();
    for (const ReportJson& entry : entries) {
        for (const ReportJson& other : entries) {
            if (entry.value("entry", "") == other.value("entry", "") &&
                entry.value("view", "") == "64-bit" && other.value("view", "") == "32-bit" &&
                entryShape(entry) != entryShape(other)) {
                const std::string name = entry.value("entry", "");
                facts[name + " 64-bit"] =
                    entry.value("state", "") + " ATR " + entry.value("atr", "");
                facts[name + " 32-bit"] =
                    other.value("state", "") + " ATR " + other.value("atr", "");
            }
        }
    }
    if (facts.empty()) {
        return;
    }
    findings.push_back(
        {"atr-views-disagree", "problem",
         "The 64-bit and 32-bit registry views of the JCOP 41 card entries differ: "
         "64-bit and 32-bit programs pick different minidrivers for the card.",
         facts, "zelplat atr set " + fittingAnswer(report, ReportTextAt(report, "/atr/answer"))});
}

void pivAppletNotSet(const ReportJson& report, std::vector<Finding>& findings) {
    const std::string mode = ReportTextAt(report, "/enrollment/mode");
    if (!detected(report, "OTMiddleware") || mode != "NOT SET") {
        return;
    }
    const std::string expected = ReportTextAt(report, "/expected/applet");
    findings.push_back({"piv-applet-not-set", "warning",
                        "The PIV minidriver (OT middleware) is installed, but no enrollment "
                        "applet is set for this user.",
                        ReportJson{{"OTMiddleware.Detected", "true"},
                                   {"enrollment.mode", mode},
                                   {"enrollment.result", report["enrollment"].value("result", 0)}},
                        "zelplat enrollment set " +
                            (expected.empty() ? std::string("AGILE|COMPATIBILITY") : expected)});
}

void agentNotRunning(const ReportJson& report, std::vector<Finding>& findings) {
    const ReportJson installed =
        report.value("/identityAgent/installed"_json_pointer, ReportJson::array());
    const std::string agent = ReportTextAt(report, "/identityAgent/document/ia/name");
    if (installed.empty() || agent != "unknown") {
        return;
    }
    findings.push_back(
        {"agent-not-running", "warning",
         "An Identity Agent is installed but not running: card removal is not watched.",
         ReportJson{{"identityAgent.installed", installed},
                    {"identityAgent.document.ia.name", agent}},
         "start the agent (IdentityAgent.exe or GACService.exe), then zelplat ia --table"});
}

} // namespace

std::string ReportTextAt(const ReportJson& report, const std::string& pointer) {
    const ReportJson::json_pointer at(pointer);
    if (!report.contains(at) || !report.at(at).is_string()) {
        return "";
    }
    return report.at(at).get<std::string>();
}

namespace {

std::vector<Finding> everyRule(const ReportJson& report) {
    std::vector<Finding> findings;
    atrMiddlewareMissing(report, findings);
    atrViewsDisagree(report, findings);
    MinidriverFileMissing(report, findings);
    pivAppletNotSet(report, findings);
    PivAppletUnused(report, findings);
    agentNotRunning(report, findings);
    SpringCheckRecordMismatch(report, findings);
    SpringCheckRestartPending(report, findings);
    RegistryAccessDenied(report, findings);
    AtrNotAnswered(report, findings);
    CouldNotAssess(report, findings);
    ExpectedStateDiffers(report, findings);
    EnrollmentAnswerDiffers(report, findings);
    return findings;
}

} // namespace

std::vector<Finding> DiagnoseReport(const ReportJson& report, const DoctorPolicy& policy) {
    // The rules read the policy beside the facts, so that a predicted state carries it too.
    ReportJson judged = report;
    judged["expected"] = policy;
    std::vector<Finding> findings = everyRule(judged);
    JudgeFixes(judged, findings, everyRule);
    return findings;
}

const std::vector<std::string>& DoctorRuleNames() {
    static const std::vector<std::string> names = {"atr-middleware-missing",
                                                   "atr-views-disagree",
                                                   "minidriver-file-missing",
                                                   "piv-applet-not-set",
                                                   "piv-applet-unused",
                                                   "agent-not-running",
                                                   "spring-check-record-mismatch",
                                                   "spring-check-restart-pending",
                                                   "registry-access-denied",
                                                   "atr-not-answered",
                                                   "could-not-assess",
                                                   "expected-spring-check",
                                                   "expected-applet",
                                                   "expected-minidriver",
                                                   "enrollment-answer-differs"};
    return names;
}
