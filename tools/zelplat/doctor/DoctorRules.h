// The doctor's rules that read the agent's settings and the registry's access, beside those of
// Doctor.cpp. Free of <windows.h>.
#pragma once

#include "doctor/Doctor.h"

void SpringCheckRecordMismatch(const ReportJson& report, std::vector<Finding>& findings);
void RegistryAccessDenied(const ReportJson& report, std::vector<Finding>& findings);
void MinidriverFileMissing(const ReportJson& report, std::vector<Finding>& findings);
void PivAppletUnused(const ReportJson& report, std::vector<Finding>& findings);
void SpringCheckRestartPending(const ReportJson& report, std::vector<Finding>& findings);
void AtrNotAnswered(const ReportJson& report, std::vector<Finding>& findings);
void CouldNotAssess(const ReportJson& report, std::vector<Finding>& findings);
void ExpectedStateDiffers(const ReportJson& report, std::vector<Finding>& findings);
void EnrollmentAnswerDiffers(const ReportJson& report, std::vector<Finding>& findings);
