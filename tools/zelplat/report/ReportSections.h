// The sections of the report, one function each.
#pragma once

#include "common/PlatformDll.h"

#include "report/Report.h"

// What an export's result means in that export's own terms.
struct ResultMeaning {
    const char* outcome; // "detected", "not detected", "failed", ...
    std::string text;    // one sentence for support staff
    bool failed = false; // the export failed: the common text of the code goes beside
};

// {"result", "outcome", "outcomeText", "resultText"}: how an export answered. resultText is the
// common text of a failed export's code ("(0x00000004) Internal error."), null otherwise.
ReportJson ExportResult(int result, const ResultMeaning& meaning);

// The meaning of each export's result, as the sections and the doctor read it.
ResultMeaning FileVersionMeaning(int result, const std::string& majorVersion);
ResultMeaning EnrollmentMeaning(int result, const std::string& mode);
ResultMeaning AtrMeaning(int result, const std::string& answer);
ResultMeaning MiddlewareMeaning(int result);
ResultMeaning OberthurMeaning(int result);
ResultMeaning IdentityAgentMeaning(int result);

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
