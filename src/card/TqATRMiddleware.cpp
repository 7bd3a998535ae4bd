#include "TqATRMiddleware.h"

#include "host/TqRegistryWrite.h"
#include "base/TqUniqueResource.h"
#include "middleware/TqMiddlewareSearch.h"
#include "middleware/TqOTMiddleware.h"
#include "base/TqOutputText.h"
#include "base/TqErrorText.h"
#include "base/TqFailureGuard.h"
#include "logging/TqWorkerFailure.h"

#include <array>
#include <cstring>
#include <map>
#include <iostream>
#include <vector>

namespace {

constexpr const char* kSetName = "TqSetATRMiddlewareDetection";
constexpr const char* kGetName = "TqGetATRMiddlewareDetection";

constexpr BYTE kGemSafeFirstByte = 0x3B; // the card's real first ATR byte: the entry matches
constexpr BYTE kPivFirstByte = 0xFF;     // no card starts so: the entry never matches

// The first byte is a placeholder for the middleware's first byte.
constexpr std::array<BYTE, 19> kContactAtr = {0x00, 0xF9, 0x18, 0x00, 0x00, 0x81, 0x31,
                                              0xFE, 0x45, 0x4A, 0x43, 0x4F, 0x50, 0x34,
                                              0x31, 0x56, 0x32, 0x32, 0xAF};
constexpr std::array<BYTE, 14> kContactlessAtr = {0x00, 0x89, 0x80, 0x01, 0x4A, 0x43, 0x4F,
                                                  0x50, 0x34, 0x31, 0x56, 0x32, 0x32, 0x4D};

struct EntryOpening {
    const char* path;
    REGSAM access;
    bool contactless;
};

// Both entries in the 64-bit view first, then both again in the 32-bit view.
constexpr EntryOpening kOpenings[] = {
    {kTqJcopContactKey, KEY_ALL_ACCESS | KEY_WOW64_64KEY, false},
    {kTqJcopContactlessKey, KEY_ALL_ACCESS | KEY_WOW64_64KEY, true},
    {kTqJcopContactKey, KEY_ALL_ACCESS | KEY_WOW64_32KEY, false},
    {kTqJcopContactlessKey, KEY_ALL_ACCESS | KEY_WOW64_32KEY, true},
};

void progress(const std::string& line) {
    std::cout << kSetName << " : " << line << std::endl;
}

// An entry that cannot be opened or written ends the writing; the entries before it stay.
void reportUnwritableEntry(const std::string& message) {
    progress("[ERROR] " + message);
    TqLogger().Log(kLogError, kTqWorkerTag, kSetName, message);
}

LSTATUS setBytes(HKEY key, const char* name, const std::vector<BYTE>& bytes) {
    return ::RegSetValueExA(key, name, 0, REG_BINARY, bytes.data(),
                            static_cast<DWORD>(bytes.size()));
}

// Writes the five values of one entry in order, stopping at the first failure.
LSTATUS writeEntry(HKEY key, bool contactless, BYTE firstByte) {
    std::vector<BYTE> atr = contactless
                                ? std::vector<BYTE>(kContactlessAtr.begin(), kContactlessAtr.end())
                                : std::vector<BYTE>(kContactAtr.begin(), kContactAtr.end());
    atr[0] = firstByte;
    const std::vector<BYTE> mask(atr.size(), 0xFF);
    LSTATUS status = TqSetRegistryText(key, "80000001", "GemSafeMD.dll");
    if (status == ERROR_SUCCESS) {
        status = setBytes(key, "ATR", atr);
    }
    if (status == ERROR_SUCCESS) {
        status = setBytes(key, "ATRMask", mask);
    }
    if (status == ERROR_SUCCESS) {
        status =
            TqSetRegistryText(key, "Crypto Provider", "Microsoft Base Smart Card Crypto Provider");
    }
    if (status == ERROR_SUCCESS) {
        status = TqSetRegistryText(key, "Smart Card Key Storage Provider",
                                   "Microsoft Smart Card Key Storage Provider");
    }
    return status;
}

// The first ATR byte that claims the card for the middleware, or that no card starts with.
BYTE firstByteFor(const char* middleware, int& result) {
    if (middleware == nullptr) {
        result = tq::kInvalidArguments;
        throw TqFailure("ATRMode argument is invalid");
    }
    if (std::strcmp(middleware, "GEMSAFE") == 0) {
        return kGemSafeFirstByte;
    }
    if (std::strcmp(middleware, "PIVMINIDRIVER") == 0) {
        return kPivFirstByte;
    }
    result = tq::kUnsupported;
    throw TqFailure(std::string("Unsupported Middleware type ") + middleware);
}

// Opens the entry's key, creating it when it is missing.
LSTATUS openEntry(const EntryOpening& opening, TqUniqueRegKey& key) {
    LSTATUS status =
        ::RegOpenKeyExA(HKEY_LOCAL_MACHINE, opening.path, 0, opening.access, key.put());
    if (status == ERROR_FILE_NOT_FOUND) {
        progress(std::string("[INFO] Creating registry key ") + opening.path);
        status =
            ::RegCreateKeyExA(HKEY_LOCAL_MACHINE, opening.path, 0, nullptr, REG_OPTION_NON_VOLATILE,
                              opening.access, nullptr, key.put(), nullptr);
    }
    return status;
}

// Writes every opening's entry in turn; 4 at the first key or value that cannot be written.
int writeEntries(BYTE firstByte) {
    progress("64Bit Env");
    for (const EntryOpening& opening : kOpenings) {
        TqUniqueRegKey key;
        LSTATUS status = openEntry(opening, key);
        if (status != ERROR_SUCCESS) {
            reportUnwritableEntry(std::string("Could not find or create the registry key ") +
                                  opening.path + " " + TqGetLastErrorAsString(status));
            return tq::kInternalError;
        }
        progress(opening.contactless ? "RFID" : "NON RFID");
        status = writeEntry(key.get(), opening.contactless, firstByte);
        if (status != ERROR_SUCCESS) {
            reportUnwritableEntry(std::string("Could not find or create the registry value ") +
                                  opening.path + " " + TqGetLastErrorAsString(status));
            return tq::kInternalError;
        }
    }
    return tq::kSuccess;
}

} // namespace

int TqSetATRMiddlewareDetection(const char* middleware, const char* logFile) {
    const int answer = TqGuard<int>(
        [&](int& result) {
            if (logFile != nullptr) {
                TqLogger().SetFileName(logFile);
            }
            TqLogger().Log(kLogInfo, kTqWorkerTag, kSetName, "Entered");
            result = writeEntries(firstByteFor(middleware, result));
        },
        [](const TqCaught& caught) {
            progress(caught.standard() ? std::string("[Error] Std Exception - ") + caught.text
                                       : std::string("[Error] Unexpected Error"));
            TqLogger().Log(kLogError, kTqWorkerTag, kSetName,
                           caught.standard() ? std::string("Exception occurred: ") + caught.text
                                             : std::string("Unexpected Error occurred"));
        },
        TqKeepOr<int>(tq::kExceptionOccurred));
    TqLogger().Log(kLogInfo, kTqWorkerTag, kSetName, "Leaving");
    return answer;
}

namespace {

enum class EntryReading { kGemSafe, kPivMinidriver, kUnknown };

const char* wordOf(EntryReading reading) {
    switch (reading) {
    case EntryReading::kGemSafe:
        return "GEMSAFE";
    case EntryReading::kPivMinidriver:
        return "PIVMINIDRIVER";
    default:
        return "UNKNOWN";
    }
}

// Whether the OT middleware's record says it is installed. The record's "Detected" must read
// exactly "TRUE".
bool otMiddlewareInstalled(const char* logFile) {
    TqUniqueClientText text;
    int length = 0;
    const int detected = TqOTMiddlewareDetectionJSON(text.put(), &length, logFile);
    const std::string record = text ? text.get() : "";
    if (detected != 1) {
        return false;
    }
    std::map<std::string, std::string> pairs;
    TqParseOTJSONMiddlewareString(record, pairs, logFile);
    const auto found = pairs.find("Detected");
    return found != pairs.end() && found->second == "TRUE";
}

// The minidriver that one entry's ATR names, by its first byte.
EntryReading readEntry(const char* path, int& result) {
    TqUniqueRegKey key;
    LSTATUS status =
        ::RegOpenKeyExA(HKEY_LOCAL_MACHINE, path, 0, KEY_READ | KEY_WOW64_64KEY, key.put());
    if (status != ERROR_SUCCESS) {
        result = tq::kFileAccessFailed;
        throw TqFailure(std::string("Failed to open registry key ") + path +
                        TqGetLastErrorAsString(status));
    }
    DWORD size = 0;
    status = ::RegQueryValueExA(key.get(), "ATR", nullptr, nullptr, nullptr, &size);
    std::vector<BYTE> atr(size + 1, 0);
    if (status == ERROR_SUCCESS) {
        status = ::RegQueryValueExA(key.get(), "ATR", nullptr, nullptr, atr.data(), &size);
    }
    if (status != ERROR_SUCCESS) {
        result = tq::kFileReadFailure;
        throw TqFailure(std::string("Failed to query registry value  ") + "ATR" +
                        TqGetLastErrorAsString(status));
    }
    if (atr[0] == kPivFirstByte) {
        return EntryReading::kPivMinidriver;
    }
    return atr[0] == kGemSafeFirstByte ? EntryReading::kGemSafe : EntryReading::kUnknown;
}

// What both entries name together. The OT middleware settles entries that disagree or that
// name no minidriver the library knows.
const char* entriesAnswer(bool otInstalled, int& result) {
    const EntryReading contact = readEntry(kTqJcopContactKey, result);
    const EntryReading contactless = readEntry(kTqJcopContactlessKey, result);
    const bool unknown = contact == EntryReading::kUnknown || contactless == EntryReading::kUnknown;
    if (!unknown && contact == contactless) {
        return wordOf(contact);
    }
    if (otInstalled) {
        return "PIVMINIDRIVER";
    }
    if (!unknown) {
        result = tq::kTypeUndetermined;
        return "UNKNOWN";
    }
    result = tq::kNotFound;
    throw TqFailure("Registry value for the ATR is not known and OT Middleware not installed.");
}

} // namespace

int TqGetATRMiddlewareDetection(char** middlewareOut, int* lengthOut, const char* logFile) {
    const char* answer = "UNKNOWN";
    const int code = TqGuard<int>(
        [&](int& result) {
            if (logFile != nullptr) {
                TqLogger().SetFileName(logFile);
            }
            if (middlewareOut == nullptr || lengthOut == nullptr) {
                result = tq::kInvalidArguments;
                throw TqFailure("One or more calling arguments is invalid");
            }
            const bool otInstalled = otMiddlewareInstalled(logFile);
            answer = entriesAnswer(otInstalled, result);
        },
        [](const TqCaught& caught) {
            if (caught.standard()) {
                std::cout << kGetName << " : [Error] Exception Occurred - " << caught.text
                          << std::endl;
            } else {
                std::cout << kGetName << " : [Error] Unexpected Eexception occurred" << std::endl;
            }
            TqLogger().Log(kLogError, kTqWorkerTag, kGetName,
                           caught.standard() ? std::string("Exception occurred:") + caught.text
                                             : std::string("Unexpected Error occurred"));
        },
        [&](const TqCaught&, int resultSoFar) noexcept {
            answer = "UNKNOWN";
            return resultSoFar != tq::kSuccess ? resultSoFar : tq::kExceptionOccurred;
        });
    // The word goes out whatever the answer: a buffer that cannot be had is the only failure here.
    return TqGuard<int>(
        [&](int&) { TqHandOutText(answer, middlewareOut, lengthOut); }, [](const TqCaught&) {},
        [](const TqCaught&, int) noexcept { return tq::kInvalidMemoryAllocation; }, code);
}
