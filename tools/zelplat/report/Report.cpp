#include "report/Report.h"

#include "report/ReportSections.h"

#include <utility>

namespace {

using Section = ReportJson (*)(const PlatformDll& dll, const char* logFile);

// A section with the lines the library wrote while it was made.
ReportJson capturedSection(Section make, const PlatformDll& dll, const char* logFile) {
    LibraryConsole console;
    ReportJson section = make(dll, logFile);
    section["diagnostics"] = console.lines();
    return section;
}

} // namespace

ReportJson BuildReport(const PlatformDll& dll, const char* logFile) {
    ReportJson report = ReportJson::object();
    for (const auto& [name, make] : {std::pair<const char*, Section>{"library", LibrarySection},
                                     {"fileVersions", FileVersionsSection},
                                     {"enrollment", EnrollmentSection},
                                     {"atr", AtrSection},
                                     {"middleware", MiddlewareSection},
                                     {"oberthur", OberthurSection},
                                     {"identityAgent", IdentityAgentSection}}) {
        report[name] = capturedSection(make, dll, logFile);
    }
    return report;
}

std::string ReportText(const ReportJson& report) {
    return report.dump(2, ' ', false, nlohmann::json::error_handler_t::replace) + "\n";
}
