#include "TqATRMiddleware.h"

#include "hostutil/TqUniqueResource.h"
#include "platform/TqErrorText.h"
#include "platform/TqWorkerFailure.h"

#include <array>
#include <cstring>
#include <iostream>
#include <stdexcept>
#include <vector>

namespace {

constexpr const char* kSetName = "TqSetATRMiddlewareDetection";

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

void reportFailure(const std::string& message) {
    progress("[ERROR] " + message);
    TqLogger().Log(kLogError, kTqWorkerTag, kSetName, message);
}

// A string value written without its terminating NUL, as the smart-card database has it.
LSTATUS setText(HKEY key, const char* name, const char* text) {
    return ::RegSetValueExA(key, name, 0, REG_SZ, reinterpret_cast<const BYTE*>(text),
                            static_cast<DWORD>(std::strlen(text)));
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
    LSTATUS status = setText(key, "80000001", "GemSafeMD.dll");
    if (status == ERROR_SUCCESS) {
        status = setBytes(key, "ATR", atr);
    }
    if (status == ERROR_SUCCESS) {
        status = setBytes(key, "ATRMask", mask);
    }
    if (status == ERROR_SUCCESS) {
        status = setText(key, "Crypto Provider", "Microsoft Base Smart Card Crypto Provider");
    }
    if (status == ERROR_SUCCESS) {
        status = setText(key, "Smart Card Key Storage Provider",
                         "Microsoft Smart Card Key Storage Provider");
    }
    return status;
}

} // namespace

int TqSetATRMiddlewareDetection(const char* middleware, const char* logFile) {
    int result = tq::kSuccess;
    try {
        if (logFile != nullptr) {
            TqLogger().SetFileName(logFile);
        }
        TqLogger().Log(kLogInfo, kTqWorkerTag, kSetName, "Entered");
        if (middleware == nullptr) {
            result = tq::kInvalidArguments;
            throw std::runtime_error("ATRMode argument is invalid");
        }
        BYTE firstByte = 0;
        if (std::strcmp(middleware, "GEMSAFE") == 0) {
            firstByte = kGemSafeFirstByte;
        } else if (std::strcmp(middleware, "PIVMINIDRIVER") == 0) {
            firstByte = kPivFirstByte;
        } else {
            result = tq::kUnsupported;
            throw std::runtime_error(std::string("Unsupported Middleware type ") + middleware);
        }
        progress("64Bit Env");
        for (const EntryOpening& opening : kOpenings) {
            TqUniqueRegKey key;
            LSTATUS status =
                ::RegOpenKeyExA(HKEY_LOCAL_MACHINE, opening.path, 0, opening.access, key.put());
            if (status == ERROR_FILE_NOT_FOUND) {
                progress(std::string("[INFO] Creating registry key ") + opening.path);
                status = ::RegCreateKeyExA(HKEY_LOCAL_MACHINE, opening.path, 0, nullptr,
                                           REG_OPTION_NON_VOLATILE, opening.access, nullptr,
                                           key.put(), nullptr);
            }
            if (status != ERROR_SUCCESS) {
                reportFailure(std::string("Could not find or create the registry key ") +
                              opening.path + " " + TqGetLastErrorAsString(status));
                result = tq::kInternalError;
                break;
            }
            progress(opening.contactless ? "RFID" : "NON RFID");
            status = writeEntry(key.get(), opening.contactless, firstByte);
            if (status != ERROR_SUCCESS) {
                reportFailure(std::string("Could not find or create the registry value ") +
                              opening.path + " " + TqGetLastErrorAsString(status));
                result = tq::kInternalError;
                break;
            }
        }
    } catch (...) {
        const char* text = TqCurrentExceptionText();
        if (text != nullptr) {
            progress(std::string("[Error] Std Exception - ") + text);
        } else {
            progress("[Error] Unexpected Error");
        }
        TqLogger().Log(kLogError, kTqWorkerTag, kSetName,
                       text != nullptr ? std::string("Exception occurred: ") + text
                                       : std::string("Unexpected Error occurred"));
        if (result == tq::kSuccess) {
            result = tq::kExceptionOccurred;
        }
    }
    TqLogger().Log(kLogInfo, kTqWorkerTag, kSetName, "Leaving");
    return result;
}
