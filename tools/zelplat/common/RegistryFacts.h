// The registry as the report reads it beside the exports: read-only, each key opened for
// reading only, in the view asked for.
#pragma once

#include <windows.h>

#include <string>
#include <vector>

enum class KeyState { kPresent, kMissing, kDenied, kUnreadable };

// A registry key that an export searches. view is KEY_WOW64_64KEY or KEY_WOW64_32KEY.
struct SearchedKey {
    HKEY root;
    std::string path;
    REGSAM view;
    // The search also opens every subkey (the Uninstall entries, the driver records).
    bool subkeysToo;
};

struct RegistryValue {
    bool present = false;
    DWORD type = REG_NONE;
    std::vector<BYTE> data;
};

KeyState ProbeKey(HKEY root, const std::string& path, REGSAM view);

// "HKLM\SOFTWARE\... (64-bit view)", as the report names a key.
std::string KeyName(HKEY root, const std::string& path, REGSAM view);

// The searched keys, and their subkeys where the search opens them, that refuse reading.
std::vector<std::string> DeniedKeys(const std::vector<SearchedKey>& keys);

RegistryValue ReadRegistryValue(HKEY root, const std::string& path, const char* name, REGSAM view);

// The subkey names of a key, in the registry's own order; none when it cannot be read.
std::vector<std::string> SubkeyNames(HKEY root, const std::string& path, REGSAM view);

// A string value's text up to its first NUL (registry text may lack the terminator).
std::string ValueText(const RegistryValue& value);

// Text of the workstation (registry data, the library's lines and documents, which are in the
// system code page) as UTF-8, for the report. ASCII stays as it is.
std::string Utf8FromSystemCodePage(const std::string& text);

// "3BF91800": upper-case hexadecimal, two digits a byte.
std::string HexText(const std::vector<BYTE>& bytes);
