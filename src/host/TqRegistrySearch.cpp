#include "TqRegistrySearch.h"
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

// The search never follows WOW64 redirection: 32-bit data is asked for by its Wow6432Node path.
constexpr REGSAM kSearchAccess = KEY_READ | KEY_WOW64_64KEY;

// Registry limits: key names are at most 255 characters, value names at most 16,383.
constexpr DWORD kSubKeyNameCapacity = 1024;
constexpr DWORD kValueNameCapacity = 16383;
constexpr DWORD kClassNameCapacity = 260;

constexpr const char* kUninstall32 =
    "SOFTWARE\\Wow6432Node\\Microsoft\\Windows\\CurrentVersion\\Uninstall";

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

bool valueNameMatches(const TqRegistrySearchEntry& entry, const char* name, DWORD nameLength,
                      DWORD type) {
    // A stored name that is a leading part of the sought one matches too ("Display" for
    // "DisplayName"): callers have always been answered that way.
    return entry.valueName != nullptr && nameLength > 0 && type == entry.valueType &&
           std::strncmp(entry.valueName, name, nameLength) == 0;
}

bool dataMatches(const TqRegistrySearchEntry& entry, const unsigned char* data, DWORD length) {
    if (length == 0 || entry.compareData == nullptr || entry.compareLength == 0) {
        return false;
    }
    if ((entry.flags & SEARCH_DATA_PREFIX) != 0) {
        return length >= entry.compareLength &&
               std::memcmp(data, entry.compareData, entry.compareLength) == 0;
    }
    return length == entry.compareLength &&
           std::memcmp(data, entry.compareData, entry.compareLength) == 0;
}

// The key's own values, examined once its sub-keys have been searched.
int searchOwnValues(HKEY key, const std::string& keyPath, DWORD valueCount, int subKeyResult,
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
    const int matched = TqFindRegistryProcessValues(key, valueCount, &entry);
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

TqUniqueRegKey openSearchKey(HKEY root, const std::string& keyPath) {
    TqUniqueRegKey key;
    const LSTATUS status = ::RegOpenKeyExA(root, keyPath.c_str(), 0, kSearchAccess, key.put());
    if (status != ERROR_SUCCESS) {
        failRegistryCall("RegOpenKeyEx Failed for '" + keyPath + "'. Error Code " +
                             TqGetLastErrorAsString(status),
                         status);
    }
    return key;
}

void countKeyContents(HKEY key, DWORD& subKeyCount, DWORD& valueCount) {
    char className[kClassNameCapacity];
    DWORD classLength = kClassNameCapacity;
    const LSTATUS status =
        ::RegQueryInfoKeyA(key, className, &classLength, nullptr, &subKeyCount, nullptr, nullptr,
                           &valueCount, nullptr, nullptr, nullptr, nullptr);
    if (status != ERROR_SUCCESS) {
        failRegistryCall("RegQueryInfoKey Failed.", status);
    }
}

} // namespace

void TqRegistrySearchEntry::ClearResults() noexcept {
    results.clear();
}

int TqFindRegistryKeyAndOrValueName(const std::string& keyPath, TqRegistrySearchEntry* entry) {
    constexpr const char* kName = "TqFindRegistryKeyAndOrValueName";
    int subKeyResult = 0;
    const int ownResult = TqGuard<int>(
        [&](int& result) {
            if (entry == nullptr) {
                result = -tq::kInvalidArguments;
                throw TqFailure("The 'searchEntry' argument is invalid.");
            }
            const HKEY root = entry->root != nullptr ? entry->root : HKEY_LOCAL_MACHINE;
            const TqUniqueRegKey key = openSearchKey(root, keyPath);
            DWORD subKeyCount = 0;
            DWORD valueCount = 0;
            countKeyContents(key.get(), subKeyCount, valueCount);
            if (subKeyCount > 0) {
                subKeyResult = TqFindRegistryProcessSubKey(key.get(), keyPath, subKeyCount, entry);
            }
            if (entry->valueName != nullptr) {
                if (valueCount > 0) {
                    result = searchOwnValues(key.get(), keyPath, valueCount, subKeyResult, *entry);
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

int TqFindRegistryProcessSubKey(HKEY key, const std::string& keyPath, std::uint32_t subKeyCount,
                                TqRegistrySearchEntry* entry) {
    constexpr const char* kName = "TqFindRegistryProcessSubKey";
    return TqGuard<int>(
        [&](int& result) {
            if (key == nullptr || entry == nullptr) {
                result = -tq::kInvalidArguments;
                throw TqFailure("Invalid argument(s) supplied.");
            }
            bool found = false;
            int foundResult = 0;
            int error = 0;
            for (DWORD index = 0; index < subKeyCount; ++index) {
                char name[kSubKeyNameCapacity + 1];
                DWORD nameLength = sizeof name;
                const LSTATUS status = ::RegEnumKeyExA(key, index, name, &nameLength, nullptr,
                                                       nullptr, nullptr, nullptr);
                if (status != ERROR_SUCCESS) {
                    std::cerr << kName << " : RegEnumKeyEx - " << status << std::endl;
                    continue;
                }
                const std::string childName(name, nameLength);
                const std::string childPath =
                    keyPath.empty() ? childName : keyPath + "\\" + childName;
                const int child = TqFindRegistryKeyAndOrValueName(childPath, entry);
                result = child;
                if (child == kTqSearchHit || child == kTqSearchKeyNameHit) {
                    found = true;
                    foundResult = child;
                    error = 0;
                    if (entry->stopAtFirst) {
                        break;
                    }
                } else if (error == 0 && child < 0) {
                    error = child;
                }
            }
            if (found) {
                result = foundResult;
            } else if (error != 0) {
                result = error;
            }
        },
        failureLineOf(kName), keptOrExceptionOccurred);
}

// Kept out of line: its 16 KB name buffer must not join the frames of the recursion.
[[gnu::noinline]] int TqFindRegistryProcessValues(HKEY key, std::uint32_t valueCount,
                                                  TqRegistrySearchEntry* entry) {
    constexpr const char* kName = "TqFindRegistryProcessValues";
    return TqGuard<int>(
        [&](int& result) {
            if (key == nullptr || entry == nullptr) {
                result = -tq::kInvalidArguments;
                throw TqFailure("Invalid argument(s) supplied.");
            }
            char name[kValueNameCapacity + 1];
            for (DWORD index = 0; index < valueCount; ++index) {
                DWORD nameLength = sizeof name;
                DWORD type = REG_NONE;
                DWORD dataLength = 0;
                LSTATUS status = ::RegEnumValueA(key, index, name, &nameLength, nullptr, &type,
                                                 nullptr, &dataLength);
                if (status != ERROR_SUCCESS) {
                    std::cerr << kName << " : RegEnumValue(1) - " << status << std::endl;
                    continue;
                }
                auto data = std::make_unique<unsigned char[]>(dataLength); // zero-filled
                nameLength = sizeof name;
                status = ::RegEnumValueA(key, index, name, &nameLength, nullptr, &type, data.get(),
                                         &dataLength);
                if (status != ERROR_SUCCESS) {
                    std::cerr << kName << " : RegEnumValue(2) - " << status << std::endl;
                    continue;
                }
                if (!valueNameMatches(*entry, name, nameLength, type)) {
                    continue;
                }
                const bool compare = (entry->flags & SEARCH_COMPARE_DATA) != 0;
                const bool handOver = (entry->flags & SEARCH_RETURN_DATA) != 0;
                if (compare && !dataMatches(*entry, data.get(), dataLength)) {
                    continue;
                }
                if (compare || handOver) {
                    if (handOver) {
                        entry->data = std::move(data);
                        entry->dataLength = dataLength;
                    }
                    result = kTqSearchValueMatched;
                    break;
                }
                // Neither comparing nor returning data: a matching value records nothing.
            }
        },
        failureLineOf(kName), keptOrExceptionOccurred);
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
