#include "doctor/RepairRegistry.h"

#include "common/RegistryFacts.h"
#include "base/TqErrorText.h"
#include "base/TqUniqueResource.h"
#include "card/TqATRMiddleware.h"
#include "card/TqEnrollmentMode.h"
#include "identityagent/TqSpringCheck.h"

namespace {

// The five values the library writes into each JCOP 41 entry.
const std::vector<std::string> kAtrValues = {"80000001", "ATR", "ATRMask", "Crypto Provider",
                                             "Smart Card Key Storage Provider"};

// "Access denied." without the code and the line end the system's text carries.
std::string systemText(LONG status) {
    std::string text = TqGetLastErrorAsString(static_cast<std::uint32_t>(status));
    const std::size_t dash = text.find(" - ");
    if (dash != std::string::npos) {
        text = text.substr(dash + 3);
    }
    while (!text.empty() && (text.back() == '\n' || text.back() == '\r' || text.back() == ' ')) {
        text.pop_back();
    }
    return text;
}

KeyFailure failure(const TouchedKey& key, LONG status, const std::string& what) {
    return {TouchedKeyName(key), status, what + ": " + systemText(status)};
}

std::string parentOf(const std::string& path) {
    const std::size_t slash = path.rfind('\\');
    return slash == std::string::npos ? std::string() : path.substr(0, slash);
}

LONG readValue(HKEY key, const std::string& name, SavedValue& value) {
    value = SavedValue{};
    value.name = name;
    DWORD size = 0;
    LONG status = ::RegQueryValueExA(key, name.c_str(), nullptr, &value.type, nullptr, &size);
    if (status == ERROR_FILE_NOT_FOUND) {
        return ERROR_SUCCESS;
    }
    if (status != ERROR_SUCCESS) {
        return status;
    }
    value.data.resize(size);
    status = ::RegQueryValueExA(key, name.c_str(), nullptr, &value.type, value.data.data(), &size);
    if (status != ERROR_SUCCESS) {
        return status;
    }
    value.data.resize(size);
    value.present = true;
    return ERROR_SUCCESS;
}

// RegSetValueExA stores one byte more for string types when the byte after the count is a NUL:
// a byte that is not NUL there keeps the stored count exactly as saved.
LONG writeExactly(HKEY key, const SavedValue& value) {
    std::vector<BYTE> guarded = value.data;
    guarded.push_back('#');
    return ::RegSetValueExA(key, value.name.c_str(), 0, value.type, guarded.data(),
                            static_cast<DWORD>(value.data.size()));
}

bool sameValue(const SavedValue& a, const SavedValue& b) {
    return a.present == b.present && (!a.present || (a.type == b.type && a.data == b.data));
}

// Whether the key has neither values nor subkeys left, so removing it loses nothing.
bool emptyKey(HKEY root, const std::string& path, REGSAM view) {
    TqUniqueRegKey key;
    if (::RegOpenKeyExA(root, path.c_str(), 0, KEY_QUERY_VALUE | view, key.put()) !=
        ERROR_SUCCESS) {
        return false;
    }
    DWORD subkeys = 0;
    DWORD values = 0;
    return ::RegQueryInfoKeyA(key.get(), nullptr, nullptr, nullptr, &subkeys, nullptr, nullptr,
                              &values, nullptr, nullptr, nullptr, nullptr) == ERROR_SUCCESS &&
           subkeys == 0 && values == 0;
}

void putBackMissingKey(const SavedKey& saved, std::vector<KeyFailure>& failures) {
    const TouchedKey& touched = saved.key;
    {
        TqUniqueRegKey key;
        const LONG status = ::RegOpenKeyExA(touched.root, touched.path.c_str(), 0,
                                            KEY_SET_VALUE | touched.view, key.put());
        if (status == ERROR_FILE_NOT_FOUND) {
            return;
        }
        if (status != ERROR_SUCCESS) {
            failures.push_back(failure(touched, status, "cannot be opened to remove it"));
            return;
        }
        for (const std::string& name : touched.values) {
            const LONG deleted = ::RegDeleteValueA(key.get(), name.c_str());
            if (deleted != ERROR_SUCCESS && deleted != ERROR_FILE_NOT_FOUND) {
                failures.push_back(failure(touched, deleted, "value " + name + " not removed"));
                return;
            }
        }
    }
    // The fix created every key from missingFrom down; each goes again while nothing else is
    // in it.
    for (std::string path = touched.path; !path.empty() && path.size() >= saved.missingFrom.size();
         path = parentOf(path)) {
        if (!emptyKey(touched.root, path, touched.view)) {
            if (path == touched.path) {
                failures.push_back({TouchedKeyName(touched), ERROR_SUCCESS,
                                    "not removed: something else was stored in it since"});
            }
            return;
        }
        const LONG status = ::RegDeleteKeyExA(touched.root, path.c_str(), touched.view, 0);
        if (status != ERROR_SUCCESS && status != ERROR_FILE_NOT_FOUND) {
            failures.push_back(failure(touched, status, "not removed"));
            return;
        }
    }
}

void putBackKey(const SavedKey& saved, std::vector<KeyFailure>& failures) {
    const TouchedKey& touched = saved.key;
    TqUniqueRegKey key;
    const LONG status = ::RegCreateKeyExA(
        touched.root, touched.path.c_str(), 0, nullptr, REG_OPTION_NON_VOLATILE,
        KEY_QUERY_VALUE | KEY_SET_VALUE | touched.view, nullptr, key.put(), nullptr);
    if (status != ERROR_SUCCESS) {
        failures.push_back(failure(touched, status, "cannot be opened for writing"));
        return;
    }
    for (const SavedValue& value : saved.values) {
        SavedValue now;
        if (readValue(key.get(), value.name, now) == ERROR_SUCCESS && sameValue(now, value)) {
            continue;
        }
        const LONG written = value.present ? writeExactly(key.get(), value)
                                           : ::RegDeleteValueA(key.get(), value.name.c_str());
        // A value that was absent and is absent again is put back.
        const bool absentAlready = written == ERROR_FILE_NOT_FOUND && !value.present;
        if (written != ERROR_SUCCESS && !absentAlready) {
            failures.push_back(failure(touched, written, "value " + value.name + " not put back"));
        }
    }
}

} // namespace

RepairScope ScopeOf(FixFamily family) {
    return family == FixFamily::kAtr ? RepairScope::kMachine : RepairScope::kUser;
}

const char* FamilyWord(FixFamily family) {
    switch (family) {
    case FixFamily::kAtr:
        return "atr";
    case FixFamily::kEnrollment:
        return "enrollment";
    case FixFamily::kSpringCheck:
        return "spring-check";
    }
    return "";
}

const char* ScopeWord(RepairScope scope) {
    return scope == RepairScope::kMachine ? "machine" : "user";
}

std::vector<TouchedKey> TouchedKeys(FixFamily family) {
    switch (family) {
    case FixFamily::kAtr: {
        // The library's order: both entries in the 64-bit view, then both in the 32-bit view.
        std::vector<TouchedKey> keys;
        for (const REGSAM view : {KEY_WOW64_64KEY, KEY_WOW64_32KEY}) {
            for (const char* path : {kTqJcopContactKey, kTqJcopContactlessKey}) {
                keys.push_back({family, HKEY_LOCAL_MACHINE, path, view, kAtrValues});
            }
        }
        return keys;
    }
    case FixFamily::kEnrollment:
        return {{family, HKEY_CURRENT_USER, kTqEnrollmentKey, 0, {kTqEnrollmentValue}}};
    case FixFamily::kSpringCheck:
        return {{family,
                 HKEY_CURRENT_USER,
                 kTqIAUserKey,
                 0,
                 {kTqCardRemovalCheckValue, kTqZelCheckValue}}};
    }
    return {};
}

std::vector<TouchedKey> TouchedKeys(RepairScope scope) {
    std::vector<TouchedKey> keys;
    for (const FixFamily family :
         {FixFamily::kAtr, FixFamily::kEnrollment, FixFamily::kSpringCheck}) {
        if (ScopeOf(family) == scope) {
            const std::vector<TouchedKey> more = TouchedKeys(family);
            keys.insert(keys.end(), more.begin(), more.end());
        }
    }
    return keys;
}

std::string TouchedKeyName(const TouchedKey& key) {
    return KeyName(key.root, key.path, key.view);
}

std::vector<SavedKey> ReadTouchedKeys(const std::vector<TouchedKey>& keys,
                                      std::vector<KeyFailure>& failures) {
    std::vector<SavedKey> saved;
    for (const TouchedKey& touched : keys) {
        SavedKey entry;
        entry.key = touched;
        TqUniqueRegKey key;
        const LONG status = ::RegOpenKeyExA(touched.root, touched.path.c_str(), 0,
                                            KEY_QUERY_VALUE | touched.view, key.put());
        if (status == ERROR_FILE_NOT_FOUND) {
            std::string missing = touched.path;
            for (std::string parent = parentOf(missing); !parent.empty();
                 parent = parentOf(parent)) {
                TqUniqueRegKey above;
                if (::RegOpenKeyExA(touched.root, parent.c_str(), 0, KEY_QUERY_VALUE | touched.view,
                                    above.put()) != ERROR_FILE_NOT_FOUND) {
                    break;
                }
                missing = parent;
            }
            entry.missingFrom = missing;
            for (const std::string& name : touched.values) {
                SavedValue absent;
                absent.name = name;
                entry.values.push_back(absent);
            }
            saved.push_back(entry);
            continue;
        }
        if (status != ERROR_SUCCESS) {
            failures.push_back(failure(touched, status, "cannot be read"));
            continue;
        }
        entry.existed = true;
        for (const std::string& name : touched.values) {
            SavedValue value;
            const LONG read = readValue(key.get(), name, value);
            if (read != ERROR_SUCCESS) {
                failures.push_back(failure(touched, read, "value " + name + " cannot be read"));
            }
            entry.values.push_back(value);
        }
        saved.push_back(entry);
    }
    return saved;
}

std::vector<KeyFailure> CheckWriteAccess(const std::vector<TouchedKey>& keys) {
    std::vector<KeyFailure> failures;
    for (const TouchedKey& touched : keys) {
        std::string path = touched.path;
        // The library opens its keys with all access, creating a missing one.
        REGSAM access = KEY_ALL_ACCESS;
        for (;;) {
            TqUniqueRegKey key;
            const LONG status =
                ::RegOpenKeyExA(touched.root, path.c_str(), 0, access | touched.view, key.put());
            if (status == ERROR_SUCCESS) {
                break;
            }
            if (status != ERROR_FILE_NOT_FOUND || parentOf(path).empty()) {
                failures.push_back({KeyName(touched.root, path, touched.view), status,
                                    "cannot be opened for writing: " + systemText(status)});
                break;
            }
            path = parentOf(path);
            access = KEY_CREATE_SUB_KEY;
        }
    }
    return failures;
}

std::vector<KeyFailure> PutBack(const std::vector<SavedKey>& saved) {
    std::vector<KeyFailure> failures;
    for (const SavedKey& key : saved) {
        if (key.existed) {
            putBackKey(key, failures);
        } else {
            putBackMissingKey(key, failures);
        }
    }
    return failures;
}

namespace {

struct TypeName {
    DWORD type;
    const char* name;
};

const TypeName kTypeNames[] = {
    {REG_NONE, "REG_NONE"},
    {REG_SZ, "REG_SZ"},
    {REG_EXPAND_SZ, "REG_EXPAND_SZ"},
    {REG_BINARY, "REG_BINARY"},
    {REG_DWORD, "REG_DWORD"},
    {REG_DWORD_BIG_ENDIAN, "REG_DWORD_BIG_ENDIAN"},
    {REG_MULTI_SZ, "REG_MULTI_SZ"},
    {REG_RESOURCE_LIST, "REG_RESOURCE_LIST"},
    {REG_FULL_RESOURCE_DESCRIPTOR, "REG_FULL_RESOURCE_DESCRIPTOR"},
    {REG_RESOURCE_REQUIREMENTS_LIST, "REG_RESOURCE_REQUIREMENTS_LIST"},
    {REG_QWORD, "REG_QWORD"},
};

} // namespace

std::string RegistryTypeName(DWORD type) {
    for (const TypeName& known : kTypeNames) {
        if (known.type == type) {
            return known.name;
        }
    }
    return "REG_TYPE_" + std::to_string(type);
}

bool RegistryTypeFromName(const std::string& name, DWORD& type) {
    for (const TypeName& known : kTypeNames) {
        if (name == known.name) {
            type = known.type;
            return true;
        }
    }
    return false;
}
