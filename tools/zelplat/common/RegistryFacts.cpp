#include "common/RegistryFacts.h"

#include <algorithm>

#include "base/TqUniqueResource.h"

namespace {

KeyState stateOf(LSTATUS status) {
    switch (status) {
    case ERROR_SUCCESS:
        return KeyState::kPresent;
    case ERROR_FILE_NOT_FOUND:
        return KeyState::kMissing;
    case ERROR_ACCESS_DENIED:
        return KeyState::kDenied;
    default:
        return KeyState::kUnreadable;
    }
}

const char* rootName(HKEY root) {
    if (root == HKEY_LOCAL_MACHINE) {
        return "HKLM";
    }
    return root == HKEY_CURRENT_USER ? "HKCU" : "HK?";
}

} // namespace

KeyState ProbeKey(HKEY root, const std::string& path, REGSAM view) {
    TqUniqueRegKey key;
    return stateOf(::RegOpenKeyExA(root, path.c_str(), 0, KEY_READ | view, key.put()));
}

std::string KeyName(HKEY root, const std::string& path, REGSAM view) {
    const char* viewName = view == KEY_WOW64_32KEY ? " (32-bit view)" : " (64-bit view)";
    return std::string(rootName(root)) + "\\" + path + (root == HKEY_CURRENT_USER ? "" : viewName);
}

std::vector<std::string> DeniedKeys(const std::vector<SearchedKey>& keys) {
    std::vector<std::string> denied;
    for (const SearchedKey& key : keys) {
        if (ProbeKey(key.root, key.path, key.view) == KeyState::kDenied) {
            denied.push_back(KeyName(key.root, key.path, key.view));
            continue;
        }
        if (!key.subkeysToo) {
            continue;
        }
        for (const std::string& name : SubkeyNames(key.root, key.path, key.view)) {
            const std::string path = key.path + "\\" + name;
            if (ProbeKey(key.root, path, key.view) == KeyState::kDenied) {
                denied.push_back(KeyName(key.root, path, key.view));
            }
        }
    }
    return denied;
}

RegistryValue ReadRegistryValue(HKEY root, const std::string& path, const char* name, REGSAM view) {
    RegistryValue value;
    TqUniqueRegKey key;
    if (::RegOpenKeyExA(root, path.c_str(), 0, KEY_READ | view, key.put()) != ERROR_SUCCESS) {
        return value;
    }
    DWORD size = 0;
    if (::RegQueryValueExA(key.get(), name, nullptr, &value.type, nullptr, &size) !=
        ERROR_SUCCESS) {
        return value;
    }
    value.data.resize(size);
    if (::RegQueryValueExA(key.get(), name, nullptr, &value.type, value.data.data(), &size) !=
        ERROR_SUCCESS) {
        value.data.clear();
        return value;
    }
    value.data.resize(size);
    value.present = true;
    return value;
}

std::vector<std::string> SubkeyNames(HKEY root, const std::string& path, REGSAM view) {
    std::vector<std::string> names;
    TqUniqueRegKey key;
    if (::RegOpenKeyExA(root, path.c_str(), 0, KEY_READ | view, key.put()) != ERROR_SUCCESS) {
        return names;
    }
    char name[256];
    for (DWORD index = 0;; ++index) {
        DWORD length = sizeof name;
        const LSTATUS status =
            ::RegEnumKeyExA(key.get(), index, name, &length, nullptr, nullptr, nullptr, nullptr);
        if (status == ERROR_MORE_DATA) {
            continue; // longer than a key name can be: not one the searches look for
        }
        if (status != ERROR_SUCCESS) {
            break;
        }
        names.emplace_back(name, length);
    }
    return names;
}

std::string ValueText(const RegistryValue& value) {
    std::string text(value.data.begin(), value.data.end());
    const std::size_t end = text.find('\0');
    return end == std::string::npos ? text : text.substr(0, end);
}

std::string Utf8FromSystemCodePage(const std::string& text) {
    if (std::all_of(text.begin(), text.end(),
                    [](char c) { return static_cast<unsigned char>(c) < 0x80; })) {
        return text;
    }
    const int length = static_cast<int>(text.size());
    const int wideLength = ::MultiByteToWideChar(CP_ACP, 0, text.data(), length, nullptr, 0);
    std::wstring wide(static_cast<std::size_t>(wideLength), L'\0');
    ::MultiByteToWideChar(CP_ACP, 0, text.data(), length, wide.data(), wideLength);
    const int utf8Length =
        ::WideCharToMultiByte(CP_UTF8, 0, wide.data(), wideLength, nullptr, 0, nullptr, nullptr);
    std::string utf8(static_cast<std::size_t>(utf8Length), '\0');
    ::WideCharToMultiByte(CP_UTF8, 0, wide.data(), wideLength, utf8.data(), utf8Length, nullptr,
                          nullptr);
    return utf8;
}

std::string HexText(const std::vector<BYTE>& bytes) {
    static const char kDigits[] = "0123456789ABCDEF";
    std::string text;
    for (const BYTE byte : bytes) {
        text += kDigits[byte >> 4];
        text += kDigits[byte & 0x0F];
    }
    return text;
}
