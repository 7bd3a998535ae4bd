#include "TqEnrollmentMode.h"

#include "base/TqUniqueResource.h"
#include "base/TqOutputText.h"
#include "logging/TqWorkerFailure.h"

#include <cstring>

namespace {

constexpr const char* kSwitchName = "TqSwitchEnrollmentMode";
constexpr const char* kGetName = "TqGetEnrollmentMode";

void setLogFile(const char* logFile) {
    if (logFile != nullptr) {
        TqLogger().SetFileName(logFile);
    }
}

} // namespace

int TqSwitchEnrollmentMode(const char* mode, const char* logFile) {
    return TqRunWorker(kSwitchName, [&](int& result) {
        setLogFile(logFile);
        TqLogger().Log(kLogInfo, kTqWorkerTag, kSwitchName, "Entered");
        if (mode == nullptr) {
            result = tq::kInvalidArguments;
            throw TqFailure("KVRMode argument is invalid");
        }
        TqUniqueRegKey key;
        LSTATUS status =
            ::RegOpenKeyExA(HKEY_CURRENT_USER, kTqEnrollmentKey, 0, KEY_ALL_ACCESS, key.put());
        if (status == ERROR_FILE_NOT_FOUND) {
            TqLogger().Log(kLogInfo, kTqWorkerTag, kSwitchName, "Creating registry keys");
            status = ::RegCreateKeyExA(HKEY_CURRENT_USER, kTqEnrollmentKey, 0, nullptr,
                                       REG_OPTION_NON_VOLATILE, KEY_ALL_ACCESS, nullptr, key.put(),
                                       nullptr);
        }
        if (status != ERROR_SUCCESS) {
            result = tq::kInternalError;
            throw TqFailure(std::string("Could not find or create the registry key '") +
                            kTqEnrollmentKey + "'");
        }
        TqLogger().Log(kLogInfo, kTqWorkerTag, kSwitchName,
                       std::string("Switching registry to Applet: ") + mode);
        DWORD data = 0;
        if (std::strcmp(mode, "AGILE") == 0) {
            data = 0;
        } else if (std::strcmp(mode, "COMPATIBILITY") == 0) {
            data = 1;
        } else {
            result = tq::kInternalError;
            throw TqFailure(std::string("Unknown Enrollment mode '") + mode + "'.");
        }
        if (::RegSetValueExA(key.get(), kTqEnrollmentValue, 0, REG_DWORD,
                             reinterpret_cast<const BYTE*>(&data), sizeof data) != ERROR_SUCCESS) {
            result = tq::kInternalError;
            throw TqFailure("Could not set EnableKVREnrollment value.");
        }
        key.reset();
        TqLogger().Log(kLogInfo, kTqWorkerTag, kSwitchName, "Leaving");
    });
}

int TqGetEnrollmentMode(char** modeOut, int* modeLengthOut, const char* logFile) {
    return TqRunWorker(kGetName, [&](int& result) {
        setLogFile(logFile);
        if (modeOut == nullptr || modeLengthOut == nullptr) {
            result = tq::kInvalidArguments;
            throw TqFailure("One ore more calling arguments is invalid");
        }
        const char* mode = "NOT SET";
        TqUniqueRegKey key;
        if (::RegOpenKeyExA(HKEY_CURRENT_USER, kTqEnrollmentKey, 0, KEY_ALL_ACCESS, key.put()) ==
            ERROR_FILE_NOT_FOUND) {
            result = tq::kNotFound;
            TqLogger().Log(kLogWarn, kTqWorkerTag, kGetName, "Registry VKey Not Set");
        } else {
            // The stored type is not checked, and a failed read leaves 0 ("AGILE"): a lenient
            // reading the client has always relied on.
            DWORD data = 0;
            DWORD size = sizeof data;
            const LSTATUS status =
                ::RegQueryValueExA(key.get(), kTqEnrollmentValue, nullptr, nullptr,
                                   reinterpret_cast<BYTE*>(&data), &size);
            if (status == ERROR_FILE_NOT_FOUND) {
                result = tq::kInternalError;
            } else {
                if (status != ERROR_SUCCESS) {
                    data = 0; // some hosts copy part of an oversized value before failing
                }
                mode = data == 0 ? "AGILE" : "COMPATIBILITY";
            }
        }
        TqHandOutText(mode, modeOut, modeLengthOut);
    });
}
