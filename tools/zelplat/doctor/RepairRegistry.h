// The registry a doctor's fix may touch, read and put back value by value with exact bytes. A fix
// is one of the library's switches; the library writes what it writes, and this is what zelplat
// keeps beside it so that the change can be undone.
#pragma once

#include <windows.h>

#include <string>
#include <vector>

// The switches the doctor applies, by the registry they touch.
enum class FixFamily { kAtr, kEnrollment, kSpringCheck };

// Machine-wide fixes change HKLM (an administrator's); per-user ones the running user's HKCU.
enum class RepairScope { kMachine, kUser };

RepairScope ScopeOf(FixFamily family);
const char* FamilyWord(FixFamily family); // "atr", "enrollment", "spring-check"
const char* ScopeWord(RepairScope scope); // "machine", "user"

// One key a fix may write, and the names of the values in it that it may write or delete.
struct TouchedKey {
    FixFamily family = FixFamily::kAtr;
    HKEY root = nullptr;
    std::string path;
    REGSAM view = 0; // KEY_WOW64_64KEY, KEY_WOW64_32KEY, or 0 for HKCU
    std::vector<std::string> values;
};

std::vector<TouchedKey> TouchedKeys(FixFamily family);
std::vector<TouchedKey> TouchedKeys(RepairScope scope);

struct SavedValue {
    std::string name;
    bool present = false;
    DWORD type = REG_NONE;
    std::vector<BYTE> data;
};

// A key as it was: whether it existed, the first key of its path that did not (which the fix's
// write creates, with all below it), and each value.
struct SavedKey {
    TouchedKey key;
    bool existed = false;
    std::string missingFrom; // "" when it existed
    std::vector<SavedValue> values;
};

// What went wrong with one key, for the person and for the exit code.
struct KeyFailure {
    std::string key; // as KeyName gives it
    LONG status = ERROR_SUCCESS;
    std::string text; // "cannot be opened for writing: Access denied."
};

// Reads every touched key as it is. A key that cannot be read is a failure, and the snapshot is
// then incomplete: nothing may be changed on it.
std::vector<SavedKey> ReadTouchedKeys(const std::vector<TouchedKey>& keys,
                                      std::vector<KeyFailure>& failures);

// Opens every key for the writing the library does (all access, as the library asks), or, for a
// key that is not there, its nearest existing parent for creating a subkey. Writes nothing.
std::vector<KeyFailure> CheckWriteAccess(const std::vector<TouchedKey>& keys);

// Puts each key back as saved: values with their bytes and types, values that were absent
// deleted, keys that did not exist removed (down from missingFrom, only while empty). A value
// that is already as saved is not written.
std::vector<KeyFailure> PutBack(const std::vector<SavedKey>& saved);

// "HKLM\SOFTWARE\... (64-bit view)" / "HKCU\SOFTWARE\...".
std::string TouchedKeyName(const TouchedKey& key);

// REG_SZ, REG_BINARY, ... by name, and back; false for a name zelplat does not know.
std::string RegistryTypeName(DWORD type);
bool RegistryTypeFromName(const std::string& name, DWORD& type);
