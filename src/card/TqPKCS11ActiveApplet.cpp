#include "TqPKCS11ActiveApplet.h"

#include "card/TqPKCS11Environment.h"
#include "logging/ZelLogger.h"
#include "base/TqFailureGuard.h"
#include "base/TqResultCodes.h"

#include <cstring>
#include <iostream>
#include <sstream>

namespace {

constexpr const char* kTag = "OberthurSmartCardDll";
constexpr const char* kName = "TqPKCS11SetActiveApplet";

[[noreturn]] void raise(CK_RV& result, CK_RV code, const std::string& message) {
    result = code;
    throw TqFailure(message);
}

[[noreturn]] void raiseCallFailure(CK_RV& result, const char* call, CK_RV code) {
    std::ostringstream message;
    message << call << " failed. Error Code(" << code << ") - " << TqGetPKCS11ReturnValueText(code)
            << ".";
    raise(result, code, message.str());
}

const char* settingFor(const char* applet) {
    if (std::strncmp(applet, "AGILE", 5) == 0) {
        return kTqKvrAgileMode;
    }
    if (std::strncmp(applet, "COMPATIBILITY", 13) == 0) {
        return kTqKvrCompatibleMode;
    }
    return nullptr;
}

void restartModule(CK_RV& result, const char* setting) {
    const TqPKCS11Module* module = TqPKCS11Env().module;
    CK_C_Finalize finalize = nullptr;
    CK_RV status = TqFindPKCS11Function(module, &CK_FUNCTION_LIST::C_Finalize, finalize);
    if (status == CKR_OK) {
        status = finalize(nullptr);
    }
    if (status != CKR_OK) {
        raiseCallFailure(result, "C_Finalize", status);
    }
    CK_C_INITIALIZE_ARGS args{};
    // The module only reads the name; the API just lacks the const.
    args.pReserved = const_cast<char*>(setting);
    CK_C_Initialize initialize = nullptr;
    status = TqFindPKCS11Function(module, &CK_FUNCTION_LIST::C_Initialize, initialize);
    if (status == CKR_OK) {
        status = initialize(&args);
    }
    if (status != CKR_OK) {
        // Nothing is rolled back: the module stays finalized.
        raiseCallFailure(result, "C_Initialize", status);
    }
}

} // namespace

CK_RV TqPKCS11SetActiveApplet(const char* applet, const char* logFile) {
    return TqGuard<CK_RV, TqCatching::kStandardOnly>(
        [&](CK_RV& result) {
            if (logFile != nullptr) {
                TqLogger().SetFileName(logFile);
            }
            TqLogger().Log(kLogInfo, kTag, kName, "Entered");
            if (applet == nullptr) {
                raise(result, CKR_ARGUMENTS_BAD,
                      "Error - One of more calling arguments to the method are invalid.");
            }
            const TqPKCS11Environment& environment = TqPKCS11Env();
            if (!environment.enabled || environment.module == nullptr) {
                raise(result, CKR_CRYPTOKI_NOT_INITIALIZED,
                      "Error - The PKCS11 Environment is not enabled.");
            }
            const char* setting = settingFor(applet);
            if (setting == nullptr) {
                raise(result, CKR_ARGUMENTS_BAD,
                      std::string("Error - Unknown Enrollment setting '") + applet + "'.");
            }
            restartModule(result, setting);
            TqLogger().Log(kLogInfo, kTag, kName, "Leaving");
        },
        [](const TqCaught& caught) {
            std::cerr << kName << " : Exception Occurred - " << caught.text << std::endl;
            TqLogger().Log(kLogError, kTag, kName, caught.text);
        },
        // The code of the call that failed, or CKR_OK when the failure came before any call.
        [](const TqCaught&, CK_RV resultSoFar) noexcept { return resultSoFar; });
}
