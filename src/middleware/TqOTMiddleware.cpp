#include "TqOTMiddleware.h"

#include "base/TqUniqueResource.h"
#include "base/TqErrorText.h"
#include "logging/TqWorkerFailure.h"
#include "middleware/TqMiddlewareRecord.h"

namespace {

constexpr const char* kDetectionName = "TqOTMiddlewareDetection";
constexpr const char* kUninstallKey = "SOFTWARE\\Microsoft\\Windows\\CurrentVersion\\Uninstall\\";

struct OTRelease {
    std::uint32_t id;
    const char* productCode;
};

constexpr OTRelease kSR1{2001, "{1A237A0B-3E20-4D38-9316-C04FF4D2D9FE}"};
constexpr OTRelease kSR5Releases[] = {
    {3001, "{78CD21FA-042D-4AA8-A087-A082215EB661}"},
    {3002, "{1CC04300-D690-439E-BE17-0B0B51220B35}"},
    {3003, "{55C67109-B280-44B8-80AA-2D315D346745}"},
    {3004, "{7C68E9E2-8BFD-46B4-852D-CE957A1225E9}"},
};

constexpr TqFailureStyle kDetectionFailureStyle{
    "Exception Occurred - ", "Unknown Exception Occurred", -tq::kExceptionOccurred};

void logDetection(unsigned level, const std::string& message) {
    TqLogger().Log(level, kTqWorkerTag, kDetectionName, message);
}

// Opens the release's key in the 64-bit view and closes it at once: its existence is the answer.
// Returns the release's id when found, 0 when absent, -4 when the key could not be examined.
int testRelease(const OTRelease& release) {
    std::string product;
    TqOTMiddlewareSelectionText(release.id == kSR1.id ? 2 : release.id, product);
    const std::string path = std::string(kUninstallKey) + release.productCode;
    TqUniqueRegKey key;
    const LSTATUS status =
        ::RegOpenKeyExA(HKEY_LOCAL_MACHINE, path.c_str(), 0, KEY_READ | KEY_WOW64_64KEY, key.put());
    key.reset();
    switch (status) {
    case ERROR_SUCCESS:
        logDetection(kLogInfo, " : Succcessfully detected " + product + ".");
        return static_cast<int>(release.id);
    case ERROR_ACCESS_DENIED:
        logDetection(kLogInfo,
                     " : Succcessfully detected ( via access denied test ) " + product + ".");
        return static_cast<int>(release.id);
    case ERROR_FILE_NOT_FOUND:
        logDetection(kLogInfo, " Could not detect " + product + ". Failed to find registry key " +
                                   path + ". Error Code: " + TqGetLastErrorAsString(status));
        return tq::kSuccess;
    default:
        logDetection(kLogError, " Could not detect " + product +
                                    ". Failed to access the registry key " + path +
                                    ". Error Code " + std::to_string(status) + " - " +
                                    TqGetLastErrorAsString(status));
        return -tq::kInternalError;
    }
}

} // namespace

int TqOTMiddlewareDetection(std::uint32_t selection, const char* logFile) {
    return TqRunWorker(kDetectionName, kDetectionFailureStyle, [&](int& result) {
        if (logFile != nullptr) {
            TqLogger().SetFileName(logFile);
        }
        logDetection(kLogInfo, "Entered");
        if (selection - 1 > 3003) {
            result = -tq::kInvalidArguments;
            throw TqFailure("Invalid Middleware detection selection");
        }
        const bool singleRelease = selection >= 3001 && selection <= 3004;
        if (!singleRelease && selection > 1024) {
            result = -tq::kInvalidArguments;
            throw TqFailure("Invalid Middleware selection. Option " + std::to_string(selection) +
                            " out of range.");
        }
        if (singleRelease) {
            result = testRelease(kSR5Releases[selection - 3001]);
        } else {
            const std::uint32_t bits = selection == 1024 ? 1023 : selection;
            bool found = false;
            if ((bits & 2) != 0) {
                result = testRelease(kSR1);
                found = result > 0;
            }
            // The result is that of the last release examined.
            for (const OTRelease& release : kSR5Releases) {
                if (found || (bits & 1) == 0) {
                    break;
                }
                result = testRelease(release);
                found = result > 0;
            }
        }
        logDetection(kLogInfo, "Leaving");
    });
}

int TqOTMiddlewareSelectionText(std::uint32_t selection, std::string& text) {
    switch (selection) {
    case 1:
        text = "OT Middleware Version 5.2.0 SR5";
        return 1;
    case 2:
        text = "OT Middleware Version 5.2.0 SR1";
        return 1;
    case 3001:
        text = "64bit OT Middleware Version 5.2.0 SR5";
        return 0;
    case 3002:
        text = "64bit OT Admin Middleware Version 5.2.0 SR5";
        return 0;
    case 3003:
        text = "32bit OT Middleware Version 5.2.0 SR5";
        return 0;
    case 3004:
        text = "32bit OT Admin Middleware Version 5.2.0 SR5";
        return 0;
    default:
        break;
    }
    if (selection < 1 || selection > 3004) {
        return 1;
    }
    if (selection <= 1024) {
        text = "OT Middleware";
        return 0;
    }
    text = "Unsupported Middleware selected.";
    return -tq::kUnsupported;
}

int TqParseOTJSONMiddlewareString(const std::string& json,
                                  std::map<std::string, std::string>& pairs, const char* logFile) {
    return TqRunWorker("TqParseOTJSONMiddlewareString", [&](int& result) {
        if (logFile != nullptr) {
            TqLogger().SetFileName(logFile);
        }
        pairs.clear();
        if (json.empty()) {
            result = tq::kInvalidLength;
            return;
        }
        if (json.front() != '{' || json.back() != '}') {
            result = tq::kFormatInvalid;
            throw TqFailure("JSON string contains invalid formatting.");
        }
        TqRecordPairs(json, pairs);
        result = pairs.empty() ? tq::kNotFound : tq::kSuccess;
    });
}
