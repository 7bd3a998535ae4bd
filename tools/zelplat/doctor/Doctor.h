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

// Every rule in the order of the README's table, over one report.
std::vector<Finding> DiagnoseReport(const ReportJson& report);
