// The library and fileVersions sections: modules and their version resources.
#include "report/ReportSections.h"

#include "common/RegistryFacts.h"
#include "base/TqResultCodes.h"
#include "identityagent/TqSpringCheck.h"

#include <cstdio>
#include <vector>

namespace {

constexpr const char* kSmartCardsKey = "SOFTWARE\\Microsoft\\Cryptography\\Calais\\SmartCards";
constexpr const char* kCardModuleValue = "80000001";

struct VersionResource {
    std::string fileVersion; // "1.0.0.0" from the fixed part
    std::string productName;
    std::string productVersion;
};

std::string resourceString(const std::vector<BYTE>& block, const char* name) {
    void* text = nullptr;
    UINT length = 0;
    const std::string path = std::string("\\StringFileInfo\\040904b0\\") + name;
    if (!::VerQueryValueA(block.data(), path.c_str(), &text, &length) || length == 0) {
        return "";
    }
    return std::string(static_cast<const char*>(text), length - 1);
}

VersionResource readVersionResource(const std::string& path) {
    VersionResource resource;
    const DWORD size = ::GetFileVersionInfoSizeA(path.c_str(), nullptr);
    std::vector<BYTE> block(size);
    if (size == 0 || !::GetFileVersionInfoA(path.c_str(), 0, size, block.data())) {
        return resource;
    }
    VS_FIXEDFILEINFO* fixed = nullptr;
    UINT length = 0;
    if (::VerQueryValueA(block.data(), "\\", reinterpret_cast<void**>(&fixed), &length) &&
        fixed != nullptr && length >= sizeof(VS_FIXEDFILEINFO)) {
        char text[64];
        std::snprintf(text, sizeof text, "%lu.%lu.%lu.%lu",
                      static_cast<unsigned long>(HIWORD(fixed->dwFileVersionMS)),
                      static_cast<unsigned long>(LOWORD(fixed->dwFileVersionMS)),
                      static_cast<unsigned long>(HIWORD(fixed->dwFileVersionLS)),
                      static_cast<unsigned long>(LOWORD(fixed->dwFileVersionLS)));
        resource.fileVersion = text;
    }
    resource.productName = resourceString(block, "ProductName");
    resource.productVersion = resourceString(block, "ProductVersion");
    return resource;
}

// GetFileVersion's answer for one module: its result and the major version.
ReportJson askFileVersion(const PlatformDll& dll, const std::string& path, const char* logFile) {
    const Outcome outcome = AskForText(dll.api(), [&](char** text, int* length) {
        return dll.api().GetFileVersion(path.c_str(), text, length, logFile);
    });
    ReportJson answer =
        ExportResult(outcome.result, FileVersionMeaning(outcome.result, outcome.answer));
    answer["path"] = path;
    answer["majorVersion"] = outcome.answer;
    answer["fileVersion"] = readVersionResource(path).fileVersion;
    return answer;
}

std::string systemFolder() {
    char folder[MAX_PATH];
    const UINT length = ::GetSystemDirectoryA(folder, sizeof folder);
    return std::string(folder, length < sizeof folder ? length : 0) + "\\";
}

struct Module {
    std::string role;
    std::string name;
    std::string path;
};

// The minidrivers that the card entries of the smart-card database name, each once.
std::vector<Module> namedMinidrivers() {
    std::vector<Module> modules;
    for (const std::string& card : SubkeyNames(HKEY_LOCAL_MACHINE, kSmartCardsKey, 0)) {
        const std::string name = ValueText(ReadRegistryValue(
            HKEY_LOCAL_MACHINE, std::string(kSmartCardsKey) + "\\" + card, kCardModuleValue, 0));
        bool known = name.empty();
        for (const Module& module : modules) {
            known = known || module.name == name;
        }
        if (!known) {
            const bool bare = name.find_first_of("\\/") == std::string::npos;
            modules.push_back({"minidriver", name, bare ? systemFolder() + name : name});
        }
    }
    return modules;
}

// The organisation's agent, where its installation says it lives.
std::vector<Module> agentExecutable() {
    const std::string folder = ValueText(
        ReadRegistryValue(HKEY_LOCAL_MACHINE, kTqIAMachineKey32, "InstallDir", KEY_WOW64_64KEY));
    if (folder.empty()) {
        return {};
    }
    const std::string separator = folder.back() == '\\' ? "" : "\\";
    return {{"identityAgent", kTqKVRAgentExecutable, folder + separator + kTqKVRAgentExecutable}};
}

} // namespace

ReportJson ExportResult(int result, const ResultMeaning& meaning) {
    return ReportJson{
        {"result", result},
        {"outcome", meaning.outcome},
        {"outcomeText", meaning.text},
        {"resultText", meaning.failed ? ReportJson(TqGetCommonResultText(result)) : ReportJson()}};
}

ResultMeaning FileVersionMeaning(int result, const std::string& majorVersion) {
    if (result == 0) {
        return {"read", "Major file version " + majorVersion + "."};
    }
    if (result == tq::kNotFound) {
        return {"not found", "There is no such file.", true};
    }
    return {"failed", "The file's version could not be read.", true};
}

ResultMeaning EnrollmentMeaning(int result, const std::string& mode) {
    switch (result) {
    case 0:
        return {"set", "The PIV minidriver presents the " + mode + " applet."};
    case tq::kNotFound:
        return {"not set", "No applet is set: the PIV minidriver's key is missing."};
    case tq::kInternalError:
        return {"not set", "No applet is set: the PIV minidriver's key has no "
                           "EnableKVREnrollment value."};
    default:
        return {"failed", "The applet could not be read.", true};
    }
}

ResultMeaning AtrMeaning(int result, const std::string& answer) {
    switch (result) {
    case 0:
        return {"answered", "The JCOP 41 card entries give the card to " + answer + "."};
    case 19:
        return {"entry missing", "A JCOP 41 card entry is missing.", true};
    case 21:
        return {"entry unreadable", "A JCOP 41 card entry's ATR cannot be read.", true};
    case 32:
        return {"entries disagree", "The two JCOP 41 card entries name different minidrivers.",
                true};
    case tq::kNotFound:
        return {"unknown ATR", "A JCOP 41 card entry's ATR names neither minidriver.", true};
    default:
        return {"failed", "The JCOP 41 card entries could not be read.", true};
    }
}

ResultMeaning MiddlewareMeaning(int result) {
    if (result == 0) {
        return {"read", "The supported-middleware document lists what is installed."};
    }
    return {"failed", "The supported middleware could not be detected.", true};
}

ResultMeaning OberthurMeaning(int result) {
    switch (result) {
    case 1:
        return {"detected", "The OT middleware is installed."};
    case 0:
        return {"not detected", "The OT middleware is not installed."};
    default:
        return {"failed", "The installed programs could not be searched.", true};
    }
}

ResultMeaning IdentityAgentMeaning(int result) {
    switch (result) {
    case 1:
        return {"found", "An Identity Agent is installed and running."};
    case 0:
        return {"not found", "No Identity Agent is running."};
    default:
        return {"failed",
                result < 0 ? "Neither Identity Agent could be looked for."
                           : "The Identity Agent document could not be made.",
                true};
    }
}

void EmbedDocument(ReportJson& section, const std::string& libraryText) {
    // The library's document stays as it came; the report holds it as UTF-8.
    const std::string text = Utf8FromSystemCodePage(libraryText);
    ReportJson document = ReportJson::parse(text, nullptr, false);
    if (document.is_discarded()) {
        section["document"] = nullptr;
        section["unparsedText"] = text;
        return;
    }
    section["document"] = document;
}

ReportJson LibrarySection(const PlatformDll& dll, const char* logFile) {
    ReportJson section = askFileVersion(dll, dll.path(), logFile);
    const VersionResource resource = readVersionResource(dll.path());
    section["productName"] = resource.productName;
    section["productVersion"] = resource.productVersion;
    return section;
}

ReportJson FileVersionsSection(const PlatformDll& dll, const char* logFile) {
    std::vector<Module> modules = {{"winscard", "winscard.dll", systemFolder() + "winscard.dll"}};
    for (const std::vector<Module>& more : {namedMinidrivers(), agentExecutable()}) {
        modules.insert(modules.end(), more.begin(), more.end());
    }
    int firstFailure = 0;
    ReportJson answers = ReportJson::array();
    for (const Module& module : modules) {
        ReportJson answer = askFileVersion(dll, module.path, logFile);
        if (firstFailure == 0) {
            firstFailure = answer["result"].get<int>();
        }
        answer["role"] = module.role;
        answer["module"] = module.name;
        answers.push_back(answer);
    }
    ReportJson section = ExportResult(
        firstFailure, firstFailure == 0
                          ? ResultMeaning{"read", "Every module's version was read."}
                          : ResultMeaning{"failed", "A module's version could not be read.", true});
    section["modules"] = answers;
    return section;
}
