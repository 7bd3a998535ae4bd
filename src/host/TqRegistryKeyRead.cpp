#include "TqRegistryKeyRead.h"

#include "base/TqUniqueResource.h"

#include <algorithm>
#include <cstring>

namespace {

// The search never follows WOW64 redirection: 32-bit data is asked for by its Wow6432Node path.
constexpr REGSAM kSearchAccess = KEY_READ | KEY_WOW64_64KEY;

// A name that has grown past the counted length since the count is read again at the registry's
// limits.
constexpr DWORD kSubKeyNameCapacity = kTqSubKeyNameCapacity;
constexpr DWORD kValueNameCapacity = kTqValueNameCapacity;
constexpr DWORD kClassNameCapacity = 260;

// A value read the slow way: its size first, then its data into a buffer of that size. Used
// only when the value outgrew what the key's count promised.
TqRegistryValueRead readValueInTwoSteps(HKEY key, DWORD index, const TqKeptValueNames& kept) {
    TqRegistryValueRead value;
    std::vector<char> name(kValueNameCapacity + 1);
    DWORD nameLength = static_cast<DWORD>(name.size());
    DWORD type = REG_NONE;
    DWORD dataLength = 0;
    value.sizeStatus =
        ::RegEnumValueA(key, index, name.data(), &nameLength, nullptr, &type, nullptr, &dataLength);
    if (value.sizeStatus != ERROR_SUCCESS) {
        return value;
    }
    std::vector<unsigned char> data(dataLength);
    nameLength = static_cast<DWORD>(name.size());
    value.dataStatus = ::RegEnumValueA(key, index, name.data(), &nameLength, nullptr, &type,
                                       data.data(), &dataLength);
    if (value.dataStatus != ERROR_SUCCESS) {
        return value;
    }
    value.name.assign(name.data(), nameLength);
    value.type = type;
    value.kept = TqKeepsValue(kept, value.name);
    if (value.kept) {
        data.resize(std::min<std::size_t>(dataLength, data.size()));
        value.data = std::move(data);
    }
    return value;
}

} // namespace

bool TqKeepsValue(const TqKeptValueNames& kept, const std::string& name) {
    return !name.empty() && std::any_of(kept.begin(), kept.end(), [&](const char* keptName) {
        return keptName != nullptr && std::strncmp(keptName, name.c_str(), name.size()) == 0;
    });
}

std::vector<TqRegistrySubKeyRead> TqReadSubKeyNames(HKEY key, std::uint32_t count,
                                                    std::uint32_t longestName) {
    std::vector<TqRegistrySubKeyRead> subKeys(count);
    std::vector<char> name(std::min<DWORD>(longestName, kSubKeyNameCapacity) + 1);
    for (DWORD index = 0; index < count; ++index) {
        DWORD nameLength = static_cast<DWORD>(name.size());
        LSTATUS status = ::RegEnumKeyExA(key, index, name.data(), &nameLength, nullptr, nullptr,
                                         nullptr, nullptr);
        if (status == ERROR_MORE_DATA && name.size() <= kSubKeyNameCapacity) {
            name.resize(kSubKeyNameCapacity + 1);
            nameLength = static_cast<DWORD>(name.size());
            status = ::RegEnumKeyExA(key, index, name.data(), &nameLength, nullptr, nullptr,
                                     nullptr, nullptr);
        }
        subKeys[index].status = status;
        if (status == ERROR_SUCCESS) {
            subKeys[index].name.assign(name.data(), nameLength);
        }
    }
    return subKeys;
}

std::vector<TqRegistryValueRead> TqReadValues(HKEY key, std::uint32_t count,
                                              std::uint32_t longestName, std::uint32_t largestData,
                                              const TqKeptValueNames& kept) {
    std::vector<TqRegistryValueRead> values;
    values.reserve(count);
    std::vector<char> name(std::min<DWORD>(longestName, kValueNameCapacity) + 1);
    std::vector<unsigned char> data(std::max<DWORD>(largestData, 1));
    for (DWORD index = 0; index < count; ++index) {
        DWORD nameLength = static_cast<DWORD>(name.size());
        DWORD dataLength = static_cast<DWORD>(data.size());
        DWORD type = REG_NONE;
        const LSTATUS status = ::RegEnumValueA(key, index, name.data(), &nameLength, nullptr, &type,
                                               data.data(), &dataLength);
        if (status == ERROR_MORE_DATA) {
            values.push_back(readValueInTwoSteps(key, index, kept));
            continue;
        }
        TqRegistryValueRead& value = values.emplace_back();
        value.sizeStatus = status;
        if (status != ERROR_SUCCESS) {
            continue;
        }
        value.name.assign(name.data(), nameLength);
        value.type = type;
        value.kept = TqKeepsValue(kept, value.name);
        if (value.kept) {
            value.data.assign(data.begin(), data.begin() + dataLength);
        }
    }
    return values;
}

TqRegistryKeyRead TqReadRegistryKey(HKEY root, const std::string& keyPath,
                                    const TqKeptValueNames& kept) {
    TqRegistryKeyRead read;
    TqUniqueRegKey key;
    read.openStatus = ::RegOpenKeyExA(root, keyPath.c_str(), 0, kSearchAccess, key.put());
    if (read.openStatus != ERROR_SUCCESS) {
        return read;
    }
    char className[kClassNameCapacity];
    DWORD classLength = kClassNameCapacity;
    DWORD subKeyCount = 0;
    DWORD longestSubKeyName = 0;
    DWORD valueCount = 0;
    DWORD longestValueName = 0;
    DWORD largestData = 0;
    read.countStatus = ::RegQueryInfoKeyA(key.get(), className, &classLength, nullptr, &subKeyCount,
                                          &longestSubKeyName, nullptr, &valueCount,
                                          &longestValueName, &largestData, nullptr, nullptr);
    if (read.countStatus != ERROR_SUCCESS) {
        return read;
    }
    read.subKeys = TqReadSubKeyNames(key.get(), subKeyCount, longestSubKeyName);
    read.values = TqReadValues(key.get(), valueCount, longestValueName, largestData, kept);
    return read;
}
