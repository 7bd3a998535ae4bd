#include "TqSpringCheck.h"
#include "base/TqFailure.h"

#include "TqSpringCheckSeam.h"
#include "host/TqFailureLine.h"
#include "host/TqRegistrySearch.h"
#include "host/TqRegistryWrite.h"
#include "base/TqUniqueResource.h"
#include "base/TqResultCodes.h"

#include <algorithm>
#include <array>
#include <cctype>
#include <cstring>
#include <iostream>
#include <stdexcept>
#include <string>
#include <string_view>

namespace {

constexpr const char* kDetectName = "TqDetectKVRIdentityAgentSpringCheck";
constexpr const char* kGetZelName = "TqGetZelKVRIAInformation";
constexpr const char* kSetZelName = "TqSetZelKVRIAInformation";
constexpr const char* kSetName = "TqSetKVRIASpringCheck";

constexpr const char* kInvalidArguments = "Invalid argument(s) supplied.";

// Written with the count 5, the text's own length: readers take the text up to its first NUL or
// its length, in any letter case.
constexpr std::string_view kSwitchedOff = "False";

// The ZelCheck record names a process and its account: it is kept out of plain sight in the
// user's registry. Changing these bytes makes records written by earlier builds unreadable.
constexpr std::array<unsigned char, 32> kZelCheckKey = {
    0x6B, 0xD2, 0x17, 0x8E, 0x3A, 0xF5, 0x41, 0xC9, 0x02, 0x9D, 0x74, 0xE8, 0x5F, 0x26, 0xB3, 0x90,
    0xCE, 0x18, 0x67, 0xA1, 0x4D, 0xFB, 0x35, 0x8C, 0xE2, 0x59, 0x0F, 0xB6, 0x7A, 0xC4, 0x93, 0x2E};

// The locations in reading order: a later one overrides the user's own setting.
struct SettingLocation {
    HKEY root;
    const char* key;
};
const SettingLocation kSettingLocations[] = {
    {HKEY_CURRENT_USER, kTqIAUserKey},
    {HKEY_LOCAL_MACHINE, kTqIAMachineKey32},
    {HKEY_LOCAL_MACHINE, kTqIAPolicyKey},
};

// A failed registry call: its text, the writers' code for it and the Windows code.
[[noreturn]] void failRegistryCall(const char* text, LSTATUS status) {
    const auto windowsCode = static_cast<std::uint32_t>(status);
    throw TqFailure(text, TqCommonCodeOfWindowsError(windowsCode), windowsCode);
}

// "<function> : <message>", with the Windows code's system text after a failed registry call.
auto failureLineOf(const char* function) {
    return [function](const TqCaught& caught) {
        TqWriteFailureLine(function, caught, TqRegistryCallDetail(caught));
    };
}

// The writers' codes: a failed call's own, else the one set so far; these never go negative.
int positiveCodeOf(const TqCaught& caught, int resultSoFar) noexcept {
    return TqCodeOfFailure(caught, resultSoFar, tq::kExceptionOccurred);
}

void scrambleZelCheck(unsigned char* bytes) noexcept {
    for (std::size_t i = 0; i < kTqZelCheckSize; ++i) {
        bytes[i] ^= kZelCheckKey[i % kZelCheckKey.size()];
    }
}

// The user's key, opened with access. Returns ERROR_FILE_NOT_FOUND for a missing key rather
// than throwing, so each caller decides whether the key is worth creating.
LSTATUS openUserKey(REGSAM access, TqUniqueRegKey& key) {
    const LSTATUS status = ::RegOpenKeyExA(HKEY_CURRENT_USER, kTqIAUserKey, 0, access, key.put());
    if (status != ERROR_SUCCESS && status != ERROR_FILE_NOT_FOUND) {
        failRegistryCall("RegOpenKeyEx failed to open.", status);
    }
    return status;
}

void createUserKey(TqUniqueRegKey& key) {
    const LSTATUS status =
        ::RegCreateKeyExA(HKEY_CURRENT_USER, kTqIAUserKey, 0, nullptr, REG_OPTION_NON_VOLATILE,
                          KEY_ALL_ACCESS, nullptr, key.put(), nullptr);
    if (status != ERROR_SUCCESS) {
        failRegistryCall("RegCreateKeyEx failed to create registry key.", status);
    }
}

// The first hit's data as text: up to its first NUL, upper-cased.
std::string upperCaseText(const TqRegistrySearchResult& hit) {
    const char* text = reinterpret_cast<const char*>(hit.data.get());
    std::string value = text != nullptr ? std::string(text, strnlen(text, hit.dataLength)) : "";
    std::transform(value.begin(), value.end(), value.begin(),
                   [](unsigned char c) { return static_cast<char>(std::toupper(c)); });
    return value;
}

// One location's CardRemovalCheck folded into the block. handled counts the locations that
// gave a usable answer so far; a value met after the first of them fixes the setting.
void readSettingAt(const SettingLocation& location, springCheckBlock& block, int& handled,
                   int& result) {
    TqRegistrySearchEntry entry;
    entry.flags = SEARCH_RETURN_DATA;
    entry.root = location.root;
    entry.valueName = kTqCardRemovalCheckValue;
    entry.valueType = REG_SZ;
    entry.stopAtFirst = true;
    const int found = TqFindRegistryKeyAndOrValueName(location.key, &entry);
    const bool hit =
        found == kTqSearchHit && !entry.results.empty() && entry.results.front() != nullptr;
    if (found == -tq::kResourceDoesNotExist || (found >= 0 && !hit)) {
        if (block.status == -1) {
            block.status = 1;
        }
        if (block.locked == -1) {
            block.locked = 0;
        }
        ++handled;
        return;
    }
    if (found < 0) {
        std::cerr << kDetectName << " : TqFindRegistryKeyAndOrValueName(1) failed. Error Code "
                  << -found << "." << std::endl;
        result = -found;
        return;
    }
    const std::string value = upperCaseText(*entry.results.front());
    const bool on = value == "TRUE" || value == "1";
    const bool off = value == "FALSE" || value == "0";
    block.status = on ? 1 : 0;
    if (handled > 0) {
        block.locked = 1;
    }
    if (on || off) {
        ++handled;
    }
}

bool sameProcess(const processRecord& stored, const processRecord& running) {
    const std::size_t storedLength = strnlen(stored.executableName, sizeof stored.executableName);
    const std::size_t runningLength =
        strnlen(running.executableName, sizeof running.executableName);
    return stored.processId == running.processId &&
           std::memcmp(&stored.creationTime, &running.creationTime, sizeof(FILETIME)) == 0 &&
           storedLength == runningLength &&
           std::memcmp(stored.executableName, running.executableName, storedLength) == 0;
}

// Back to the agent's default: the user's own value and record go.
void restoreDefault(HKEY key) {
    DWORD type = REG_NONE;
    DWORD size = 0;
    const LSTATUS query = ::RegQueryValueExA(key, kTqZelCheckValue, nullptr, &type, nullptr, &size);
    if (query != ERROR_SUCCESS && query != ERROR_FILE_NOT_FOUND) {
        failRegistryCall("RegQueryValueEx Failed", query);
    }
    LSTATUS status = ::RegDeleteValueA(key, kTqCardRemovalCheckValue);
    if (status != ERROR_SUCCESS && status != ERROR_FILE_NOT_FOUND) {
        failRegistryCall("Failed to delete CardRemovalCheck value.", status);
    }
    if (query == ERROR_SUCCESS) {
        status = ::RegDeleteValueA(key, kTqZelCheckValue);
        if (status != ERROR_SUCCESS) {
            failRegistryCall("Failed to delete ZelCheck value.", status);
        }
    }
}

void reportNotRunning(int found) {
    std::cerr << kSetName << " : TqIsProcessExecuting unsuccessful. Result Code: "
              << (found == 0 ? std::string("Process not running") : TqGetCommonResultText(found))
              << std::endl;
}

// A setting the user may change: the stored ZelCheck record tells whether the agent restarted
// since the switch-off. The record's lookup decides the result: a missing record (0) clears a
// failure met among the keys, a short one (-12) replaces it.
void compareWithStoredRecord(springCheckBlock& block, const processRecord& running, int& result) {
    processRecord stored{};
    const int read = TqGetZelKVRIAInformation(&stored);
    if (read > 0) {
        block.zelSet = 1;
        block.hasRebooted = sameProcess(stored, running) ? 1 : 2;
    } else {
        result = -read;
        block.hasRebooted = 0;
        block.zelSet = 0;
    }
}

void takeBackSwitchOff(HKEY key) {
    const LSTATUS status = ::RegDeleteValueA(key, kTqCardRemovalCheckValue);
    if (status != ERROR_SUCCESS) {
        std::cerr << kSetName << " : Failed to delete CardRemovalCheck key." << std::endl;
    }
}

} // namespace

int TqDetectKVRIdentityAgentSpringCheck(springCheckBlock* springBlock,
                                        const processRecord* running) {
    return TqGuard<int>(
        [&](int& result) {
            if (springBlock == nullptr || running == nullptr) {
                result = tq::kInvalidArguments;
                throw TqFailure(kInvalidArguments);
            }
            springCheckBlock& block = *springBlock;
            int handled = 0;
            for (const SettingLocation& location : kSettingLocations) {
                readSettingAt(location, block, handled, result);
            }
            if (handled == 0) {
                block.status = 1;
                block.locked = 0;
                block.hasRebooted = 0;
                block.zelSet = 0;
            } else if (block.locked == 0) {
                compareWithStoredRecord(block, *running, result);
            } else if (block.locked == 1) {
                block.hasRebooted = 0;
                block.zelSet = 0;
            }
        },
        failureLineOf(kDetectName),
        [](const TqCaught&, int resultSoFar) noexcept {
            return resultSoFar > 0 ? resultSoFar : tq::kExceptionOccurred;
        });
}

int TqGetZelKVRIAInformation(processRecord* out) {
    return TqGuard<int>(
        [&](int& result) {
            if (out == nullptr) {
                result = -tq::kInvalidArguments;
                throw TqFailure(kInvalidArguments);
            }
            TqRegistrySearchEntry entry;
            entry.flags = SEARCH_RETURN_DATA;
            entry.root = HKEY_CURRENT_USER;
            entry.valueName = kTqZelCheckValue;
            entry.valueType = REG_BINARY;
            entry.stopAtFirst = true;
            if (TqFindRegistryKeyAndOrValueName(kTqIAUserKey, &entry) != kTqSearchHit ||
                entry.results.empty() || entry.results.front() == nullptr) {
                return;
            }
            const TqRegistrySearchResult& hit = *entry.results.front();
            if (hit.data == nullptr || hit.dataLength < kTqZelCheckSize) {
                result = -tq::kBufferSizesDiffer;
                throw TqFailure("Stored REG_BINARY data is of invalid size");
            }
            unsigned char record[kTqZelCheckSize];
            std::memcpy(record, hit.data.get(), kTqZelCheckSize);
            scrambleZelCheck(record);
            std::memcpy(out, record, kTqZelCheckSize);
            result = 1;
        },
        failureLineOf(kGetZelName),
        [](const TqCaught&, int resultSoFar) noexcept {
            return resultSoFar < 0 ? resultSoFar : -tq::kExceptionOccurred;
        });
}

int TqSetZelKVRIAInformation(const processRecord* in) {
    return TqGuard<int>(
        [&](int& result) {
            if (in == nullptr) {
                result = tq::kInvalidArguments;
                throw TqFailure(kInvalidArguments);
            }
            TqUniqueRegKey key;
            if (openUserKey(KEY_READ | KEY_WRITE, key) == ERROR_FILE_NOT_FOUND) {
                createUserKey(key);
            }
            unsigned char record[kTqZelCheckSize];
            std::memcpy(record, in, kTqZelCheckSize);
            scrambleZelCheck(record);
            const LSTATUS status = TqWriteZelCheck(key.get(), record, sizeof record);
            if (status != ERROR_SUCCESS) {
                failRegistryCall("RegSetValueEx Failed", status);
            }
        },
        failureLineOf(kSetZelName), positiveCodeOf);
}

int TqSetKVRIASpringCheck(bool enable) {
    TqUniqueRegKey key;
    // A switch-off without its record could never be told apart from a stale one: until the
    // record is stored too, a failure takes the switch-off back.
    bool switchOffWithoutRecord = false;
    const int outcome = TqGuard<int>(
        [&](int& result) {
            const bool keyMissing = openUserKey(KEY_ALL_ACCESS, key) == ERROR_FILE_NOT_FOUND;
            if (enable) {
                // Nothing of the user's own exists where the key does not: the default applies.
                if (!keyMissing) {
                    restoreDefault(key.get());
                }
                return;
            }
            processRecord agent{};
            const int found = TqIsProcessExecuting(kTqKVRAgentExecutable, true, &agent);
            if (found <= 0) {
                reportNotRunning(found);
                result = tq::kNotFound;
                return;
            }
            // Created only now, so that a refused switch leaves the registry as it was.
            if (keyMissing) {
                createUserKey(key);
            }
            const LSTATUS status =
                TqSetRegistryText(key.get(), kTqCardRemovalCheckValue, kSwitchedOff);
            if (status != ERROR_SUCCESS) {
                failRegistryCall("RegSetValueEx Failed", status);
            }
            switchOffWithoutRecord = true;
            const int stored = TqSetZelKVRIAInformation(&agent);
            if (stored != 0) {
                result = stored;
                throw TqFailure("TqSetZelKVRIAInformation failed.");
            }
            switchOffWithoutRecord = false;
        },
        failureLineOf(kSetName), positiveCodeOf);
    if (switchOffWithoutRecord) {
        takeBackSwitchOff(key.get());
    }
    return outcome;
}
