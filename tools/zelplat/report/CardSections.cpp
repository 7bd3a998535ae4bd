// The enrollment and atr sections: the PIV minidriver's applet and the JCOP 41 card entries.
#include "report/ReportSections.h"

#include "common/RegistryFacts.h"
#include "card/TqATRMiddleware.h"
#include "card/TqEnrollmentMode.h"

namespace {

const char* stateName(KeyState state) {
    switch (state) {
    case KeyState::kPresent:
        return "present";
    case KeyState::kMissing:
        return "missing";
    case KeyState::kDenied:
        return "denied";
    default:
        return "unreadable";
    }
}

// One JCOP 41 entry in one view, as the smart-card service would read it.
ReportJson jcopEntry(const char* entry, const char* path, REGSAM view) {
    const KeyState state = ProbeKey(HKEY_LOCAL_MACHINE, path, view);
    const auto value = [&](const char* name) {
        return ReadRegistryValue(HKEY_LOCAL_MACHINE, path, name, view);
    };
    ReportJson answer = ReportJson::object();
    answer["entry"] = entry;
    answer["view"] = view == KEY_WOW64_32KEY ? "32-bit" : "64-bit";
    answer["state"] = stateName(state);
    answer["atr"] = HexText(value("ATR").data);
    answer["atrMask"] = HexText(value("ATRMask").data);
    answer["minidriver"] = ValueText(value("80000001"));
    answer["cryptoProvider"] = ValueText(value("Crypto Provider"));
    answer["keyStorageProvider"] = ValueText(value("Smart Card Key Storage Provider"));
    return answer;
}

} // namespace

ReportJson EnrollmentSection(const PlatformDll& dll, const char* logFile) {
    const Outcome outcome = AskForText(dll.api(), [&](char** text, int* length) {
        return dll.api().GetEnrollmentMode(text, length, logFile);
    });
    ReportJson section = ExportResult(outcome.result);
    section["mode"] = outcome.answer;
    section["deniedKeys"] = DeniedKeys({{HKEY_CURRENT_USER, kTqEnrollmentKey, 0, false}});
    return section;
}

ReportJson AtrSection(const PlatformDll& dll, const char* logFile) {
    const Outcome outcome = AskForText(dll.api(), [&](char** text, int* length) {
        return dll.api().GetATRMiddlewareDetection(text, length, logFile);
    });
    ReportJson section = ExportResult(outcome.result);
    section["answer"] = outcome.answer;
    ReportJson entries = ReportJson::array();
    ReportJson denied = ReportJson::array();
    for (const REGSAM view : {KEY_WOW64_64KEY, KEY_WOW64_32KEY}) {
        for (const auto& [entry, path] : {std::pair{"contact", kTqJcopContactKey},
                                          std::pair{"contactless", kTqJcopContactlessKey}}) {
            entries.push_back(jcopEntry(entry, path, view));
            if (entries.back()["state"] == "denied") {
                denied.push_back(KeyName(HKEY_LOCAL_MACHINE, path, view));
            }
        }
    }
    section["entries"] = entries;
    section["deniedKeys"] = denied;
    return section;
}
