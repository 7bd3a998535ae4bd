#include "TqDriverUpdateSearch.h"

#include "host/TqRegistrySearch.h"
#include "middleware/TqDriverFileProperties.h"
#include "middleware/TqMiddlewareRecord.h"
#include "base/TqFailureGuard.h"
#include "logging/TqWorkerFailure.h"

#include <shlobj.h>

#include <algorithm>
#include <cstring>
#include <memory>

namespace {

constexpr const char* kFunction = "TqMSUpdateDriverDetectionSearchJSON";
constexpr const char* kMinidriverFile = "CIVMinidriver64.dll";

// The package's install date: "InstallDate", else "FirstInstallDate". Shorter data fills the low
// bytes, longer data gives its first eight.
bool readInstallDate(const std::string& keyPath, std::uint64_t& installDate) {
    for (const char* name : {"InstallDate", "FirstInstallDate"}) {
        std::unique_ptr<unsigned char[]> data;
        std::uint32_t length = 0;
        if (TqGetRegistryBinaryValue(nullptr, keyPath, name, data, length) == 1) {
            installDate = 0;
            std::memcpy(&installDate, data.get(), std::min<std::size_t>(length, 8));
            return true;
        }
    }
    return false;
}

// The package's minidriver file in the driver store, or empty when the package is not there.
std::string minidriverInDriverStore(const std::string& packageId) {
    char systemFolder[MAX_PATH];
    if (FAILED(::SHGetFolderPathA(nullptr, CSIDL_SYSTEM, nullptr, 0, systemFolder))) {
        return {};
    }
    const std::string folder =
        std::string(systemFolder) + "\\DriverStore\\FileRepository\\" + packageId;
    if (::GetFileAttributesA(folder.c_str()) == INVALID_FILE_ATTRIBUTES) {
        return {};
    }
    return folder + "\\" + kMinidriverFile;
}

// One hit of the driver-update search as a candidate; false when anything about it is missing.
bool readCandidate(const std::string& keyPath, std::string& filePath, TqDriverRecord& record) {
    std::vector<std::string> packageIds;
    if (TqGetRegistryMultiStringValue(nullptr, keyPath, "DriverPackageIds", packageIds) != 1 ||
        packageIds.empty()) {
        return false;
    }
    std::uint64_t installDate = 0;
    if (!readInstallDate(keyPath, installDate)) {
        return false;
    }
    filePath = minidriverInDriverStore(packageIds.front());
    if (filePath.empty() || TqReadDriverFileProperties(filePath, record) != 0) {
        return false;
    }
    record.installDate = installDate;
    return true;
}

std::string detectedRecord(const char* jsonKey, const TqDriverRecord& record) {
    return TqComposeRecord(jsonKey, {
                                        {"Detected", "true"},
                                        {"UUID", "N/A", ":"},
                                        {"Name", record.FileDescription},
                                        {"Publisher", record.Copyright},
                                        {"Platform", "64"},
                                        {"DisplayVersion", record.ProductVersion},
                                        {"VersionMajor", record.ProductVersionMajor},
                                        {"VersionMinor", record.ProductVersionMinor},
                                        {"Revision", "0"},
                                        {"BuildNo", "0"},
                                    });
}

// The driver-update entries whose "HardwareIds" begin with hardwareId.
void findDriverUpdates(const std::string& hardwareId, TqRegistrySearchEntry& entry, int& result) {
    TqSetPrefixSearch(entry, "HardwareIds", REG_MULTI_SZ, hardwareId);
    const int found = TqFindRegistryKeyAndOrValueName(kTqDriverUpdatesKey, &entry);
    if (found < 0) {
        result = -tq::kInternalError;
        throw TqFailure("Failed to search through registry. Error: " +
                        TqGetCommonResultText(found));
    }
}

// The packages of the search's hits that the matcher accepts, in the order they were found.
std::vector<TqDriverRecord> acceptedCandidates(const char* jsonKey,
                                               const TqRegistrySearchEntry& entry,
                                               TqDriverMatcher driverMatcher) {
    std::vector<TqDriverRecord> candidates;
    for (const auto& hit : entry.results) {
        std::string filePath;
        TqDriverRecord record;
        if (!hit || !readCandidate(hit->keyPath, filePath, record)) {
            continue;
        }
        const int verdict =
            driverMatcher != nullptr ? driverMatcher(jsonKey, filePath, &record) : 0;
        if (verdict == kTqDriverAcceptAndStop || verdict == kTqDriverAccept) {
            candidates.push_back(record);
        }
        if (verdict == kTqDriverAcceptAndStop) {
            break;
        }
    }
    return candidates;
}

} // namespace

int TqMSUpdateDriverDetectionSearchJSON(const char* jsonKey, const char* driverId,
                                        TqDriverMatcher driverMatcher,
                                        TqDriverSelector driverSelector,
                                        std::vector<std::string>* recordsOut, const char* logFile) {
    std::vector<std::string> records;
    const int answer = TqGuard<int>(
        [&](int& result) {
            if (logFile != nullptr) {
                TqLogger().SetFileName(logFile);
            }
            if (jsonKey == nullptr || driverId == nullptr) {
                result = -tq::kInvalidArguments;
                throw TqFailure("One or more calling arguments is null");
            }
            const std::string hardwareId = std::string("scfilter\\") + driverId;
            TqRegistrySearchEntry entry;
            findDriverUpdates(hardwareId, entry, result);
            std::vector<TqDriverRecord> candidates =
                acceptedCandidates(jsonKey, entry, driverMatcher);
            result = 0;
            if (!candidates.empty() && driverSelector != nullptr &&
                driverSelector(&candidates) != 0) {
                result = 1;
            }
            if (result == 1) {
                for (const TqDriverRecord& chosen : candidates) {
                    records.push_back(detectedRecord(jsonKey, chosen));
                }
            } else {
                records.push_back(TqNotDetectedRecord(jsonKey));
            }
        },
        [&](const TqCaught& caught) {
            const std::string message =
                caught.standard() ? caught.text : "Unknown Exception Occurred";
            TqLogger().Log(kLogError, kTqWorkerTag, kFunction, "Exception Occurred - " + message);
            records.assign(1, TqExceptionRecord(jsonKey != nullptr ? jsonKey : "Unknown", message));
        },
        TqKeepOr(-tq::kExceptionOccurred));
    if (recordsOut != nullptr) {
        recordsOut->swap(records);
    }
    return answer;
}
