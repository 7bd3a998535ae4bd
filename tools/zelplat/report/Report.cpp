#include "report/Report.h"

#include "common/RegistryFacts.h"
#include "report/ReportSections.h"

#include <utility>

namespace {

using Section = ReportJson (*)(const PlatformDll& dll, const char* logFile);

// Every text of a section as UTF-8, but for the library's documents, which EmbedDocument has
// turned already.
void toUtf8(ReportJson& value) {
    if (value.is_string()) {
        value = Utf8FromSystemCodePage(value.get<std::string>());
        return;
    }
    if (value.is_array()) {
        for (ReportJson& item : value) {
            toUtf8(item);
        }
        return;
    }
    if (!value.is_object()) {
        return;
    }
    ReportJson converted = ReportJson::object();
    for (auto member = value.begin(); member != value.end(); ++member) {
        ReportJson item = member.value();
        if (member.key() != "document" && member.key() != "unparsedText") {
            toUtf8(item);
        }
        converted[Utf8FromSystemCodePage(member.key())] = item;
    }
    value = converted;
}

// A section with the lines the library wrote while it was made.
ReportJson capturedSection(Section make, const PlatformDll& dll, const char* logFile) {
    LibraryConsole console;
    ReportJson section = make(dll, logFile);
    section["diagnostics"] = console.lines();
    toUtf8(section);
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
