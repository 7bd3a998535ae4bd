#include "report/Report.h"

#include "report/ReportSections.h"

ReportJson BuildReport(const PlatformDll& dll, const char* logFile) {
    const LibraryLinesToStandardError libraryLines;
    ReportJson report = ReportJson::object();
    report["library"] = LibrarySection(dll, logFile);
    report["fileVersions"] = FileVersionsSection(dll, logFile);
    report["enrollment"] = EnrollmentSection(dll, logFile);
    report["atr"] = AtrSection(dll, logFile);
    report["middleware"] = MiddlewareSection(dll, logFile);
    report["oberthur"] = OberthurSection(dll, logFile);
    report["identityAgent"] = IdentityAgentSection(dll, logFile);
    return report;
}

std::string ReportText(const ReportJson& report) {
    return report.dump(2, ' ', false, nlohmann::json::error_handler_t::replace) + "\n";
}
