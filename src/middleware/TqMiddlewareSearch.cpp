#include "TqMiddlewareSearch.h"

#include "host/TqRegistrySearch.h"
#include "base/TqStringUtil.h"
#include "middleware/TqMiddlewareRecord.h"
#include "base/TqOutputText.h"
#include "base/TqFailureGuard.h"
#include "logging/TqWorkerFailure.h"

#include <cstring>
#include <strings.h>
#include <utility>
#include <vector>

namespace {

constexpr const char* kUninstallKey = "SOFTWARE\\Microsoft\\Windows\\CurrentVersion\\Uninstall";
constexpr int kFullScore = 5; // publisher matched, DisplayVersion, VersionMajor and VersionMinor

bool sameIgnoringCase(const std::string& a, const char* b) {
    return b != nullptr && a.size() == std::strlen(b) && ::strcasecmp(a.c_str(), b) == 0;
}

// Scores one candidate's Uninstall entry. The values are read into the search's values, which
// keep what an earlier, rejected candidate left unless this one overwrites them.
int scoreCandidate(const TqMiddlewareSearchDetails& details, const std::string& keyPath,
                   TqMiddlewareValues& values) {
    int score = 1;
    if (TqGetRegistryStringValue(nullptr, keyPath, "Publisher", values.Publisher) == 1 &&
        sameIgnoringCase(values.Publisher, details.publisher)) {
        score = 2;
    }
    if (TqGetRegistryStringValue(nullptr, keyPath, "DisplayVersion", values.DisplayVersion) == 1) {
        ++score;
    }
    if (details.versionParser != nullptr) {
        details.versionParser(values.DisplayVersion, values.BuildNo, values.Revision);
    }
    if (TqGetRegistryDWORDValue(nullptr, keyPath, "VersionMajor", values.VersionMajor) == 1) {
        ++score;
    }
    if (TqGetRegistryDWORDValue(nullptr, keyPath, "VersionMinor", values.VersionMinor) == 1) {
        ++score;
    }
    return score;
}

// Walks the Uninstall entries whose DisplayName begins with the product's text, in the order the
// registry search found them, and returns true at the first that passes every test.
bool findInstalledProduct(const TqMiddlewareSearchDetails& details, TqMiddlewareValues& values,
                          int& result) {
    TqRegistrySearchEntry entry;
    TqSetPrefixSearch(entry, "DisplayName", REG_SZ, details.displayName);
    const int found = TqFindRegistryKeyAndOrValueName(kUninstallKey, &entry);
    if (found < 0) {
        result = -tq::kInternalError;
        throw TqFailure("Failed to search through registry. Error: " +
                        TqGetCommonResultText(found));
    }
    if (found != kTqSearchHit) {
        return false;
    }
    for (const auto& hit : entry.results) {
        if (!hit) {
            continue;
        }
        values.Name = TqRegistryHitText(*hit);
        TqTrimWhiteSpace(values.Name);
        if (details.nameFilter != nullptr && !details.nameFilter(values.Name, values.Platform)) {
            continue;
        }
        if (scoreCandidate(details, hit->keyPath, values) == kFullScore) {
            values.UUID = TqEntryUUID(hit->keyPath);
            return true;
        }
    }
    return false;
}

void setLogFile(const char* logFile) {
    if (logFile != nullptr) {
        TqLogger().SetFileName(logFile);
    }
}

// Runs one search. A failure is logged and its exception record handed out in place of the
// product's record (a record that cannot be copied either is simply not handed out); the code
// is -23 unless a failure code was set, since an answer of 0 or 1 whose record could not be
// handed out is a failure too.
template <typename Body>
int runSearch(const char* function, const char* key, char** jsonOut, int* jsonLength,
              Body&& body) noexcept {
    return TqGuard<int>(
        std::forward<Body>(body),
        [&](const TqCaught& caught) {
            const std::string message =
                caught.standard() ? caught.text : "Unknown Exception Occurred";
            TqLogger().Log(kLogError, kTqWorkerTag, function, "Exception Occurred - " + message);
            TqHandOutText(TqExceptionRecord(key, message), jsonOut, jsonLength);
        },
        [](const TqCaught&, int resultSoFar) noexcept {
            return resultSoFar >= tq::kSuccess ? -tq::kExceptionOccurred : resultSoFar;
        });
}

} // namespace

std::string TqEntryUUID(const std::string& keyPath) {
    const std::size_t lastSeparator = keyPath.find_last_of('\\');
    return lastSeparator == std::string::npos ? keyPath : keyPath.substr(lastSeparator + 1);
}

int TqMiddlewareDetectionSearchJSON(const TqMiddlewareSearchDetails* details, char** jsonOut,
                                    int* jsonLength, const char* logFile) {
    const char* key =
        details != nullptr && details->jsonKey != nullptr ? details->jsonKey : "Unknown";
    return runSearch("TqMiddlewareDetectionSearchJSON", key, jsonOut, jsonLength, [&](int& result) {
        setLogFile(logFile);
        // Details without a key or a display name cannot be searched for either.
        if (details == nullptr || details->jsonKey == nullptr || details->displayName == nullptr) {
            result = -tq::kInvalidArguments;
            throw TqFailure("The search details arguments are invalid");
        }
        if (jsonOut == nullptr || jsonLength == nullptr) {
            result = -tq::kInvalidArguments;
            throw TqFailure("One or more of the json output arguments is invalid");
        }
        std::string record;
        TqMiddlewareValues values;
        if (findInstalledProduct(*details, values, result)) {
            record = TqDetectedRecord(details->jsonKey, values);
            result = 1;
        } else {
            record = TqNotDetectedRecord(details->jsonKey);
            result = 0;
        }
        TqHandOutText(record, jsonOut, jsonLength);
    });
}

int TqOTMiddlewareDetectionJSON(char** jsonOut, int* jsonLength, const char* logFile) {
    static constexpr const char* kKey = "OTMiddleware";
    return runSearch("TqOTMiddlewareDetectionJSON", kKey, jsonOut, jsonLength, [&](int& result) {
        setLogFile(logFile);
        if (jsonOut == nullptr || jsonLength == nullptr) {
            result = -tq::kInvalidArguments;
            throw TqFailure("One or more calling arguments is invalid");
        }
        const TqMiddlewareSearchDetails details{kKey, "AWP", "Oberthur Technologies",
                                                TqAWPNameFilter, nullptr};
        std::string record;
        TqMiddlewareValues values;
        if (findInstalledProduct(details, values, result)) {
            // Only the detected entry's version is split. A version of fewer than four parts
            // leaves Revision and BuildNo empty.
            std::vector<std::string> parts;
            const int split = TqSplitString(values.DisplayVersion, R"(\.)", parts);
            if (split != 0) {
                throw TqFailure("Failed to split string. Error : " + TqGetCommonResultText(split));
            }
            const bool complete = parts.size() > 3;
            values.Revision = complete ? parts[2] : std::string();
            values.BuildNo = complete ? parts[3] : std::string();
            record = TqDetectedRecord(kKey, values);
            result = 1;
        } else {
            record = TqNotDetectedRecord(kKey);
            result = 0;
        }
        TqHandOutText(record, jsonOut, jsonLength);
    });
}
