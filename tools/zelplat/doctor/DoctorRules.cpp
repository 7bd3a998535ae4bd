#include "doctor/DoctorRules.h"

#include "doctor/DoctorJudgement.h"

#include <algorithm>
#include <cctype>

namespace {

// "FALSE" or "0" in any letter case: the user's value switches the check off.
bool switchesOff(const std::string& text) {
    std::string upper;
    for (const char c : text) {
        upper += static_cast<char>(std::toupper(static_cast<unsigned char>(c)));
    }
    return upper == "FALSE" || upper == "0";
}

} // namespace

// zelplat ia spring-check writes CardRemovalCheck "False" and ZelCheck together and removes
// them together; one without the other was made by hand or left behind.
void SpringCheckRecordMismatch(const ReportJson& report, std::vector<Finding>& findings) {
    const ReportJson settings =
        report.value("/identityAgent/userSettings"_json_pointer, ReportJson::object());
    const ReportJson check = settings.value("cardRemovalCheck", ReportJson());
    const ReportJson record = settings.value("zelCheckBytes", ReportJson());
    const bool off = check.is_string() && switchesOff(check.get<std::string>());
    const bool recorded = !record.is_null();
    if (off == recorded) {
        return;
    }
    const std::string status = ReportTextAt(report, "/identityAgent/document/springCheck/status");
    const std::string expected = ReportTextAt(report, "/expected/springCheck");
    findings.push_back(
        {"spring-check-record-mismatch", "warning",
         recorded ? "A ZelCheck record is stored, but this user's spring check is not switched "
                    "off: the record is left over and the restart report is wrong."
                  : "This user's spring check is switched off without a ZelCheck record: "
                    "nobody can tell whether the agent has restarted since.",
         ReportJson{{"identityAgent.userSettings.cardRemovalCheck", check},
                    {"identityAgent.userSettings.zelCheckBytes", record},
                    {"identityAgent.document.springCheck.status", status}},
         "zelplat ia spring-check " + (!expected.empty() ? expected
                                       : recorded        ? std::string("default")
                                                         : "off")});
}

// An entry that claims the card sends it to a minidriver file that is not there: System32 for
// 64-bit programs, SysWOW64 for 32-bit ones.
void MinidriverFileMissing(const ReportJson& report, std::vector<Finding>& findings) {
    const ReportJson entries = report.value("/atr/entries"_json_pointer, ReportJson::array());
    ReportJson facts = ReportJson::object();
    std::string file;
    for (const ReportJson& entry : entries) {
        const ReportJson installed = entry.value("minidriverInstalled", ReportJson());
        if (entry.value("effect", "") != "active" || !installed.is_boolean() ||
            installed.get<bool>()) {
            continue;
        }
        file = entry.value("minidriver", "");
        facts[entry.value("entry", "") + " " + entry.value("view", "")] =
            file + " not found at " + entry.value("minidriverPath", "");
    }
    if (facts.empty()) {
        return;
    }
    const bool pivThere =
        ReportTextAt(report, "/middleware/document/OTMiddleware/Detected") == "true";
    findings.push_back({"minidriver-file-missing", "problem",
                        "A JCOP 41 card entry gives the card to " + file +
                            ", which is not installed: programs of that view cannot use the card.",
                        facts,
                        pivThere ? std::string("zelplat atr set PIVMINIDRIVER")
                                 : "install the middleware that brings " + file});
}

// The applet setting only matters to the PIV minidriver; when every view's entries give the card
// to another minidriver, the setting has no effect.
void PivAppletUnused(const ReportJson& report, std::vector<Finding>& findings) {
    const std::string mode = ReportTextAt(report, "/enrollment/mode");
    const std::string served64 = ReportTextAt(report, "/atr/servedBy/64-bit");
    const std::string served32 = ReportTextAt(report, "/atr/servedBy/32-bit");
    if ((mode != "AGILE" && mode != "COMPATIBILITY") || served64.empty() ||
        served64 == "PIV minidriver" || served32 == "PIV minidriver") {
        return;
    }
    findings.push_back(
        {"piv-applet-unused", "warning",
         "The PIV minidriver's applet is set, but no JCOP 41 card entry leaves the "
         "card to the PIV minidriver: the setting has no effect.",
         ReportJson{{"enrollment.mode", mode},
                    {"atr.servedBy.64-bit", served64},
                    {"atr.servedBy.32-bit", served32}},
         AtrWordBlocker(report, "PIVMINIDRIVER").empty()
             ? std::string(
                   "zelplat atr set PIVMINIDRIVER, if the PIV minidriver is to serve the card")
             : kNeedsAPerson + AtrWordBlocker(report, "PIVMINIDRIVER")});
}

// The agent reads its spring check when it starts: a switch made while this agent process runs
// (the stored ZelCheck names it) is not in force yet.
void SpringCheckRestartPending(const ReportJson& report, std::vector<Finding>& findings) {
    const std::string restarted = ReportTextAt(report, "/identityAgent/document/os/hasRebooted");
    if (restarted != "pending") {
        return;
    }
    findings.push_back(
        {"spring-check-restart-pending", "warning",
         "The spring check was switched, but the Identity Agent has not restarted since: the "
         "agent still runs with the setting it started with.",
         ReportJson{{"identityAgent.document.ia.name",
                     ReportTextAt(report, "/identityAgent/document/ia/name")},
                    {"identityAgent.document.springCheck.status",
                     ReportTextAt(report, "/identityAgent/document/springCheck/status")},
                    {"identityAgent.document.os.hasRebooted", restarted}},
         "restart the Identity Agent (or sign out and in again)"});
}

void RegistryAccessDenied(const ReportJson& report, std::vector<Finding>& findings) {
    ReportJson denied = ReportJson::array();
    for (auto section = report.begin(); section != report.end(); ++section) {
        const ReportJson keys = section.value().is_object()
                                    ? section.value().value("deniedKeys", ReportJson::array())
                                    : ReportJson::array();
        for (const ReportJson& key : keys) {
            if (std::find(denied.begin(), denied.end(), key) == denied.end()) {
                denied.push_back(key);
            }
        }
    }
    if (denied.empty()) {
        return;
    }
    findings.push_back({"registry-access-denied", "warning",
                        "Registry keys that the library searches could not be read (access "
                        "denied): its answers may be incomplete.",
                        ReportJson{{"deniedKeys", denied}},
                        "zelplat doctor, run by an administrator (or give this user read "
                        "access to the keys)"});
}

namespace {

// The answers of GetATRMiddlewareDetection that leave the card without a known minidriver.
bool atrUnanswered(const ReportJson& report) {
    const std::string outcome = ReportTextAt(report, "/atr/outcome");
    return outcome == "entry missing" || outcome == "entry unreadable" ||
           outcome == "entries disagree" || outcome == "unknown ATR";
}

} // namespace

// The entries the library cannot read give no program the card; `atr set` writes them whole,
// but only towards a middleware whose minidriver is there.
void AtrNotAnswered(const ReportJson& report, std::vector<Finding>& findings) {
    const std::string word = InstalledAtrWord(report);
    if (!atrUnanswered(report) || word.empty()) {
        return;
    }
    const ReportJson& atr = report["atr"];
    findings.push_back({"atr-not-answered", "problem",
                        "The JCOP 41 card entries do not tell which minidriver serves the card (" +
                            ReportTextAt(report, "/atr/outcome") +
                            "): programs cannot use the card.",
                        ReportJson{{"atr.result", atr.value("result", 0)},
                                   {"atr.outcome", atr.value("outcome", "")},
                                   {"atr.outcomeText", atr.value("outcomeText", "")},
                                   {"atr.resultText", atr.value("resultText", ReportJson())}},
                        "zelplat atr set " + word});
}

// A query that failed leaves the doctor without an answer about it: "nothing wrong found" only
// when every section the rules read answered.
void CouldNotAssess(const ReportJson& report, std::vector<Finding>& findings) {
    const bool atrCovered =
        std::any_of(findings.begin(), findings.end(),
                    [](const Finding& finding) { return finding.rule == "atr-not-answered"; });
    for (const char* name : {"enrollment", "atr", "middleware", "oberthur"}) {
        const std::string section = name;
        const std::string outcome = ReportTextAt(report, "/" + section + "/outcome");
        const bool failed =
            outcome == "failed" || (section == "atr" && atrUnanswered(report) && !atrCovered);
        if (!failed) {
            continue;
        }
        const ReportJson& answer = report[section];
        findings.push_back(
            {"could-not-assess", "warning",
             std::string("The ")
                 .append(section)
                 .append(" query did not answer (")
                 .append(outcome)
                 .append("): the doctor cannot say whether it is right."),
             ReportJson{{section + ".result", answer.value("result", 0)},
                        {section + ".outcomeText", answer.value("outcomeText", "")},
                        {section + ".resultText", answer.value("resultText", ReportJson())}},
             section == "atr" ? kNeedsAPerson + AtrWordBlocker(report, "PIVMINIDRIVER") + "; " +
                                    AtrWordBlocker(report, "GEMSAFE")
                              : std::string("zelplat report, then ask the library's log why")});
    }
}

// A declared policy: each setting that differs from it is a finding whose fix moves the
// workstation there.
void ExpectedStateDiffers(const ReportJson& report, std::vector<Finding>& findings) {
    const std::string springCheck = ReportTextAt(report, "/expected/springCheck");
    if (!springCheck.empty()) {
        const ReportJson settings =
            report.value("/identityAgent/userSettings"_json_pointer, ReportJson::object());
        const ReportJson check = settings.value("cardRemovalCheck", ReportJson());
        const ReportJson record = settings.value("zelCheckBytes", ReportJson());
        const bool off = check.is_string() && switchesOff(check.get<std::string>());
        const bool asExpected =
            springCheck == "off" ? off && !record.is_null() : !off && record.is_null();
        if (!asExpected) {
            findings.push_back(
                {"expected-spring-check", "warning",
                 "This user's spring check is not as the policy declares it (" + springCheck + ").",
                 ReportJson{{"expected.spring-check", springCheck},
                            {"identityAgent.userSettings.cardRemovalCheck", check},
                            {"identityAgent.userSettings.zelCheckBytes", record}},
                 "zelplat ia spring-check " + springCheck});
        }
    }
    const std::string applet = ReportTextAt(report, "/expected/applet");
    const std::string mode = ReportTextAt(report, "/enrollment/mode");
    if (!applet.empty() && mode != applet &&
        ReportTextAt(report, "/middleware/document/OTMiddleware/Detected") == "true") {
        findings.push_back({"expected-applet", "warning",
                            "The PIV minidriver's applet is not the one the policy declares.",
                            ReportJson{{"expected.applet", applet}, {"enrollment.mode", mode}},
                            "zelplat enrollment set " + applet});
    }
    const std::string minidriver = ReportTextAt(report, "/expected/minidriver");
    const std::string answer = ReportTextAt(report, "/atr/answer");
    if (!minidriver.empty() && answer != minidriver) {
        findings.push_back({"expected-minidriver", "warning",
                            "The JCOP 41 card entries do not give the card to the minidriver the "
                            "policy declares.",
                            ReportJson{{"expected.minidriver", minidriver}, {"atr.answer", answer}},
                            "zelplat atr set " + minidriver});
    }
}

// The library's applet answer is lenient: a key it cannot open for writing, or a value of
// another size, reads as AGILE. An answer that is not what is stored is worth a warning.
void EnrollmentAnswerDiffers(const ReportJson& report, std::vector<Finding>& findings) {
    const std::string mode = ReportTextAt(report, "/enrollment/mode");
    const std::string meaning = ReportTextAt(report, "/enrollment/stored/meaning");
    const ReportJson stored = report.value("/enrollment/stored"_json_pointer, ReportJson::object());
    if ((mode != "AGILE" && mode != "COMPATIBILITY") || meaning.empty() || meaning == mode) {
        return;
    }
    findings.push_back(
        {"enrollment-answer-differs", "warning",
         "The library answers " + mode + " for the PIV minidriver's applet, but " + meaning +
             " is stored: the answer is not what is stored.",
         ReportJson{{"enrollment.mode", mode},
                    {"enrollment.stored.type", stored.value("type", ReportJson())},
                    {"enrollment.stored.data", stored.value("data", ReportJson())},
                    {"enrollment.stored.keyWritable", stored.value("keyWritable", ReportJson())}},
         "needs a person: give this user write access to the applet's key, or "
         "store the applet as a 4-byte REG_DWORD (zelplat enrollment set)"});
}
