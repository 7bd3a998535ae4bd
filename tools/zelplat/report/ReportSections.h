// The sections of the report, one function each.
#pragma once

#include "common/PlatformDll.h"

#include "report/Report.h"

// {"result": code, "resultText": "(0x...) text."}: how an export answered.
ReportJson ExportResult(int result);

// The library's own text document parsed into the section as "document"; a text that does not
// parse goes in as "unparsedText" beside a null document.
void EmbedDocument(ReportJson& section, const std::string& text);

ReportJson LibrarySection(const PlatformDll& dll, const char* logFile);
ReportJson FileVersionsSection(const PlatformDll& dll, const char* logFile);
ReportJson EnrollmentSection(const PlatformDll& dll, const char* logFile);
ReportJson AtrSection(const PlatformDll& dll, const char* logFile);
ReportJson MiddlewareSection(const PlatformDll& dll, const char* logFile);
ReportJson OberthurSection(const PlatformDll& dll, const char* logFile);
ReportJson IdentityAgentSection(const PlatformDll& dll, const char* logFile);
