// Every fix judged on the workstation it would leave behind, before the doctor offers it: the
// rules run again over the report as the fix would change it, without writing anything. Free of
// <windows.h>.
#pragma once

#include "doctor/Doctor.h"

// What a finding's fix says when zelplat must not apply it; the reason follows.
inline constexpr const char* kNeedsAPerson = "needs a person: ";

// Why `zelplat atr set WORD` would leave the card without a minidriver here, or "" when it
// would not: the word's middleware and, for GEMSAFE, GemSafeMD.dll in both views.
std::string AtrWordBlocker(const ReportJson& report, const std::string& word);

// The word whose middleware and minidriver are installed, preferring the PIV minidriver, or "".
std::string InstalledAtrWord(const ReportJson& report);

// The report as it would read after the zelplat command, or null for a command zelplat does not
// apply itself.
ReportJson PredictedReport(const ReportJson& report, const std::string& fix);

// Why a fix would confirm a security-relevant setting that the policy does not declare (the
// spring check switched off, an applet chosen), or "".
std::string UndeclaredSecurityChoice(const ReportJson& report, const std::string& fix);

// Each automatic fix that would point the card at a missing minidriver, leave a problem behind or
// bring its own finding back becomes "needs a person" with the reason. rules are the doctor's
// rules without this judgement.
void JudgeFixes(const ReportJson& report, std::vector<Finding>& findings,
                std::vector<Finding> (*rules)(const ReportJson&));
