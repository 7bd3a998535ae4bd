#include "doctor/RepairRecord.h"

#include "common/RegistryFacts.h"
#include "base/TqUniqueResource.h"

#include <windows.h>
#include <sddl.h>

#include <cstdio>

namespace {

// The record's own bound: a real one is a few kilobytes.
constexpr DWORD kLargestRecord = 4 * 1024 * 1024;

// Administrators and SYSTEM only, not inherited from ProgramData (where every user may read).
constexpr const char* kMachineFolderSecurity = "D:P(A;OICI;FA;;;BA)(A;OICI;FA;;;SY)";

const char* viewWord(REGSAM view) {
    return view == KEY_WOW64_64KEY ? "64-bit" : view == KEY_WOW64_32KEY ? "32-bit" : "none";
}

const char* rootWord(HKEY root) {
    return root == HKEY_LOCAL_MACHINE ? "HKLM" : "HKCU";
}

RecordJson valueJson(const SavedValue& value) {
    return RecordJson{{"name", value.name},
                      {"present", value.present},
                      {"type", value.present ? RecordJson(RegistryTypeName(value.type)) : nullptr},
                      {"data", value.present ? RecordJson(HexText(value.data)) : nullptr}};
}

RecordJson keyJson(const SavedKey& key) {
    RecordJson values = RecordJson::array();
    for (const SavedValue& value : key.values) {
        values.push_back(valueJson(value));
    }
    return RecordJson{
        {"family", FamilyWord(key.key.family)},
        {"root", rootWord(key.key.root)},
        {"path", key.key.path},
        {"view", viewWord(key.key.view)},
        {"existed", key.existed},
        {"missingFrom", key.existed ? RecordJson(nullptr) : RecordJson(key.missingFrom)},
        {"values", values}};
}

bool hexBytes(const std::string& text, std::vector<BYTE>& bytes) {
    if (text.size() % 2 != 0) {
        return false;
    }
    bytes.clear();
    for (std::size_t at = 0; at < text.size(); at += 2) {
        unsigned int byte = 0;
        for (const char c : {text[at], text[at + 1]}) {
            const int digit = c >= '0' && c <= '9'   ? c - '0'
                              : c >= 'A' && c <= 'F' ? c - 'A' + 10
                              : c >= 'a' && c <= 'f' ? c - 'a' + 10
                                                     : -1;
            if (digit < 0) {
                return false;
            }
            byte = byte * 16 + static_cast<unsigned int>(digit);
        }
        bytes.push_back(static_cast<BYTE>(byte));
    }
    return true;
}

bool textAt(const RecordJson& object, const char* name, std::string& text) {
    if (!object.is_object() || !object.contains(name) || !object[name].is_string()) {
        return false;
    }
    text = object[name].get<std::string>();
    return true;
}

bool flagAt(const RecordJson& object, const char* name, bool& flag) {
    if (!object.is_object() || !object.contains(name) || !object[name].is_boolean()) {
        return false;
    }
    flag = object[name].get<bool>();
    return true;
}

// The touched key a record's entry names; null when no fix of the scope touches such a key.
const TouchedKey* knownKey(const std::vector<TouchedKey>& known, const std::string& family,
                           const std::string& root, const std::string& path,
                           const std::string& view) {
    for (const TouchedKey& key : known) {
        if (family == FamilyWord(key.family) && root == rootWord(key.root) && path == key.path &&
            view == viewWord(key.view)) {
            return &key;
        }
    }
    return nullptr;
}

bool readValue(const RecordJson& entry, const TouchedKey& key, SavedValue& value,
               std::string& problem) {
    if (!textAt(entry, "name", value.name) || !flagAt(entry, "present", value.present)) {
        problem = "a value without its name or presence";
        return false;
    }
    bool known = false;
    for (const std::string& name : key.values) {
        known = known || name == value.name;
    }
    if (!known) {
        problem = "value " + value.name + " is not one a fix touches";
        return false;
    }
    if (!value.present) {
        return true;
    }
    std::string type;
    std::string data;
    if (!textAt(entry, "type", type) || !RegistryTypeFromName(type, value.type) ||
        !textAt(entry, "data", data) || !hexBytes(data, value.data)) {
        problem = "value " + value.name + " has no type or bytes zelplat can write";
        return false;
    }
    return true;
}

bool readKey(const RecordJson& entry, const std::vector<TouchedKey>& known, SavedKey& key,
             std::string& problem) {
    std::string family;
    std::string root;
    std::string path;
    std::string view;
    if (!textAt(entry, "family", family) || !textAt(entry, "root", root) ||
        !textAt(entry, "path", path) || !textAt(entry, "view", view) ||
        !flagAt(entry, "existed", key.existed) || !entry.contains("values") ||
        !entry["values"].is_array()) {
        problem = "a key entry without family, root, path, view, existed or values";
        return false;
    }
    const TouchedKey* touched = knownKey(known, family, root, path, view);
    if (touched == nullptr) {
        problem = "key " + root + "\\" + path + " is not one a fix of this record's scope touches";
        return false;
    }
    key.key = *touched;
    if (!key.existed) {
        // Only the key itself or one of its parents, at a name's boundary.
        if (!textAt(entry, "missingFrom", key.missingFrom) || key.missingFrom.empty() ||
            path.compare(0, key.missingFrom.size(), key.missingFrom) != 0 ||
            (path.size() > key.missingFrom.size() && path[key.missingFrom.size()] != '\\')) {
            problem =
                "key " + root + "\\" + path + " has no missingFrom that is one of its parents";
            return false;
        }
    }
    for (const RecordJson& item : entry["values"]) {
        SavedValue value;
        if (!readValue(item, *touched, value, problem)) {
            return false;
        }
        key.values.push_back(value);
    }
    return true;
}

bool fileText(const std::string& path, std::string& text, std::string& problem) {
    TqUniqueFile file(::CreateFileA(path.c_str(), GENERIC_READ, FILE_SHARE_READ, nullptr,
                                    OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr));
    if (!file) {
        problem = "it cannot be opened (error " + std::to_string(::GetLastError()) + ")";
        return false;
    }
    LARGE_INTEGER size{};
    if (!::GetFileSizeEx(file.get(), &size) || size.QuadPart > kLargestRecord) {
        problem = "it is larger than any undo record";
        return false;
    }
    text.resize(static_cast<std::size_t>(size.QuadPart));
    DWORD read = 0;
    if (!text.empty() &&
        (!::ReadFile(file.get(), text.data(), static_cast<DWORD>(text.size()), &read, nullptr) ||
         read != text.size())) {
        problem = "it cannot be read (error " + std::to_string(::GetLastError()) + ")";
        return false;
    }
    return true;
}

std::string environmentFolder(const char* name) {
    char folder[MAX_PATH + 1] = {};
    const DWORD length = ::GetEnvironmentVariableA(name, folder, sizeof folder);
    return length == 0 || length >= sizeof folder ? std::string() : std::string(folder, length);
}

// A folder that is there as a real folder, not a link or junction to somewhere else.
bool plainFolder(const std::string& path) {
    const DWORD attributes = ::GetFileAttributesA(path.c_str());
    return attributes != INVALID_FILE_ATTRIBUTES && (attributes & FILE_ATTRIBUTE_DIRECTORY) != 0 &&
           (attributes & FILE_ATTRIBUTE_REPARSE_POINT) == 0;
}

bool makeFolder(const std::string& path, SECURITY_ATTRIBUTES* security, std::string& problem) {
    if (!::CreateDirectoryA(path.c_str(), security) && ::GetLastError() != ERROR_ALREADY_EXISTS) {
        problem =
            "folder " + path + " cannot be made (error " + std::to_string(::GetLastError()) + ")";
        return false;
    }
    if (!plainFolder(path)) {
        problem = path + " is not a folder of its own (a file, a link or a junction)";
        return false;
    }
    return true;
}

} // namespace

std::string UtcTimeText() {
    SYSTEMTIME now{};
    ::GetSystemTime(&now);
    char text[32] = {};
    std::snprintf(text, sizeof text, "%04u-%02u-%02uT%02u:%02u:%02uZ", now.wYear, now.wMonth,
                  now.wDay, now.wHour, now.wMinute, now.wSecond);
    return text;
}

RecordJson UndoRecordJson(const UndoRecord& record) {
    RecordJson keys = RecordJson::array();
    for (const SavedKey& key : record.keys) {
        keys.push_back(keyJson(key));
    }
    return RecordJson{
        {"schemaVersion", kUndoRecordSchemaVersion},
        {"scope", ScopeWord(record.scope)},
        {"time", record.time},
        {"computer", record.computer},
        {"account", RecordJson{{"name", record.account.name}, {"sid", record.account.sid}}},
        {"command", record.command},
        {"findings", record.findings},
        {"fixes", record.fixes},
        {"keys", keys}};
}

bool ReadUndoRecord(const std::string& path, UndoRecord& record, std::string& problem) {
    std::string text;
    if (!fileText(path, text, problem)) {
        return false;
    }
    const RecordJson document = RecordJson::parse(text, nullptr, false);
    if (!document.is_object()) {
        problem = "it is not a JSON object";
        return false;
    }
    if (!document.contains("schemaVersion") || !document["schemaVersion"].is_number_integer() ||
        document["schemaVersion"].get<long long>() != kUndoRecordSchemaVersion) {
        problem = "its schemaVersion is not " + std::to_string(kUndoRecordSchemaVersion);
        return false;
    }
    std::string scope;
    const RecordJson account = document.value("account", RecordJson());
    if (!textAt(document, "scope", scope) || (scope != "machine" && scope != "user") ||
        !textAt(document, "time", record.time) || !textAt(document, "computer", record.computer) ||
        !textAt(account, "name", record.account.name) ||
        !textAt(account, "sid", record.account.sid) ||
        !textAt(document, "command", record.command) || !document.contains("keys") ||
        !document["keys"].is_array()) {
        problem = "it lacks scope, time, computer, account, command or keys";
        return false;
    }
    record.account.read = true;
    record.scope = scope == "machine" ? RepairScope::kMachine : RepairScope::kUser;
    record.findings = document.value("findings", RecordJson::array());
    record.fixes = document.value("fixes", RecordJson::array());
    const std::vector<TouchedKey> known = TouchedKeys(record.scope);
    for (const RecordJson& entry : document["keys"]) {
        SavedKey key;
        if (!readKey(entry, known, key, problem)) {
            return false;
        }
        record.keys.push_back(key);
    }
    return true;
}

std::string WriteUndoRecord(const UndoRecord& record, const char* kind, std::string& problem) {
    const bool machine = record.scope == RepairScope::kMachine;
    const std::string base = environmentFolder(machine ? "ProgramData" : "LOCALAPPDATA");
    if (base.empty()) {
        problem = machine ? "%ProgramData% is not set" : "%LOCALAPPDATA% is not set";
        return "";
    }
    TqUniqueLocalMemory descriptor;
    SECURITY_ATTRIBUTES attributes{sizeof attributes, nullptr, FALSE};
    SECURITY_ATTRIBUTES* security = nullptr;
    if (machine) {
        PSECURITY_DESCRIPTOR made = nullptr;
        if (!::ConvertStringSecurityDescriptorToSecurityDescriptorA(
                kMachineFolderSecurity, SDDL_REVISION_1, &made, nullptr)) {
            problem = "the folder's security cannot be made";
            return "";
        }
        descriptor.reset(made);
        attributes.lpSecurityDescriptor = made;
        security = &attributes;
    }
    const std::string product = base + "\\ZelPlatform";
    const std::string folder = product + "\\repairs";
    if (!makeFolder(product, nullptr, problem) || !makeFolder(folder, security, problem)) {
        return "";
    }
    // A folder someone made before zelplat did gets the administrators-only security too.
    if (machine &&
        !::SetFileSecurityA(folder.c_str(),
                            DACL_SECURITY_INFORMATION | PROTECTED_DACL_SECURITY_INFORMATION,
                            descriptor.get())) {
        problem = "the security of " + folder + " cannot be set (error " +
                  std::to_string(::GetLastError()) + ")";
        return "";
    }
    std::string stamp;
    for (const char c : record.time) {
        if (c != '-' && c != ':') {
            stamp += c;
        }
    }
    const std::string text =
        UndoRecordJson(record).dump(2, ' ', false, nlohmann::json::error_handler_t::replace) + "\n";
    for (int attempt = 1; attempt <= 100; ++attempt) {
        std::string path = folder;
        path.append("\\").append(kind).append("-").append(stamp).append("-");
        path.append(std::to_string(::GetCurrentProcessId()));
        if (attempt > 1) {
            path.append("-").append(std::to_string(attempt));
        }
        path.append(".json");
        // CREATE_NEW fails on anything already there, a link too: nothing is overwritten.
        TqUniqueFile file(::CreateFileA(path.c_str(), GENERIC_WRITE, 0, security, CREATE_NEW,
                                        FILE_ATTRIBUTE_NORMAL | FILE_FLAG_OPEN_REPARSE_POINT,
                                        nullptr));
        if (!file) {
            if (::GetLastError() == ERROR_FILE_EXISTS) {
                continue;
            }
            problem = path + " cannot be created (error " + std::to_string(::GetLastError()) + ")";
            return "";
        }
        DWORD written = 0;
        if (!::WriteFile(file.get(), text.data(), static_cast<DWORD>(text.size()), &written,
                         nullptr) ||
            written != text.size() || !::FlushFileBuffers(file.get())) {
            problem = path + " cannot be written (error " + std::to_string(::GetLastError()) + ")";
            return "";
        }
        return path;
    }
    problem = "no new file name is left in " + folder;
    return "";
}
