// What the registry search reads of one key: whether it opened, how many sub-keys and values it
// counted, the sub-key names and the values, each with the status of the call that read it.
// The search walks such a record, never the key itself, so a record read once can answer every
// later pass of the same call exactly as a fresh read would, failures included.
#pragma once

#include <windows.h>

#include <cstdint>
#include <string>
#include <vector>

// Registry limits: key names are at most 255 characters, value names at most 16,383. A reader
// without a count of the key's longest names uses these.
inline constexpr std::uint32_t kTqSubKeyNameCapacity = 1024;
inline constexpr std::uint32_t kTqValueNameCapacity = 16383;

struct TqRegistrySubKeyRead {
    LSTATUS status = ERROR_SUCCESS; // of RegEnumKeyEx
    std::string name;
};

struct TqRegistryValueRead {
    LSTATUS sizeStatus = ERROR_SUCCESS; // of asking for the value's name, type and size
    LSTATUS dataStatus = ERROR_SUCCESS; // of reading its data
    std::string name;
    std::uint32_t type = REG_NONE;
    // The data, only where the value's name can match a name the reader was asked to keep:
    // nothing else of it can ever reach a search's answer.
    bool kept = false;
    std::vector<unsigned char> data;
};

struct TqRegistryKeyRead {
    LSTATUS openStatus = ERROR_SUCCESS;        // of RegOpenKeyEx
    LSTATUS countStatus = ERROR_SUCCESS;       // of RegQueryInfoKey
    std::vector<TqRegistrySubKeyRead> subKeys; // as many as the key counted, in enumeration order
    std::vector<TqRegistryValueRead> values;   // as many as the key counted, in enumeration order
};

// The value names whose data a read keeps: a value is kept when its name is a leading part of
// one of them, which is how the search matches names. Null entries are ignored.
using TqKeptValueNames = std::vector<const char*>;

// Whether a value of that name can match one of the kept names.
bool TqKeepsValue(const TqKeptValueNames& kept, const std::string& name);

// Opens keyPath under root in the 64-bit view, counts its contents and reads every sub-key name
// and every value, then closes it. Each call is made once; buffers are sized from the count.
TqRegistryKeyRead TqReadRegistryKey(HKEY root, const std::string& keyPath,
                                    const TqKeptValueNames& kept);

// The first count sub-key names of an open key.
std::vector<TqRegistrySubKeyRead> TqReadSubKeyNames(HKEY key, std::uint32_t count,
                                                    std::uint32_t longestName);

// The first count values of an open key.
std::vector<TqRegistryValueRead> TqReadValues(HKEY key, std::uint32_t count,
                                              std::uint32_t longestName, std::uint32_t largestData,
                                              const TqKeptValueNames& kept);
