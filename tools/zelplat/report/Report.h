// The report: every read-only answer of the library in one JSON document, with the registry
// entries and file versions behind them. Making it writes nothing anywhere.
#pragma once

#include "common/PlatformDll.h"

#include <nlohmann/json.hpp>

using ReportJson = nlohmann::ordered_json;

// The sections library, fileVersions, enrollment, atr, middleware, oberthur and identityAgent,
// each with the result code of the export it asked ("result") and that code's text
// ("resultText"). docs/report.schema.json describes the whole document.
ReportJson BuildReport(const PlatformDll& dll, const char* logFile);

// The document as text: two-space indentation, bytes that are not UTF-8 replaced.
std::string ReportText(const ReportJson& report);
