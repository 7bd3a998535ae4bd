#include "TqZelDLLPlatform.h"

#include "card/TqATRMiddleware.h"
#include "card/TqCacheClearance.h"
#include "card/TqEnrollmentMode.h"
#include "card/TqMinidriverSession.h"
#include "card/TqPKCS11ActiveApplet.h"
#include "identityagent/TqIdentityAgent.h"
#include "host/TqRegistrySnapshot.h"
#include "logging/ZelLogger.h"
#include "middleware/TqMiddlewareSearch.h"
#include "middleware/TqOTMiddleware.h"
#include "middleware/TqSupportedMiddleware.h"
#include "base/TqFailureGuard.h"
#include "base/TqOutputText.h"
#include "base/TqResultCodes.h"
#include "base/TqUniqueResource.h"
#include "logging/TqWorkerFailure.h"

#include <cstdlib>
#include <stdexcept>

namespace {

constexpr const char* kInvalidOutputs = "One or more calling arguments is invalid";

// A failed worker: its code stays the operation's result, the text names the worker.
[[noreturn]] void throwWorkerFailure(const char* prefix, int result) {
    throw TqFailure(prefix + TqGetCommonResultText(result));
}

constexpr int kCacheClearAttempts = 3;

} // namespace

// The common frame: opens the call's registry read snapshot, points the logger at logFile, runs the
// body and logs "Leaving". Any exception becomes an ERROR line and a result code (23 unless the
// body set one), and the caller's text pointer reads null afterwards; text stored there during this
// call is released first, what the caller passed in is never touched.
template <typename Body>
int TqZelDLLPlatform::inFrame(const char* function, const char* logFile, char** textOut,
                              Body&& body) noexcept {
    char* const textOnEntry = textOut != nullptr ? *textOut : nullptr;
    return TqGuard<int>(
        [&](int& result) {
            // Detection searches the same trees many times in one call; each key is read once.
            // No export writes into those trees, so the snapshot can span every call.
            const TqRegistrySnapshotScope readOnce;
            if (logFile != nullptr) {
                TqLogger().SetFileName(logFile);
            }
            body(result);
            TqLogger().Log(kLogInfo, tag, function, "Leaving");
        },
        [&](const TqCaught& caught) {
            TqLogger().Log(kLogError, tag, function,
                           caught.standard() ? caught.text : "Unexpected Error occurred");
        },
        [&](const TqCaught&, int resultSoFar) noexcept {
            if (textOut != nullptr) {
                // Text this call stored is released; what the caller passed in is not ours.
                const TqUniqueClientText stored(*textOut != textOnEntry ? *textOut : nullptr);
                *textOut = nullptr;
            }
            return resultSoFar != tq::kSuccess ? resultSoFar : tq::kExceptionOccurred;
        });
}

void TqZelDLLPlatform::requireArguments(bool valid, const char* failureText, int& result) const {
    if (!valid) {
        result = tq::kInvalidArguments;
        throw TqFailure(failureText);
    }
}

void TqZelDLLPlatform::logEntered(const char* function) const {
    TqLogger().Log(kLogInfo, tag, function, "Entered");
}

int TqZelDLLPlatform::getEnrollmentMode(TqEnrollmentProvider* provider, char** modeOut,
                                        int* modeLengthOut, const char* logFile) noexcept {
    constexpr const char* kName = "TqZelDLLPlatform::getEnrollmentMode";
    return inFrame(kName, logFile, modeOut, [&](int& result) {
        requireArguments(modeOut != nullptr && modeLengthOut != nullptr, kInvalidOutputs, result);
        logEntered(kName);
        if (provider != nullptr && provider->isPKCS11Route(logFile) == 1) {
            provider->readEnrollmentMode(modeOut, modeLengthOut, logFile);
            return;
        }
        // 4 and 11 come with the answer "NOT SET": the caller gets both.
        result = TqGetEnrollmentMode(modeOut, modeLengthOut, logFile);
    });
}

int TqZelDLLPlatform::setEnrollmentMode(TqEnrollmentProvider* provider, const char* applet,
                                        const char* logFile) noexcept {
    constexpr const char* kName = "TqZelDLLPlatform::setEnrollmentMode";
    return inFrame(kName, logFile, nullptr, [&](int& result) {
        requireArguments(applet != nullptr, "applet Argument is invalid", result);
        logEntered(kName);
        if (provider != nullptr && provider->isPKCS11Route(logFile) == 1) {
            const CK_RV switched = TqPKCS11SetActiveApplet(applet, logFile);
            result = static_cast<int>(switched);
            if (TqWorkerFailed(TqFailureTest::kNonZero, result)) {
                throw TqFailure("TqPKCS11SetActiveApplet failed. Error Code(" +
                                TqGetPKCS11ReturnValueText(switched) + ") - " +
                                TqGetCommonResultText(result));
            }
            return;
        }
        result = TqSwitchEnrollmentMode(applet, logFile);
        if (TqWorkerFailed(TqFailureTest::kNonZero, result)) {
            throwWorkerFailure("TqSwitchEnrollmentMode failed. Error Code: ", result);
        }
    });
}

int TqZelDLLPlatform::setATRMiddlewareDetection(const char* atr, const char* logFile) noexcept {
    constexpr const char* kName = "TqZelDLLPlatform::setATRMiddlewareDetection";
    return inFrame(kName, logFile, nullptr, [&](int& result) {
        requireArguments(atr != nullptr, "ATR Argument is invalid", result);
        logEntered(kName);
        result = TqSetATRMiddlewareDetection(atr, logFile);
        if (TqWorkerFailed(TqFailureTest::kNonZero, result)) {
            throwWorkerFailure("TqSetATRMiddlewareDetection failed. Error Code: ", result);
        }
    });
}

int TqZelDLLPlatform::getATRMiddlewareDetection(char** jsonOut, int* jsonLengthOut,
                                                const char* logFile) noexcept {
    constexpr const char* kName = "TqZelDLLPlatform::getATRMiddlewareDetection";
    return inFrame(kName, logFile, jsonOut, [&](int& result) {
        requireArguments(jsonOut != nullptr && jsonLengthOut != nullptr, kInvalidOutputs, result);
        logEntered(kName);
        result = TqGetATRMiddlewareDetection(jsonOut, jsonLengthOut, logFile);
        if (TqWorkerFailed(TqFailureTest::kNonZero, result)) {
            throwWorkerFailure("TqGetATRMiddlewareDetection failed. Error Code: ", result);
        }
    });
}

int TqZelDLLPlatform::OberthurMiddlewareDetection(int selection, const char* logFile) noexcept {
    constexpr const char* kName = "TqZelDLLPlatform::OberthurMiddlewareDetection";
    return inFrame(kName, logFile, nullptr, [&](int& result) {
        logEntered(kName);
        // A release found is a positive id: an answer, not a failure.
        result = TqOTMiddlewareDetection(static_cast<std::uint32_t>(selection), logFile);
        if (TqWorkerFailed(TqFailureTest::kNegative, result)) {
            throwWorkerFailure("Failed to detect the required Oberthur Middleware. Error Code: ",
                               result);
        }
    });
}

int TqZelDLLPlatform::OberthurMiddlewareDetectionJSON(char** jsonOut, int* jsonLengthOut,
                                                      const char* logFile) noexcept {
    constexpr const char* kName = "TqZelDLLPlatform::OberthurMiddlewareDetectionJSON";
    return inFrame(kName, logFile, jsonOut, [&](int& result) {
        requireArguments(jsonOut != nullptr && jsonLengthOut != nullptr, kInvalidOutputs, result);
        logEntered(kName);
        result = TqOTMiddlewareDetectionJSON(jsonOut, jsonLengthOut, logFile);
        if (TqWorkerFailed(TqFailureTest::kNegative, result)) {
            throwWorkerFailure("TqOTJSONMiddlewareDetection failed. Error Code: ", result);
        }
    });
}

int TqZelDLLPlatform::SupportedMiddlewareDetectionJSON(char** jsonOut, int* jsonLengthOut,
                                                       const char* logFile) noexcept {
    constexpr const char* kName = "TqZelDLLPlatform::SupportedMiddlewareDetectionJSON";
    return inFrame(kName, logFile, jsonOut, [&](int& result) {
        requireArguments(jsonOut != nullptr && jsonLengthOut != nullptr, kInvalidOutputs, result);
        logEntered(kName);
        // The document's own codes (1, 4, 23) are positive and pass through as they are.
        result = TqSupportedMiddlewareDetectionJSON(jsonOut, jsonLengthOut, logFile);
        if (TqWorkerFailed(TqFailureTest::kNegative, result)) {
            throwWorkerFailure("TqSupportedNMiddlewareDetectionJSON failed. Error Code: ", result);
        }
    });
}

int TqZelDLLPlatform::detectIdentityAgent(char** jsonOut, int* jsonLengthOut,
                                          const char* logFile) noexcept {
    constexpr const char* kName = "TqZelDLLPlatform::detectIdentityAgent";
    return inFrame(kName, logFile, jsonOut, [&](int& result) {
        requireArguments(jsonOut != nullptr && jsonLengthOut != nullptr, kInvalidOutputs, result);
        logEntered(kName);
        // The organisation's agent first: where both are installed and running, it is the one
        // in use. A detector that found nothing leaves a reset record behind.
        IARecord record;
        int answer = TqDetectKVRIdentityAgent(&record);
        if (answer <= 0) {
            record = IARecord{};
            const int organisations = answer;
            answer = TqDetectBTIdentityAgent(&record);
            if (answer <= 0) {
                record = IARecord{};
            }
            // One failed detector is no answer either way, the other one's is: only both
            // failed make the detection a failure, with the last detector's code.
            if (answer < 0 && organisations >= 0) {
                answer = organisations;
            }
        }
        // The document goes out with every answer, the failed detection's included: found (1),
        // nothing found (0) or both detectors failed (negative). A document that cannot be
        // built or handed out replaces that answer.
        std::string json;
        result = TqDetectedIAtoJSONString(&record, json);
        if (result != 0) {
            throwWorkerFailure("TqDetectedIAtoJSONString failed. Error Code: ", result);
        }
        TqHandOutText(json, jsonOut, jsonLengthOut);
        result = answer;
    });
}

int TqZelDLLPlatform::setIdentityAgentSpringCheck(bool enable, const char* logFile) noexcept {
    constexpr const char* kName = "TqZelDLLPlatform::setIdentityAgentSpringCheck";
    return inFrame(kName, logFile, nullptr, [&](int& result) {
        logEntered(kName);
        // 11 (the agent is not running) is a refused switch, not an answer.
        result = TqSetKVRIASpringCheck(enable);
        if (TqWorkerFailed(TqFailureTest::kNonZero, result)) {
            throwWorkerFailure("TqSetKVRIASpringCheck failed. Error Code: ", result);
        }
    });
}

int TqZelDLLPlatform::OberthurSeries8CardCheckAndCacheClear(const char* readerName, const char* pin,
                                                            const char* logFile) noexcept {
    constexpr const char* kName = "TqZelDLLPlatform::OberthurSeries8CardCheckAndCacheClear";
    return inFrame(kName, logFile, nullptr, [&](int& result) {
        logEntered(kName);
        // 0 to 3 are the sequence's answers (still invalid, valid, reset, no middleware).
        result = TqOTS8SCardCheckAndCacheClear(readerName, pin, logFile);
        if (TqWorkerFailed(TqFailureTest::kNegative, result)) {
            throwWorkerFailure("TqOTS8SCardCheckAndCacheClear failed. Error Code: ", result);
        }
    });
}

int TqZelDLLPlatform::OberthurCacheClear(const char* minidriverName, const char* clearArgument,
                                         const char* logFile) noexcept {
    constexpr const char* kName = "TqZelDLLPlatform::OberthurCacheClear";
    logEntered(kName); // before the caller's log file applies: it goes to the previous file
    return inFrame(kName, logFile, nullptr, [&](int& result) {
        TqLogger().Log(kLogInfo, tag, kName, "Attempting to clear Smart Card Cache.");
        CARD_DATA cardData{};
        HMODULE module = nullptr;
        // Every failed step answers 4, its text the smart-card message of the step's own code.
        TqRequireMinidriverStep(TqInitMinidriver(minidriverName, &cardData, &module, logFile),
                                "TqInitMinidriver failed. Error Code: ", tq::kInternalError,
                                result);
        // A failed clear leaves the minidriver loaded and the card connected until the process
        // ends, as the check-and-clear sequence does.
        for (int attempt = 0; attempt < kCacheClearAttempts; ++attempt) {
            TqRequireMinidriverStep(
                TqOTClearSeries8SmartCardCache(minidriverName, clearArgument, &cardData, logFile),
                "TqOTClearSeries8SmartCardCache failed. Error Code: ", tq::kInternalError, result);
        }
        TqRequireMinidriverStep(TqUnintMinidriver(module, &cardData, logFile),
                                "TqUnintMinidriver failed. Error Code: ", tq::kInternalError,
                                result);
        TqLogger().Log(kLogInfo, tag, kName, "Attempt to clear Smart Card Cache completed.");
    });
}
