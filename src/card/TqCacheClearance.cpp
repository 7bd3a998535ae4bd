#include "TqCacheClearance.h"

#include "card/TqKeyContainerValidation.h"
#include "card/TqMinidriverSession.h"
#include "logging/ZelLogger.h"
#include "middleware/TqMiddlewareSearch.h"
#include "base/TqResultCodes.h"
#include "base/TqUniqueResource.h"
#include "logging/TqWorkerFailure.h"

#include <iostream>
#include <string>

namespace {

constexpr const char* kTag = "TqCacheClearance";
constexpr const char* kName = "TqOTS8SCardCheckAndCacheClear";
constexpr int kAttempts = 3;

constexpr int kAlreadyValid = 1;
constexpr int kResetAndValid = 2;
constexpr int kStillInvalid = 0;
constexpr int kMiddlewareMissing = 3;

void say(std::ostream& stream, const char* message) {
    stream << kName << " : " << message << std::endl;
}

void logInfo(const char* message) {
    TqLogger().Log(kLogInfo, kTag, kName, message);
}

// 1 when the OT middleware is installed, 0 when not, or the detection's negative code.
int otMiddlewareInstalled(const char* logFile) {
    TqUniqueClientText record;
    int length = 0;
    const int detected = TqOTMiddlewareDetectionJSON(record.put(), &length, logFile);
    return detected < 0 ? detected : (detected == 1 ? 1 : 0);
}

// 1 valid, 0 invalid; a failed check is a failed step.
int contentCheck(const char* readerName, const char* logFile, const char* failurePrefix,
                 int& result) {
    const int verdict = TqOTSmartCardValidContent(readerName, nullptr, logFile);
    if (verdict < 0) {
        result = -tq::kInternalError;
        throw TqFailure(failurePrefix + TqGetCommonResultText(verdict));
    }
    return verdict;
}

void requireStep(int code, const char* failurePrefix, int& result) {
    TqRequireMinidriverStep(code, failurePrefix, -tq::kInternalError, result);
}

constexpr TqFailureStyle kSequenceFailureStyle{"Exception occurred: ", "Unexpected Error occurred",
                                               -tq::kExceptionOccurred, kTag};

// Resets the cache until the content reads valid, at most kAttempts times.
bool resetUntilValid(const char* readerName, const char* pin, const char* logFile, int& result) {
    CARD_DATA cardData{};
    HMODULE module = nullptr;
    requireStep(TqInitMinidriver(readerName, &cardData, &module, logFile),
                "TqInitMinidriver failed. Error Code: ", result);
    bool valid = false;
    for (int attempt = 0; attempt < kAttempts && !valid; ++attempt) {
        // A failure from here on leaves the minidriver loaded and the card connected until the
        // process ends: TqUnintMinidriver is not reached.
        requireStep(TqOTClearSeries8SmartCardCache(readerName, pin, &cardData, logFile),
                    "TqOTClearSeries8SmartCardCache failed. Error Code: ", result);
        valid = contentCheck(readerName, logFile,
                             "TqSmartCardHasValidContent failed. Error Code: ", result) == 1;
    }
    requireStep(TqUnintMinidriver(module, &cardData, logFile),
                "TqUnintMinidriver failed. Error Code: ", result);
    return valid;
}

} // namespace

int TqOTS8SCardCheckAndCacheClear(const char* readerName, const char* pin, const char* logFile) {
    return TqRunWorker(kName, kSequenceFailureStyle, [&](int& result) {
        if (logFile != nullptr) {
            TqLogger().SetFileName(logFile);
        }
        if (readerName == nullptr || pin == nullptr) {
            result = -tq::kInvalidArguments;
            throw TqFailure("One or more calling arguments is invalid.");
        }
        const int installed = otMiddlewareInstalled(logFile);
        if (installed < 0) {
            say(std::cerr,
                "An error occurred whilst attempting to detect the Oberthur Middleware.");
            result = installed;
            return;
        }
        if (installed == 0) {
            say(std::cout, "Oberthur Middleware is not installed.");
            result = kMiddlewareMissing;
            return;
        }
        if (contentCheck(readerName, logFile,
                         "TqSmartCardHasValidContent failed. Error code: ", result) == 1) {
            result = kAlreadyValid;
            return;
        }
        say(std::cout, "Attempt to clear Smart Card Cache.");
        logInfo("Attempt to clear Smart Card Cache.");
        if (resetUntilValid(readerName, pin, logFile, result)) {
            say(std::cout, "Successfully reset the Smart Card Cache.");
            logInfo("Successfully reset the Smart Card Cache.");
            result = kResetAndValid;
            return;
        }
        say(std::cerr,
            "Failed to reset the Smart Card Cache. Smart Card content is still invalid.");
        logInfo("Failed to reset the Smart Card Cache. Smart Card content is still invalid.");
        result = kStillInvalid;
    });
}
