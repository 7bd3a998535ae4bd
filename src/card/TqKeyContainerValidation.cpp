#include "TqKeyContainerValidation.h"

#include "card/TqEnrollmentMode.h"
#include "base/TqUniqueResource.h"
#include "logging/ZelLogger.h"
#include "base/TqErrorText.h"
#include "base/TqResultCodes.h"
#include "base/TqFailureGuard.h"
#include "logging/TqWorkerFailure.h"

#include <cstring>
#include <iostream>
#include <sstream>
#include <string>

namespace {

constexpr const char* kEnumName = "TqEnumSmartCardKeyContainers";
constexpr const char* kVerdictTag = "TqCryptEnumContainers";
constexpr const char* kVerdictName = "cardContainsValidContent";
constexpr const char* kValidContentName = "TqOTSmartCardHasValidContent";
constexpr DWORD kNameBufferSize = 1024;

void enumLine(const std::string& message) {
    std::cerr << kEnumName << " : " << message << std::endl;
}

std::string hexCode(DWORD code) {
    std::ostringstream text;
    text << std::hex << code;
    return text.str();
}

void reportCallFailure(const char* call, DWORD error) {
    enumLine(std::string(call) + " Failed Error Code 0x" + hexCode(error) + " - " +
             TqGetLastErrorAsString(error));
}

std::string readerPath(const std::string& readerName) {
    return "\\\\.\\" + readerName + "\\";
}

int recordContainer(const char* containerName, TqEnumerationContext& context) {
    const std::string path = readerPath(context.readerName) + containerName;
    TqUniqueCryptProv container;
    if (!::CryptAcquireContextA(container.put(), path.c_str(), kTqBaseSmartCardCsp, PROV_RSA_FULL,
                                CRYPT_SILENT)) {
        const std::string text = TqGetLastErrorAsString(::GetLastError());
        std::cerr << "checkKeyContainerContent : " << text << std::endl;
        return 0; // this container only: the enumeration goes on with the next one
    }
    TqKeyContainerRecord record;
    record.name = containerName;
    record.applet = context.applet;
    TqUniqueCryptKey key;
    if (::CryptGetUserKey(container.get(), AT_SIGNATURE, key.put())) {
        record.content = kTqHoldsSignature;
    } else if (::CryptGetUserKey(container.get(), AT_KEYEXCHANGE, key.put())) {
        record.content = kTqHoldsKeyExchange;
    }
    DWORD certificateSize = 0;
    if (key && ::CryptGetKeyParam(key.get(), KP_CERTIFICATE, nullptr, &certificateSize, 0)) {
        record.content |= kTqHoldsCertificate;
    }
    context.containers.push_back(std::move(record));
    return 0;
}

} // namespace

int checkKeyContainerContent(const char* containerName, TqEnumerationContext& context) {
    if (containerName == nullptr) {
        return tq::kInvalidArguments;
    }
    return TqGuard<int, TqCatching::kStandardOnly>(
        [&](int& result) { result = recordContainer(containerName, context); },
        [](const TqCaught& caught) {
            std::cerr << "checkKeyContainerContent : " << caught.text << std::endl;
        },
        [](const TqCaught&, int) noexcept { return tq::kExceptionOccurred; });
}

std::uint32_t TqEnumSmartCardKeyContainers(const char* readerName, const char* providerName,
                                           TqEnumerationContext& context) {
    if (readerName == nullptr || readerName[0] == '\0') {
        enumLine("Card Reader Name length is 0.");
        return ERROR_INVALID_PARAMETER;
    }
    if (providerName == nullptr || providerName[0] == '\0') {
        enumLine("CSP Provider Name length is 0.");
        return ERROR_INVALID_PARAMETER;
    }
    TqUniqueCryptProv provider;
    if (!::CryptAcquireContextA(provider.put(), readerPath(readerName).c_str(), providerName,
                                PROV_RSA_FULL, CRYPT_VERIFYCONTEXT | CRYPT_SILENT)) {
        const DWORD error = ::GetLastError();
        reportCallFailure("CryptAcquireContext", error);
        return error;
    }
    char name[kNameBufferSize] = {};
    DWORD length = kNameBufferSize;
    if (!::CryptGetProvParam(provider.get(), PP_ENUMCONTAINERS, reinterpret_cast<BYTE*>(name),
                             &length, CRYPT_FIRST)) {
        const DWORD error = ::GetLastError();
        if (error == ERROR_NO_MORE_ITEMS) {
            enumLine("Card appears to have no containers.");
        } else {
            reportCallFailure("CryptGetProvParam", error);
        }
        return error;
    }
    for (;;) {
        if (length == 0) {
            // Only a warning: the empty name still goes to the check, which then opens the
            // reader's default container.
            enumLine("Key container name is of zero length. This will be ignored. Check Smart "
                     "Card for corruption.");
            length = kNameBufferSize;
        }
        name[kNameBufferSize - 1] = '\0';
        const int checked = checkKeyContainerContent(name, context);
        if (checked != 0) {
            enumLine("Failed to process onFoundEvent Error Code(" + std::to_string(checked) + ").");
            return static_cast<std::uint32_t>(checked);
        }
        std::memset(name, 0, sizeof name);
        length = kNameBufferSize;
        if (!::CryptGetProvParam(provider.get(), PP_ENUMCONTAINERS, reinterpret_cast<BYTE*>(name),
                                 &length, CRYPT_NEXT)) {
            const DWORD error = ::GetLastError();
            if (error != ERROR_NO_MORE_ITEMS) {
                reportCallFailure("CryptGetProvParam", error);
            }
            return error;
        }
    }
}

bool cardContainsValidContent(const TqEnumerationContext& context, const char* logFile) {
    if (logFile != nullptr) {
        TqLogger().SetFileName(logFile);
    }
    TqLogger().Log(kLogInfo, kVerdictTag, kVerdictName, "Entered");
    TqContentVerdict verdict;
    const bool judged = TqGuard<bool, TqCatching::kStandardOnly>(
        [&](bool& done) {
            verdict = TqJudgeKeyContainers(context);
            done = true;
        },
        [](const TqCaught& caught) {
            TqLogger().Log(kLogError, kVerdictTag, kVerdictName, caught.text);
        },
        [](const TqCaught&, bool) noexcept { return false; });
    if (!judged) {
        return false;
    }
    for (const TqVerdictLine& line : verdict.lines) {
        TqLogger().Log(static_cast<unsigned>(line.level), kVerdictTag, kVerdictName, line.message);
    }
    TqLogger().Log(kLogInfo, kVerdictTag, kVerdictName, "Leaving");
    return verdict.valid;
}

namespace {

struct AppletToCheck {
    const char* word;
    int applet;
};
constexpr AppletToCheck kOberthurApplets[] = {{"AGILE", kTqAgileApplet},
                                              {"COMPATIBILITY", kTqCompatibilityApplet}};

std::string rememberedMode() {
    TqUniqueClientText mode;
    int length = 0;
    const int result = TqGetEnrollmentMode(mode.put(), &length, nullptr);
    std::string word = mode ? std::string(mode.get(), length) : std::string();
    if (result != 0) {
        throw TqFailure("Failed to cache current enrollment mode. Error code: " +
                            TqGetCommonResultText(result),
                        -tq::kExceptionOccurred);
    }
    return word;
}

bool appletIsValid(const char* readerName, const AppletToCheck& applet,
                   std::vector<TqKeyContainerRecord>* records, const char* logFile) {
    const int switched = TqSwitchEnrollmentMode(applet.word, nullptr);
    if (switched != 0) {
        throw TqFailure(std::string("Failed to switch current enrollment to '") + applet.word +
                            "'. Error Code: " + TqGetCommonResultText(switched),
                        -tq::kExceptionOccurred);
    }
    TqEnumerationContext context;
    context.readerName = readerName;
    context.applet = applet.applet;
    context.cardType = kTqOberthurCard;
    const std::uint32_t listed =
        TqEnumSmartCardKeyContainers(readerName, kTqBaseSmartCardCsp, context);
    if (listed != 0 && listed != ERROR_NO_MORE_ITEMS) {
        throw TqFailure(std::string("Failed to enumerate Smart Card Content for  '") + applet.word +
                            "' applet. Error Code: " + TqGetLastErrorAsString(listed),
                        -tq::kInternalError);
    }
    const bool valid = cardContainsValidContent(context, logFile);
    if (records != nullptr) {
        records->insert(records->end(), context.containers.begin(), context.containers.end());
    }
    return valid;
}

void reportContentFailure(const std::string& message) {
    std::cerr << kValidContentName << " : " << message << std::endl;
    TqLogger().Log(kLogError, kTqWorkerTag, kValidContentName, message);
}

} // namespace

int TqOTSmartCardValidContent(const char* readerName, std::vector<TqKeyContainerRecord>* records,
                              const char* logFile) {
    if (readerName == nullptr) {
        return -1;
    }
    return TqGuard<int, TqCatching::kStandardOnly>(
        [&](int& result) {
            if (logFile != nullptr) {
                TqLogger().SetFileName(logFile);
            }
            const std::string mode = rememberedMode();
            bool valid = true;
            for (const AppletToCheck& applet : kOberthurApplets) {
                valid = appletIsValid(readerName, applet, records, logFile) && valid;
            }
            result = valid ? 1 : 0;
            if (!mode.empty() && TqSwitchEnrollmentMode(mode.c_str(), nullptr) != 0) {
                // The verdict stands, and the text carries the verdict's code: the client has
                // always seen it so.
                reportContentFailure("Failed to switch current enrollment to '" + mode +
                                     "'. Error code: " + TqGetCommonResultText(result));
            }
        },
        [](const TqCaught& caught) { reportContentFailure(caught.text); },
        // A failed step names its own code; anything else that went wrong is -23.
        [](const TqCaught& caught, int) noexcept {
            const int stepCode = caught.failure != nullptr ? caught.failure->code() : 0;
            return stepCode != 0 ? stepCode : -tq::kExceptionOccurred;
        });
}
