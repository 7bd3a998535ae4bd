// The middleware, oberthur and identityAgent sections: the detection documents, embedded as
// JSON, and what the detections read.
#include "report/ReportSections.h"

#include "common/RegistryFacts.h"
#include "host/TqRegistrySearch.h"
#include "identityagent/TqSpringCheck.h"
#include "middleware/TqDriverUpdateSearch.h"

#include <cstdint>

namespace {

constexpr const char* kUninstallKey = "SOFTWARE\\Microsoft\\Windows\\CurrentVersion\\Uninstall";

// The display names under which the two generations of the agent are installed.
const char* const kAgentNames[] = {"Vessant Identity Agent", "KVR Digital Identity Agent",
                                   "KVR Identity Agent", "KVR Halden Identity Agent"};

template <typename Query>
ReportJson documentSection(const PlatformDll& dll, Query query, ResultMeaning (*meaning)(int),
                           const std::vector<SearchedKey>& keys) {
    const Outcome outcome = AskForText(dll.api(), query);
    ReportJson section = ExportResult(outcome.result, meaning(outcome.result));
    EmbedDocument(section, outcome.answer);
    section["deniedKeys"] = DeniedKeys(keys);
    return section;
}

std::vector<SearchedKey> uninstallKeys() {
    return {{HKEY_LOCAL_MACHINE, kUninstallKey, KEY_WOW64_64KEY, true},
            {HKEY_LOCAL_MACHINE, kUninstallKey, KEY_WOW64_32KEY, true}};
}

ReportJson installedAgents() {
    ReportJson installed = ReportJson::array();
    for (const char* name : kAgentNames) {
        std::int32_t major = 0;
        std::int32_t minor = 0;
        std::string keyPath;
        if (TqGetInstalledAppVerNo(HKEY_LOCAL_MACHINE, name, nullptr, &major, &minor, &keyPath) ==
            1) {
            installed.push_back(ReportJson{
                {"name", name}, {"version", std::to_string(major) + "." + std::to_string(minor)}});
        }
    }
    return installed;
}

// This user's own spring-check values, as they are stored.
ReportJson userSettings() {
    const RegistryValue check =
        ReadRegistryValue(HKEY_CURRENT_USER, kTqIAUserKey, kTqCardRemovalCheckValue, 0);
    const RegistryValue record =
        ReadRegistryValue(HKEY_CURRENT_USER, kTqIAUserKey, kTqZelCheckValue, 0);
    ReportJson settings = ReportJson::object();
    settings["cardRemovalCheck"] = check.present ? ReportJson(ValueText(check)) : ReportJson();
    settings["zelCheckBytes"] = record.present ? ReportJson(record.data.size()) : ReportJson();
    return settings;
}

} // namespace

ReportJson MiddlewareSection(const PlatformDll& dll, const char* logFile) {
    std::vector<SearchedKey> keys = uninstallKeys();
    std::string driverUpdates = kTqDriverUpdatesKey;
    driverUpdates.pop_back(); // its trailing backslash
    keys.push_back({HKEY_LOCAL_MACHINE, driverUpdates, KEY_WOW64_64KEY, true});
    return documentSection(
        dll,
        [&](char** text, int* length) {
            return dll.api().SupportedMiddlewareDetection(text, length, logFile);
        },
        MiddlewareMeaning, keys);
}

ReportJson OberthurSection(const PlatformDll& dll, const char* logFile) {
    return documentSection(
        dll,
        [&](char** text, int* length) {
            return dll.api().OberthurMiddlewareDetection(text, length, logFile);
        },
        OberthurMeaning, uninstallKeys());
}

ReportJson IdentityAgentSection(const PlatformDll& dll, const char* logFile) {
    ReportJson section =
        documentSection(dll,
                        [&](char** text, int* length) {
                            return dll.api().DetectIdentityAgent(text, length, logFile);
                        },
                        IdentityAgentMeaning,
                        {{HKEY_LOCAL_MACHINE, kUninstallKey, KEY_WOW64_32KEY, true},
                         {HKEY_CURRENT_USER, kTqIAUserKey, 0, false},
                         {HKEY_LOCAL_MACHINE, kTqIAMachineKey32, KEY_WOW64_64KEY, false},
                         {HKEY_LOCAL_MACHINE, kTqIAPolicyKey, KEY_WOW64_64KEY, false}});
    section["installed"] = installedAgents();
    section["userSettings"] = userSettings();
    return section;
}
