// The one recursive registry search behind every registry question of the library, the typed
// readers built on it and the installed-product version lookup. Diagnostics go to standard
// error; results are plain int codes.
#pragma once

#include "TqRegistryPath.h"

#include <windows.h>

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

// One hit, owned by the entry that collected it.
struct TqRegistrySearchResult {
    std::uint32_t reserved = 0;
    std::string keyPath;   // below the entry's root
    std::string valueName; // empty for a key-name hit
    std::uint32_t valueType = 0;
    std::unique_ptr<unsigned char[]> data; // only with SEARCH_RETURN_DATA or SEARCH_DATA_PREFIX
    std::uint32_t dataLength = 0;
};

// What to look for, filled by the caller, and the hits, appended by the search.
struct TqRegistrySearchEntry {
    std::uint32_t flags = 0;
    HKEY root = nullptr; // null: HKEY_LOCAL_MACHINE
    const char* keyName = nullptr;
    const char* valueName = nullptr; // null: a key-name search
    std::uint32_t valueType = REG_NONE;
    const unsigned char* compareData = nullptr;
    std::uint32_t compareLength = 0;
    bool stopAtFirst = false;
    std::vector<std::unique_ptr<TqRegistrySearchResult>> results;
    // Hand-over slot between the value walk and the hit it becomes.
    std::unique_ptr<unsigned char[]> data;
    std::uint32_t dataLength = 0;

    // Deletes every hit with its data. The hand-over slot is left alone.
    void ClearResults() noexcept;
};

// Sets the entry up to find the values named valueName, of type valueType, whose data begins
// with prefix, and to hand their data to the hits. The prefix must outlive the search.
void TqSetPrefixSearch(TqRegistrySearchEntry& entry, const char* valueName, std::uint32_t valueType,
                       std::string_view prefix);

// What a search step answers, besides 0 (nothing) and the negative failures.
inline constexpr int kTqSearchValueMatched = 2; // a value matched, not yet recorded as a hit
inline constexpr int kTqSearchHit = 4;          // a hit was recorded: the search ends
inline constexpr int kTqSearchKeyNameHit = 5;   // a key-name hit was recorded: go on

// How far below its start key a search descends: the registry's own nesting limit. A key that
// deep is still examined, but its sub-keys are not walked. Only a registry link that leads back
// to one of its own ancestors makes a tree deeper than that, and there the walk would otherwise
// go on until the path grew too long for the registry API, one stack frame per level.
inline constexpr unsigned kTqRegistrySearchDepthLimit = 512;

// Searches keyPath under entry->root in the 64-bit view, sub-keys before the key's own values.
// 4 = a hit was recorded at or below the key; 5 = key-name hit, go on; 2 = a value matched
// without a hit; 0 = nothing; negative = -1, -4, -15 (missing key), -16 (access denied), -23.
int TqFindRegistryKeyAndOrValueName(const std::string& keyPath, TqRegistrySearchEntry* entry);

// The same search, descending at most depthLimit levels below keyPath.
int TqFindRegistryKeyAndOrValueName(const std::string& keyPath, TqRegistrySearchEntry* entry,
                                    unsigned depthLimit);

// Searches every sub-key of an open key, each as the first level below it. The found result
// wins over errors of other children.
int TqFindRegistryProcessSubKey(HKEY key, const std::string& keyPath, std::uint32_t subKeyCount,
                                TqRegistrySearchEntry* entry);

// Examines the values of an open key: 2 = matched (data in the entry's hand-over slot with
// SEARCH_RETURN_DATA), 0 = no match, -1 = null argument.
int TqFindRegistryProcessValues(HKEY key, std::uint32_t valueCount, TqRegistrySearchEntry* entry);

// The text of a string value's hit: up to its first NUL, or its whole length where it has none
// (registry strings are not always terminated). Whatever an installer stored after a NUL is not
// text a reader of the string would see, so it never reaches a caller. Empty without data.
std::string TqRegistryHitText(const TqRegistrySearchResult& hit);

// Typed readers: the first value of that name and type at or below keyPath under
// HKEY_LOCAL_MACHINE (the first argument is never read). 1 = found, 0 = not found,
// negative = error.
int TqGetRegistryStringValue(HKEY unusedRoot, const std::string& keyPath,
                             const std::string& valueName, std::string& out);
int TqGetRegistryMultiStringValue(HKEY unusedRoot, const std::string& keyPath,
                                  const std::string& valueName, std::vector<std::string>& out);
int TqGetRegistryDWORDValue(HKEY unusedRoot, const std::string& keyPath,
                            const std::string& valueName, std::uint32_t& out);
// out receives a new copy of the data (released by its owner with delete[]).
int TqGetRegistryBinaryValue(HKEY unusedRoot, const std::string& keyPath,
                             const std::string& valueName, std::unique_ptr<unsigned char[]>& out,
                             std::uint32_t& outLength);

// The 32-bit Uninstall entry whose DisplayName begins with displayName, and its version from
// VersionMajor/VersionMinor or else DisplayVersion. 1 = found with a version (major, minor and
// keyPath written), 0 = not found or no usable version, negative = error. The first and third
// arguments are never read; keyPath must not be null.
int TqGetInstalledAppVerNo(HKEY unusedRoot, const char* displayName, const void* unused,
                           std::int32_t* major, std::int32_t* minor, std::string* keyPath);
