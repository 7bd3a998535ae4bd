#include "TqRegistrySearch.h"
#include "TqRegistrySnapshot.h"
#include "base/TqFailure.h"

#include "host/TqFailureLine.h"
#include "base/TqStringUtil.h"
#include "base/TqUniqueResource.h"
#include "base/TqErrorText.h"
#include "base/TqResultCodes.h"

#include <algorithm>
#include <cstring>
#include <iostream>
#include <optional>
#include <stdexcept>
#include <utility>

namespace {

constexpr const char* kUninstall32 =
    "SOFTWARE\\Wow6432Node\\Microsoft\\Windows\\CurrentVersion\\Uninstall";
constexpr const char* kSubKeyStep = "TqFindRegistryProcessSubKey";
constexpr const char* kValueStep = "TqFindRegistryProcessValues";

// A failed registry call: its text, the search's code for it and the Windows code.
[[noreturn]] void failRegistryCall(const std::string& text, LSTATUS status) {
    const auto windowsCode = static_cast<std::uint32_t>(status);
    throw TqFailure(text, -TqCommonCodeOfWindowsError(windowsCode), windowsCode);
}

// The search steps' code: the one set before a standard exception survives, else -23.
int keptOrExceptionOccurred(const TqCaught& caught, int resultSoFar) noexcept {
    return TqCodeOfFailure(caught, resultSoFar, -tq::kExceptionOccurred);
}

// "<function> : <text>" for a search step's failure.
auto failureLineOf(const char* function) {
    return [function](const TqCaught& caught) { TqWriteFailureLine(function, caught); };
}

void rejectArguments(int& result) {
    result = -tq::kInvalidArguments;
    throw TqFailure("Invalid argument(s) supplied.");
}

bool valueNameMatches(const TqRegistrySearchEntry& entry, const TqRegistryValueRead& value) {
    // A stored name that is a leading part of the sought one matches too ("Display" for
    // "DisplayName"): callers have always been answered that way.
    return entry.valueName != nullptr && !value.name.empty() && value.type == entry.valueType &&
           std::strncmp(entry.valueName, value.name.c_str(), value.name.size()) == 0;
}

bool dataMatches(const TqRegistrySearchEntry& entry, const std::vector<unsigned char>& data) {
    if (data.empty() || entry.compareData == nullptr || entry.compareLength == 0) {
        return false;
    }
    if ((entry.flags & SEARCH_DATA_PREFIX) != 0) {
        return data.size() >= entry.compareLength &&
               std::memcmp(data.data(), entry.compareData, entry.compareLength) == 0;
    }
    return data.size() == entry.compareLength &&
           std::memcmp(data.data(), entry.compareData, entry.compareLength) == 0;
}

// Hands a value's data to the entry's hand-over slot, as a buffer of exactly its length.
void handOver(const TqRegistryValueRead& value, TqRegistrySearchEntry& entry) {
    if (!value.kept) {
        throw std::logic_error("A matching value was read without its data.");
    }
    const auto length = static_cast<std::uint32_t>(value.data.size());
    entry.data = std::make_unique<unsigned char[]>(length);
    if (length > 0) {
        std::memcpy(entry.data.get(), value.data.data(), length);
    }
    entry.dataLength = length;
}

// Examines the values of a key read: 2 = matched (data in the entry's hand-over slot with
// SEARCH_RETURN_DATA), 0 = no match.
void examineValues(const std::vector<TqRegistryValueRead>& values, TqRegistrySearchEntry& entry,
                   int& result) {
    for (const TqRegistryValueRead& value : values) {
        if (value.sizeStatus != ERROR_SUCCESS) {
            std::cerr << kValueStep << " : RegEnumValue(1) - " << value.sizeStatus << std::endl;
            continue;
        }
        if (value.dataStatus != ERROR_SUCCESS) {
            std::cerr << kValueStep << " : RegEnumValue(2) - " << value.dataStatus << std::endl;
            continue;
        }
        if (!valueNameMatches(entry, value)) {
            continue;
        }
        const bool compare = (entry.flags & SEARCH_COMPARE_DATA) != 0;
        const bool returnData = (entry.flags & SEARCH_RETURN_DATA) != 0;
        if (compare && !(value.kept && dataMatches(entry, value.data))) {
            continue;
        }
        if (compare || returnData) {
            if (returnData) {
                handOver(value, entry);
            }
            result = kTqSearchValueMatched;
            return;
        }
        // Neither comparing nor returning data: a matching value records nothing.
    }
}

// A list a step walks as it was read before.
template <typename List> auto alreadyRead(const List& list) {
    return [&list]() -> const List& { return list; };
}

// The values step over whatever readValues gives; null arguments are refused first.
template <typename ReadValues>
int processValues(bool validArguments, TqRegistrySearchEntry* entry,
                  ReadValues&& readValues) noexcept {
    return TqGuard<int>(
        [&](int& result) {
            if (!validArguments || entry == nullptr) {
                rejectArguments(result);
            }
            examineValues(readValues(), *entry, result);
        },
        failureLineOf(kValueStep), keptOrExceptionOccurred);
}

int searchKey(const std::string& keyPath, TqRegistrySearchEntry* entry, unsigned levelsBelow);

void searchSubKeys(const std::vector<TqRegistrySubKeyRead>& subKeys, const std::string& keyPath,
                   TqRegistrySearchEntry& entry, unsigned levelsBelow, int& result);

// The sub-key step over whatever readNames gives; null arguments are refused first. The found
// result wins over errors of other children. levelsBelow: how many levels the search may still
// descend below each of the sub-keys.
template <typename ReadNames>
int processSubKeys(bool validArguments, const std::string& keyPath, TqRegistrySearchEntry* entry,
                   unsigned levelsBelow, ReadNames&& readNames) noexcept {
    return TqGuard<int>(
        [&](int& result) {
            if (!validArguments || entry == nullptr) {
                rejectArguments(result);
            }
            searchSubKeys(readNames(), keyPath, *entry, levelsBelow, result);
        },
        failureLineOf(kSubKeyStep), keptOrExceptionOccurred);
}

// Each child's answer is the step's answer so far; a hit, else the first error, is its last.
void searchSubKeys(const std::vector<TqRegistrySubKeyRead>& subKeys, const std::string& keyPath,
                   TqRegistrySearchEntry& entry, unsigned levelsBelow, int& result) {
    int foundResult = 0;
    int error = 0;
    for (const TqRegistrySubKeyRead& subKey : subKeys) {
        if (subKey.status != ERROR_SUCCESS) {
            std::cerr << kSubKeyStep << " : RegEnumKeyEx - " << subKey.status << std::endl;
            continue;
        }
        const std::string childPath = keyPath.empty() ? subKey.name : keyPath + "\\" + subKey.name;
        const int child = searchKey(childPath, &entry, levelsBelow);
        result = child;
        if (child == kTqSearchHit || child == kTqSearchKeyNameHit) {
            foundResult = child;
            error = 0;
            if (entry.stopAtFirst) {
                break;
            }
        } else if (error == 0 && child < 0) {
            error = child;
        }
    }
    if (foundResult != 0) {
        result = foundResult;
    } else if (error != 0) {
        result = error;
    }
}

// The key's own values, examined once its sub-keys have been searched.
int searchOwnValues(const TqRegistryKeyRead& key, const std::string& keyPath, int subKeyResult,
                    TqRegistrySearchEntry& entry) {
    if (subKeyResult == kTqSearchHit && entry.stopAtFirst) {
        return 0;
    }
    if (entry.keyName != nullptr && (entry.flags & SEARCH_KEY_IN_PATH) != 0) {
        std::string foundPath;
        if (TqReverseSearchInRegistryPath(keyPath, entry.keyName, entry.flags, foundPath) != 1) {
            return 0;
        }
    }
    const int matched = processValues(true, &entry, alreadyRead(key.values));
    if (matched != 0 &&
        (entry.flags & (SEARCH_COMPARE_DATA | SEARCH_RETURN_DATA | SEARCH_KEY_NAME)) != 0) {
        auto hit = std::make_unique<TqRegistrySearchResult>();
        hit->keyPath = keyPath;
        hit->valueName = entry.valueName;
        hit->valueType = entry.valueType;
        if ((entry.flags & (SEARCH_DATA_PREFIX | SEARCH_RETURN_DATA)) != 0) {
            hit->data = std::move(entry.data);
            hit->dataLength = std::exchange(entry.dataLength, 0);
        }
        entry.results.push_back(std::move(hit));
        return kTqSearchHit;
    }
    return matched != kTqSearchKeyNameHit ? matched : 0;
}

int searchKeyName(const std::string& keyPath, TqRegistrySearchEntry& entry) {
    std::string foundPath;
    const int found = TqReverseSearchInRegistryPath(
        keyPath, entry.keyName != nullptr ? entry.keyName : "", entry.flags, foundPath);
    if (found != 1) {
        return found;
    }
    auto hit = std::make_unique<TqRegistrySearchResult>();
    hit->keyPath = foundPath;
    entry.results.push_back(std::move(hit));
    return entry.stopAtFirst ? kTqSearchHit : kTqSearchKeyNameHit;
}

// The failures of opening and counting the key, as the search reports them.
void requireReadable(const TqRegistryKeyRead& key, const std::string& keyPath) {
    if (key.openStatus != ERROR_SUCCESS) {
        failRegistryCall("RegOpenKeyEx Failed for '" + keyPath + "'. Error Code " +
                             TqGetLastErrorAsString(key.openStatus),
                         key.openStatus);
    }
    if (key.countStatus != ERROR_SUCCESS) {
        failRegistryCall("RegQueryInfoKey Failed.", key.countStatus);
    }
}

// The search of one key and, while levelsBelow allows, of the keys below it.
int searchKey(const std::string& keyPath, TqRegistrySearchEntry* entry, unsigned levelsBelow) {
    constexpr const char* kName = "TqFindRegistryKeyAndOrValueName";
    int subKeyResult = 0;
    const int ownResult = TqGuard<int>(
        [&](int& result) {
            if (entry == nullptr) {
                result = -tq::kInvalidArguments;
                throw TqFailure("The 'searchEntry' argument is invalid.");
            }
            const HKEY root = entry->root != nullptr ? entry->root : HKEY_LOCAL_MACHINE;
            const TqSearchKeyRead key(root, keyPath, entry->valueName);
            requireReadable(key.get(), keyPath);
            if (!key->subKeys.empty() && levelsBelow > 0) {
                subKeyResult = processSubKeys(true, keyPath, entry, levelsBelow - 1,
                                              alreadyRead(key->subKeys));
            }
            if (entry->valueName != nullptr) {
                if (!key->values.empty()) {
                    result = searchOwnValues(key.get(), keyPath, subKeyResult, *entry);
                }
            } else if ((entry->flags & SEARCH_KEY_NAME) != 0) {
                result = searchKeyName(keyPath, *entry);
            }
        },
        [&](const TqCaught& caught) {
            TqWriteFailureLine(kName, caught, TqRegistryCallDetail(caught));
        },
        keptOrExceptionOccurred);
    // A hit among the descendants is reported as they reported it.
    return subKeyResult != 0 ? subKeyResult : ownResult;
}

} // namespace

void TqRegistrySearchEntry::ClearResults() noexcept {
    results.clear();
}

int TqFindRegistryKeyAndOrValueName(const std::string& keyPath, TqRegistrySearchEntry* entry) {
    return searchKey(keyPath, entry, kTqRegistrySearchDepthLimit);
}

int TqFindRegistryKeyAndOrValueName(const std::string& keyPath, TqRegistrySearchEntry* entry,
                                    unsigned depthLimit) {
    return searchKey(keyPath, entry, depthLimit);
}

int TqFindRegistryProcessSubKey(HKEY key, const std::string& keyPath, std::uint32_t subKeyCount,
                                TqRegistrySearchEntry* entry) {
    std::vector<TqRegistrySubKeyRead> subKeys;
    const auto readSubKeys = [&]() -> const auto& {
        subKeys = TqReadSubKeyNames(key, subKeyCount, kTqSubKeyNameCapacity);
        return subKeys;
    };
    return processSubKeys(key != nullptr, keyPath, entry, kTqRegistrySearchDepthLimit - 1,
                          readSubKeys);
}

int TqFindRegistryProcessValues(HKEY key, std::uint32_t valueCount, TqRegistrySearchEntry* entry) {
    std::vector<TqRegistryValueRead> values;
    const auto readValues = [&]() -> const auto& {
        values = TqReadValues(key, valueCount, kTqValueNameCapacity, 0, {entry->valueName});
        return values;
    };
    return processValues(key != nullptr, entry, readValues);
}

namespace {

// The readers' search: the first value of that name and type at or below keyPath under
// HKEY_LOCAL_MACHINE, its data handed to takeHit. 1 = found, 0 = not found, negative = error.
template <typename TakeHit>
int readFirstValue(const char* function, const std::string& keyPath, const std::string& valueName,
                   DWORD type, TakeHit&& takeHit) noexcept {
    return TqGuard<int>(
        [&](int& result) {
            if (keyPath.empty() || valueName.empty()) {
                result = -tq::kInvalidArguments;
                throw TqFailure("One or more arguments is invalid.");
            }
            TqRegistrySearchEntry entry;
            entry.flags = SEARCH_RETURN_DATA;
            entry.root = HKEY_LOCAL_MACHINE;
            entry.valueName = valueName.c_str();
            entry.valueType = type;
            entry.stopAtFirst = true;
            const int found = TqFindRegistryKeyAndOrValueName(keyPath, &entry);
            if (found == kTqSearchHit && !entry.results.empty() &&
                entry.results.front() != nullptr) {
                takeHit(*entry.results.front());
                result = 1;
            } else if (found < 0) {
                result = found;
            }
        },
        [function](const TqCaught& caught) {
            TqWriteFailureLine(function, caught, std::string(), "Exception Occurred - ");
        },
        keptOrExceptionOccurred);
}

std::string hitText(const TqRegistrySearchResult& hit) {
    if (hit.data == nullptr) {
        return std::string();
    }
    // Registry strings are not always terminated: the stored length bounds the text.
    return std::string(reinterpret_cast<const char*>(hit.data.get()), hit.dataLength);
}

std::uint32_t hitDword(const TqRegistrySearchResult& hit) {
    std::uint32_t value = 0;
    if (hit.data != nullptr) {
        // Copies the stored byte count, but never more than the DWORD holds.
        std::memcpy(&value, hit.data.get(), std::min<std::uint32_t>(hit.dataLength, sizeof value));
    }
    return value;
}

} // namespace

void TqSetPrefixSearch(TqRegistrySearchEntry& entry, const char* valueName, std::uint32_t valueType,
                       std::string_view prefix) {
    entry.flags = SEARCH_COMPARE_DATA | SEARCH_DATA_PREFIX | SEARCH_RETURN_DATA;
    entry.root = HKEY_LOCAL_MACHINE;
    entry.valueName = valueName;
    entry.valueType = valueType;
    entry.compareData = reinterpret_cast<const unsigned char*>(prefix.data());
    entry.compareLength = static_cast<std::uint32_t>(prefix.size());
}

std::string TqRegistryHitText(const TqRegistrySearchResult& hit) {
    const std::string bytes = hitText(hit);
    return bytes.substr(0, bytes.find('\0'));
}

int TqGetRegistryStringValue(HKEY, const std::string& keyPath, const std::string& valueName,
                             std::string& out) {
    return readFirstValue("TqGetRegistryStringValue", keyPath, valueName, REG_SZ,
                          [&](const TqRegistrySearchResult& hit) {
                              out = TqRegistryHitText(hit);
                              TqTrimWhiteSpace(out);
                          });
}

int TqGetRegistryMultiStringValue(HKEY, const std::string& keyPath, const std::string& valueName,
                                  std::vector<std::string>& out) {
    return readFirstValue("TqGetRegistryMultiStringValue", keyPath, valueName, REG_MULTI_SZ,
                          [&](const TqRegistrySearchResult& hit) {
                              out.clear();
                              const std::string text = hitText(hit);
                              std::size_t start = 0;
                              while (start < text.size()) {
                                  std::size_t end = text.find('\0', start);
                                  if (end == std::string::npos) {
                                      end = text.size(); // last piece stored without its NUL
                                  }
                                  if (end == start) {
                                      break; // the empty piece that ends the list
                                  }
                                  std::string piece = text.substr(start, end - start);
                                  TqTrimWhiteSpace(piece);
                                  out.push_back(std::move(piece));
                                  start = end + 1;
                              }
                          });
}

int TqGetRegistryDWORDValue(HKEY, const std::string& keyPath, const std::string& valueName,
                            std::uint32_t& out) {
    return readFirstValue("TqGetRegistryDWORDValue", keyPath, valueName, REG_DWORD,
                          [&](const TqRegistrySearchResult& hit) { out = hitDword(hit); });
}

int TqGetRegistryBinaryValue(HKEY, const std::string& keyPath, const std::string& valueName,
                             std::unique_ptr<unsigned char[]>& out, std::uint32_t& outLength) {
    return readFirstValue("TqGetRegistryBinaryValue", keyPath, valueName, REG_BINARY,
                          [&](const TqRegistrySearchResult& hit) {
                              auto copy = std::make_unique<unsigned char[]>(hit.dataLength);
                              if (hit.dataLength > 0 && hit.data != nullptr) {
                                  std::memcpy(copy.get(), hit.data.get(), hit.dataLength);
                              }
                              out = std::move(copy);
                              outLength = hit.dataLength;
                          });
}

namespace {

constexpr const char* kVersionLookupName = "TqGetInstalledAppVerNo";

void reportLookupFailure(int code) {
    std::cerr << kVersionLookupName << " : TqFindRegistryKeyAndOrValueName(1) failed. Error Code "
              << code << "." << std::endl;
}

// The first value of that name and type at or below the product key, with its data.
std::unique_ptr<TqRegistrySearchResult> findProductValue(const std::string& productKey,
                                                         const char* valueName, DWORD type,
                                                         int& searchResult) {
    TqRegistrySearchEntry entry;
    entry.flags = SEARCH_KEY_IN_PATH | SEARCH_RETURN_DATA;
    entry.root = HKEY_LOCAL_MACHINE;
    entry.valueName = valueName;
    entry.valueType = type;
    entry.stopAtFirst = true;
    searchResult = TqFindRegistryKeyAndOrValueName(productKey, &entry);
    if (searchResult != kTqSearchHit || entry.results.empty() || entry.results.front() == nullptr ||
        entry.results.front()->data == nullptr) {
        return nullptr;
    }
    return std::move(entry.results.front());
}

std::optional<std::uint32_t> findProductDword(const std::string& productKey,
                                              const char* valueName) {
    int searchResult = 0;
    const auto hit = findProductValue(productKey, valueName, REG_DWORD, searchResult);
    if (searchResult < 0) {
        reportLookupFailure(searchResult);
    }
    if (hit == nullptr) {
        return std::nullopt;
    }
    return hitDword(*hit);
}

// The key of the first 32-bit Uninstall entry whose DisplayName begins with displayName.
// 1 = found (productKey written), 0 = none, negative = the search's failure, reported.
int findProductKey(const char* displayName, std::string& productKey) {
    TqRegistrySearchEntry product;
    product.flags = SEARCH_COMPARE_DATA | SEARCH_DATA_PREFIX;
    product.root = HKEY_LOCAL_MACHINE;
    product.valueName = "DisplayName";
    product.valueType = REG_SZ;
    // Without its terminator: the stored display name need only begin with the text.
    product.compareData = reinterpret_cast<const unsigned char*>(displayName);
    product.compareLength = static_cast<std::uint32_t>(std::strlen(displayName));
    product.stopAtFirst = true;
    const int found = TqFindRegistryKeyAndOrValueName(kUninstall32, &product);
    if (found < 0) {
        reportLookupFailure(found);
        return found;
    }
    if (found == 0 || product.results.empty() || product.results.front() == nullptr) {
        return 0;
    }
    productKey = product.results.front()->keyPath;
    return 1;
}

// The product's version from VersionMajor and VersionMinor when both are there, else the first
// two numbers of DisplayVersion. False when neither gives a version.
bool readProductVersion(const std::string& productKey, std::int32_t& major, std::int32_t& minor) {
    const auto versionMajor = findProductDword(productKey, "VersionMajor");
    const auto versionMinor = findProductDword(productKey, "VersionMinor");
    if (versionMajor && versionMinor) {
        major = static_cast<std::int32_t>(*versionMajor);
        minor = static_cast<std::int32_t>(*versionMinor);
        return true;
    }
    int searchResult = 0;
    const auto displayVersion =
        findProductValue(productKey, "DisplayVersion", REG_SZ, searchResult);
    if (displayVersion == nullptr) {
        return false;
    }
    std::string text = TqRegistryHitText(*displayVersion);
    std::vector<std::int32_t> numbers;
    if (TqParseVersionNoString(text, numbers) != 0 || numbers.empty()) {
        return false;
    }
    major = numbers[0];
    minor = numbers.size() > 1 ? numbers[1] : 0;
    return true;
}

} // namespace

int TqGetInstalledAppVerNo(HKEY, const char* displayName, const void*, std::int32_t* major,
                           std::int32_t* minor, std::string* keyPath) {
    return TqGuard<int>(
        [&](int& result) {
            if (displayName == nullptr || major == nullptr || minor == nullptr) {
                result = -tq::kInvalidArguments;
                throw TqFailure("One or more calling arguments is NULL.");
            }
            std::string productKey;
            const int found = findProductKey(displayName, productKey);
            if (found != 1) {
                result = found;
                return;
            }
            std::int32_t foundMajor = 0;
            std::int32_t foundMinor = 0;
            if (!readProductVersion(productKey, foundMajor, foundMinor)) {
                return;
            }
            *major = foundMajor;
            *minor = foundMinor;
            *keyPath = productKey;
            result = 1;
        },
        failureLineOf(kVersionLookupName),
        [](const TqCaught&, int resultSoFar) noexcept {
            return resultSoFar < 0 ? resultSoFar : -tq::kExceptionOccurred;
        });
}
