#include "TqSupportedMiddleware.h"

#include "base/TqStringUtil.h"
#include "middleware/TqDriverUpdateSearch.h"
#include "middleware/TqMiddlewareRecord.h"
#include "middleware/TqMiddlewareSearch.h"
#include "base/TqOutputText.h"
#include "base/TqFailureGuard.h"
#include "base/TqUniqueResource.h"
#include "logging/TqWorkerFailure.h"

#include <iostream>
#include <vector>

namespace {

// Runs one installed-program search and gives back its result and record.
int searchProduct(const TqMiddlewareSearchDetails& details, std::string& record,
                  const char* logFile) {
    TqUniqueClientText text;
    int length = 0;
    const int result = TqMiddlewareDetectionSearchJSON(&details, text.put(), &length, logFile);
    record = text ? std::string(text.get(), static_cast<std::size_t>(length)) : "";
    return result;
}

int searchDriverPackage(const char* jsonKey, const char* driverId, std::string& record,
                        const char* logFile) {
    std::vector<std::string> records;
    const int result = TqMSUpdateDriverDetectionSearchJSON(jsonKey, driverId, TqIdemiaDriverMatcher,
                                                           TqSelectLatestDriver, &records, logFile);
    record = records.empty() ? "" : records.front();
    return result;
}

// Rows 1, 2, 4 and 6 are left out of the document when their search failed; rows 3 and 5 are
// joined whatever happened, carrying their exception then. The asymmetry is the client's
// contract.
void joinWhenSearched(std::ostringstream& document, int result, const std::string& record) {
    if (result >= 0) {
        TqCombineMWResults(document, record);
    }
}

void buildDocument(std::ostringstream& document, const char* logFile) {
    std::string record;
    int result = searchProduct({"GemaltoMiddleware", "Classic Client", "Gemalto",
                                TqClassicClientNameFilter, TqSplitDisplayVersion},
                               record, logFile);
    joinWhenSearched(document, result, record);

    result = searchProduct(
        {"OTMiddleware", "AWP", "Oberthur Technologies", TqAWPNameFilter, TqSplitDisplayVersion},
        record, logFile);
    joinWhenSearched(document, result, record);

    searchProduct({"Idemia09Middleware", "IDEMIA Minidriver for PIV/CIV", "IDEMIA",
                   TqIdemiaNameFilter, nullptr},
                  record, logFile);
    TqCombineMWResults(document, record);

    result = searchDriverPackage("Idemia09MSUpdate", "cid_c6ba7b16-273e-5d46-8495-60e6786fcda0",
                                 record, logFile);
    joinWhenSearched(document, result, record);

    // A second display name is tried only when the first found nothing, not when it failed.
    TqMiddlewareSearchDetails combined{"IdemiaCombinedMiddleware", "IDEMIA Minidriver for CIV",
                                       "IDEMIA", TqIdemiaNameFilter, TqSplitDisplayVersion};
    if (searchProduct(combined, record, logFile) == 0) {
        combined.displayName = "IDEMIA Minidriver for ID-One PIV";
        searchProduct(combined, record, logFile);
    }
    TqCombineMWResults(document, record);

    result = searchDriverPackage("IdemiaCombinedMinidriverMSUpdate",
                                 "cid_9655ffae-6c28-4376-886c-0b0c6db1ab51", record, logFile);
    joinWhenSearched(document, result, record);
}

} // namespace

void TqCombineMWResults(std::ostringstream& document, const std::string& record) {
    TqGuard<bool, TqCatching::kStandardOnly>(
        [&](bool& joined) {
            std::string body = record;
            const std::size_t open = body.find('{');
            if (open == std::string::npos) {
                throw TqFailure("The JSON record has no opening brace.");
            }
            body.erase(open, 1);
            const std::size_t close = body.rfind('}');
            if (close == std::string::npos) {
                throw TqFailure("The JSON record has no closing brace.");
            }
            body.erase(close, 1);
            TqTrimReturnChars(body);
            document << (document.tellp() == 0 ? "{\n" : ",\n") << body;
            joined = true;
        },
        [](const TqCaught& caught) {
            std::cerr << "TqCombineMWResults : Exception Occurred - " << caught.text << std::endl;
        },
        [](const TqCaught&, bool) noexcept { return false; });
}

int TqSupportedMiddlewareDetectionJSON(char** jsonOut, int* jsonLength, const char* logFile) {
    bool exceptionRecordHandedOut = false;
    return TqGuard<int>(
        [&](int& result) {
            if (jsonOut == nullptr || jsonLength == nullptr) {
                result = tq::kInvalidArguments;
                throw TqFailure("One or more calling arguments is invalid");
            }
            std::ostringstream document;
            buildDocument(document, logFile);
            if (document.tellp() == 0) {
                result = tq::kInternalError;
                throw TqFailure("Failed to successfully determine the installation status of "
                                "supported middleware");
            }
            document << "\n}\n";
            TqHandOutText(document.str(), jsonOut, jsonLength);
        },
        [&](const TqCaught& caught) {
            const std::string message =
                caught.standard() ? caught.text : "Unknown Exception Occurred";
            TqLogger().Log(kLogError, kTqWorkerTag, "TqSupportedMiddlewareDetectionJSON",
                           "Exception Occurred - " + message);
            TqHandOutText(TqExceptionRecord("MiddlewareDetection", message), jsonOut, jsonLength);
            exceptionRecordHandedOut = true;
        },
        [&](const TqCaught&, int resultSoFar) noexcept {
            // Not even the exception record could be handed out: no document, and 23.
            if (!exceptionRecordHandedOut) {
                return static_cast<int>(tq::kExceptionOccurred);
            }
            return resultSoFar != tq::kSuccess ? resultSoFar : tq::kExceptionOccurred;
        });
}
