// The doctor's rules over the report: what is wrong with the workstation's smart-card setup,
// the facts each rule read, and the zelplat command that fixes it. Free of <windows.h>.
#pragma once

#include "report/Report.h"

#include <string>
#include <vector>

struct Finding {
    std::string rule;     // "atr-views-disagree"
    std::string severity; // "problem" or "warning"
    std::string summary;  // one sentence for support staff
    ReportJson facts;     // what the rule read from the report
    std::string fix;      // the zelplat command that fixes it
};

// The text under a JSON pointer of the report ("/atr/answer"), or "" when there is none there.
std::string ReportTextAt(const ReportJson& report, const std::string& pointer);

// What the organisation intends for the settings the doctor would otherwise have to guess:
// "springCheck" ("default" or "off"), "applet" ("AGILE" or "COMPATIBILITY") and "minidriver"
// ("GEMSAFE" or "PIVMINIDRIVER"), each absent when not declared.
using DoctorPolicy = ReportJson;

// Every rule in the order of the README's table, over one report, each fix judged on the state
// it would produce.
std::vector<Finding> DiagnoseReport(const ReportJson& report,
                                    const DoctorPolicy& policy = DoctorPolicy::object());

// Every rule's name, in the order of the README's table.
const std::vector<std::string>& DoctorRuleNames();
