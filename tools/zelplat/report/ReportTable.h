// The report as aligned lines for a person: SECTION, FIELD and VALUE columns, one line for each
// value of the document. Free of <windows.h>.
#pragma once

#include "report/Report.h"

std::string FormatReportTable(const ReportJson& report);

// Rows of cells as lines whose columns line up; trailing blanks removed.
std::string AlignedColumns(const std::vector<std::vector<std::string>>& rows);
