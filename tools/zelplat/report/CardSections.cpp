// The enrollment and atr sections: the PIV minidriver's applet and the JCOP 41 card entries.
#include "report/ReportSections.h"

#include "common/RegistryFacts.h"
#include "base/TqUniqueResource.h"
#include "card/TqATRMiddleware.h"
#include "card/TqEnrollmentMode.h"

namespace {

// The minidriver file the set names in every entry it writes.
constexpr const char* kGemSafeFile = "GemSafeMD.dll";

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

// Where Windows looks for a minidriver named without a folder: System32 for 64-bit programs,
// SysWOW64 for 32-bit ones.
std::string minidriverFolder(REGSAM view) {
    char folder[MAX_PATH + 1] = {};
    const UINT length = view == KEY_WOW64_32KEY ? ::GetSystemWow64DirectoryA(folder, sizeof folder)
                                                : ::GetSystemDirectoryA(folder, sizeof folder);
    return length > 0 && length <= MAX_PATH ? std::string(folder, length) + "\\" : std::string();
}

// An entry that can match a card claims it; one whose ATR starts with FF (how the library takes
// the card from the GemSafe minidriver) can match none.
const char* effectOf(KeyState state, const std::string& atrHex) {
    if (state != KeyState::kPresent) {
        return "absent";
    }
    return atrHex.rfind("FF", 0) == 0 ? "disabled" : "active";
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
    answer["effect"] = effectOf(state, answer["atr"].get<std::string>());
    const std::string minidriver = answer["minidriver"].get<std::string>();
    if (minidriver.empty()) {
        answer["minidriverPath"] = nullptr;
        answer["minidriverInstalled"] = nullptr;
    } else {
        const bool bare = minidriver.find_first_of("\\/:") == std::string::npos;
        const std::string file = bare ? minidriverFolder(view) + minidriver : minidriver;
        answer["minidriverPath"] = file;
        answer["minidriverInstalled"] =
            ::GetFileAttributesA(file.c_str()) != INVALID_FILE_ATTRIBUTES;
    }
    return answer;
}

const char* typeName(DWORD type) {
    switch (type) {
    case REG_DWORD:
        return "REG_DWORD";
    case REG_QWORD:
        return "REG_QWORD";
    case REG_SZ:
        return "REG_SZ";
    case REG_EXPAND_SZ:
        return "REG_EXPAND_SZ";
    case REG_BINARY:
        return "REG_BINARY";
    case REG_MULTI_SZ:
        return "REG_MULTI_SZ";
    case REG_NONE:
        return "REG_NONE";
    default:
        return "other";
    }
}

// What the applet's value holds, beside the library's answer: the library opens the key for
// writing and reads a 4-byte number, so a key that refuses writing or a value of another size
// reads as AGILE whatever is stored. "meaning" is the stored number read as the library means
// it (0 AGILE, any other COMPATIBILITY), null when there is no value or it is no number.
ReportJson storedApplet() {
    const RegistryValue value =
        ReadRegistryValue(HKEY_CURRENT_USER, kTqEnrollmentKey, kTqEnrollmentValue, 0);
    ReportJson stored = ReportJson::object();
    stored["present"] = value.present;
    stored["type"] = value.present ? ReportJson(typeName(value.type)) : ReportJson();
    stored["data"] = value.present ? ReportJson(HexText(value.data)) : ReportJson();
    const bool number =
        value.present &&
        (value.type == REG_DWORD || value.type == REG_QWORD || value.type == REG_BINARY) &&
        !value.data.empty() && value.data.size() <= 8;
    bool zero = true;
    for (const BYTE byte : value.data) {
        zero = zero && byte == 0;
    }
    stored["meaning"] = number ? ReportJson(zero ? "AGILE" : "COMPATIBILITY") : ReportJson();
    TqUniqueRegKey key;
    const LSTATUS status =
        ::RegOpenKeyExA(HKEY_CURRENT_USER, kTqEnrollmentKey, 0, KEY_SET_VALUE, key.put());
    stored["keyWritable"] =
        status == ERROR_FILE_NOT_FOUND ? ReportJson() : ReportJson(status == ERROR_SUCCESS);
    return stored;
}

} // namespace

ReportJson EnrollmentSection(const PlatformDll& dll, const char* logFile) {
    const Outcome outcome = AskForText(dll.api(), [&](char** text, int* length) {
        return dll.api().GetEnrollmentMode(text, length, logFile);
    });
    ReportJson section =
        ExportResult(outcome.result, EnrollmentMeaning(outcome.result, outcome.answer));
    section["mode"] = outcome.answer;
    section["stored"] = storedApplet();
    section["deniedKeys"] = DeniedKeys({{HKEY_CURRENT_USER, kTqEnrollmentKey, 0, false}});
    return section;
}

ReportJson AtrSection(const PlatformDll& dll, const char* logFile) {
    const Outcome outcome = AskForText(dll.api(), [&](char** text, int* length) {
        return dll.api().GetATRMiddlewareDetection(text, length, logFile);
    });
    ReportJson section = ExportResult(outcome.result, AtrMeaning(outcome.result, outcome.answer));
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
    // Which minidriver takes the card in each view: an active entry's, or else the PIV minidriver.
    ReportJson servedBy = ReportJson::object();
    for (const char* view : {"64-bit", "32-bit"}) {
        std::string minidriver = "PIV minidriver";
        for (const ReportJson& entry : entries) {
            if (entry["view"] == view && entry["effect"] == "active") {
                minidriver = entry["minidriver"].get<std::string>();
                break;
            }
        }
        servedBy[view] = minidriver;
    }
    section["servedBy"] = servedBy;
    // Whether the file `atr set GEMSAFE` would give the card to is there for each view's
    // programs, also while no entry names it: the doctor judges that fix by it before offering it.
    ReportJson gemSafe = ReportJson::object();
    for (const REGSAM view : {KEY_WOW64_64KEY, KEY_WOW64_32KEY}) {
        gemSafe[view == KEY_WOW64_32KEY ? "32-bit" : "64-bit"] =
            ::GetFileAttributesA((minidriverFolder(view) + kGemSafeFile).c_str()) !=
            INVALID_FILE_ATTRIBUTES;
    }
    section["gemSafeInstalled"] = gemSafe;
    section["deniedKeys"] = denied;
    return section;
}
