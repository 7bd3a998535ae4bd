#include "doctor/DoctorJudgement.h"

#include <algorithm>
#include <cstdint>

namespace {

bool detected(const ReportJson& report, const std::string& middleware) {
    return ReportTextAt(report, "/middleware/document/" + middleware + "/Detected") == "true";
}

bool gemSafeThere(const ReportJson& report, const char* view) {
    const ReportJson::json_pointer at("/atr/gemSafeInstalled/" + std::string(view));
    return report.contains(at) && report.at(at).is_boolean() && report.at(at).get<bool>();
}

constexpr const char* kAtrSet = "zelplat atr set ";

// The bytes the library writes, as the report spells them; only the first byte differs.
constexpr const char* kContactAtrTail = "F91800008131FE454A434F503431563232AF";
constexpr const char* kContactlessAtrTail = "8980014A434F503431563232"
                                            "4D";

void predictAtr(ReportJson& report, const std::string& word) {
    const bool gemSafe = word == "GEMSAFE";
    ReportJson& atr = report["atr"];
    atr["result"] = 0;
    atr["outcome"] = "answered";
    atr["outcomeText"] = "The JCOP 41 card entries give the card to " + word + ".";
    atr["resultText"] = nullptr;
    atr["answer"] = word;
    ReportJson entries = ReportJson::array();
    for (const char* view : {"64-bit", "32-bit"}) {
        for (const char* entry : {"contact", "contactless"}) {
            const bool contact = std::string(entry) == "contact";
            const std::string tail = contact ? kContactAtrTail : kContactlessAtrTail;
            ReportJson predicted = ReportJson::object();
            predicted["entry"] = entry;
            predicted["view"] = view;
            predicted["state"] = "present";
            predicted["atr"] = (gemSafe ? "3B" : "FF") + tail;
            predicted["atrMask"] = std::string(tail.size() + 2, 'F');
            predicted["minidriver"] = "GemSafeMD.dll";
            predicted["effect"] = gemSafe ? "active" : "disabled";
            predicted["minidriverInstalled"] = gemSafeThere(report, view);
            entries.push_back(predicted);
        }
    }
    atr["entries"] = entries;
    atr["servedBy"] = ReportJson{{"64-bit", gemSafe ? "GemSafeMD.dll" : "PIV minidriver"},
                                 {"32-bit", gemSafe ? "GemSafeMD.dll" : "PIV minidriver"}};
}

std::string findingName(const Finding& finding) {
    return finding.rule + " (" + finding.severity + ")";
}

} // namespace

std::string AtrWordBlocker(const ReportJson& report, const std::string& word) {
    if (word == "PIVMINIDRIVER") {
        return detected(report, "OTMiddleware")
                   ? ""
                   : "the PIV minidriver (OTMiddleware), which `atr set PIVMINIDRIVER` would leave "
                     "the card to, is not installed";
    }
    if (!gemSafeThere(report, "64-bit") || !gemSafeThere(report, "32-bit")) {
        return "GemSafeMD.dll, which `atr set GEMSAFE` would point the card at, is not installed";
    }
    return detected(report, "GemaltoMiddleware")
               ? ""
               : "GemaltoMiddleware, which `atr set GEMSAFE` would give the card to, is not "
                 "installed";
}

std::string InstalledAtrWord(const ReportJson& report) {
    const std::string expected = ReportTextAt(report, "/expected/minidriver");
    if (!expected.empty()) {
        return AtrWordBlocker(report, expected).empty() ? expected : "";
    }
    for (const char* word : {"PIVMINIDRIVER", "GEMSAFE"}) {
        if (AtrWordBlocker(report, word).empty()) {
            return word;
        }
    }
    return "";
}

ReportJson PredictedReport(const ReportJson& report, const std::string& fix) {
    ReportJson predicted = report;
    if (fix == "zelplat atr set GEMSAFE" || fix == "zelplat atr set PIVMINIDRIVER") {
        predictAtr(predicted, fix.substr(std::string(kAtrSet).size()));
    } else if (fix == "zelplat enrollment set AGILE" ||
               fix == "zelplat enrollment set COMPATIBILITY") {
        ReportJson& enrollment = predicted["enrollment"];
        enrollment["result"] = 0;
        enrollment["outcome"] = "set";
        enrollment["resultText"] = nullptr;
        enrollment["mode"] = fix.substr(std::string("zelplat enrollment set ").size());
    } else if (fix == "zelplat ia spring-check off") {
        predicted["identityAgent"]["userSettings"] =
            ReportJson{{"cardRemovalCheck", "False"}, {"zelCheckBytes", std::int64_t{1}}};
    } else if (fix == "zelplat ia spring-check default") {
        predicted["identityAgent"]["userSettings"] =
            ReportJson{{"cardRemovalCheck", nullptr}, {"zelCheckBytes", nullptr}};
    } else {
        return ReportJson();
    }
    return predicted;
}

std::string UndeclaredSecurityChoice(const ReportJson& report, const std::string& fix) {
    if (fix == "zelplat ia spring-check off" &&
        ReportTextAt(report, "/expected/springCheck") != "off") {
        return "`zelplat ia spring-check off` would make the switched-off card-removal check "
               "permanent; declare what is intended with --expect spring-check=default|off";
    }
    if ((fix == "zelplat enrollment set AGILE" || fix == "zelplat enrollment set COMPATIBILITY") &&
        ReportTextAt(report, "/expected/applet").empty()) {
        return "`" + fix +
               "` would choose the applet; declare what is intended with --expect "
               "applet=AGILE|COMPATIBILITY";
    }
    return "";
}

void JudgeFixes(const ReportJson& report, std::vector<Finding>& findings,
                std::vector<Finding> (*rules)(const ReportJson&)) {
    for (Finding& finding : findings) {
        if (finding.fix.rfind(kAtrSet, 0) == 0) {
            const std::string word = finding.fix.substr(std::string(kAtrSet).size());
            if (word == "GEMSAFE" || word == "PIVMINIDRIVER") {
                const std::string blocker = AtrWordBlocker(report, word);
                if (!blocker.empty()) {
                    finding.fix = kNeedsAPerson + blocker;
                    continue;
                }
            }
        }
        const std::string undeclared = UndeclaredSecurityChoice(report, finding.fix);
        if (!undeclared.empty()) {
            finding.fix = kNeedsAPerson + undeclared;
            continue;
        }
        const ReportJson predicted = PredictedReport(report, finding.fix);
        if (predicted.is_null()) {
            continue;
        }
        for (const Finding& after : rules(predicted)) {
            // A problem that is there already is another fix's business; a new one, or this
            // finding again, means the fix makes nothing better.
            const bool already =
                std::any_of(findings.begin(), findings.end(),
                            [&](const Finding& now) { return now.rule == after.rule; });
            if ((after.severity == "problem" && !already) || after.rule == finding.rule) {
                finding.fix = kNeedsAPerson + std::string("after `") + finding.fix + "`, " +
                              findingName(after) + " would report: " + after.summary;
                break;
            }
        }
    }
}
