#include "TqFileVersion.h"

#include "logging/ZelLogger.h"
#include "base/TqErrorText.h"
#include "base/TqFailureGuard.h"
#include "base/TqOutputText.h"
#include "base/TqResultCodes.h"

#include <cstdio>
#include <stdexcept>
#include <vector>

namespace {

constexpr const char* kTag = "ZelPlatformMethods";
constexpr const char* kFunction = "ZelDLLCommonCPPGetFileVersion";
constexpr DWORD kFixedInfoSignature = 0xFEEF04BD;

// Sets the mapped code of the thread's last Windows error and throws "<call>: <system text>".
[[noreturn]] void failWithLastError(const char* call, int& result) {
    const DWORD error = ::GetLastError();
    result = TqMapFileVersionError(error);
    throw TqFailure(std::string(call) + ": " + TqGetLastErrorAsString(error));
}

// The file's major version from its fixed version information; 0 without the signature.
unsigned majorVersionOf(const char* path, int& result) {
    DWORD handle = 0;
    const DWORD size = ::GetFileVersionInfoSizeA(path, &handle);
    if (size == 0) {
        failWithLastError("GetFileVersionInfoSize", result);
    }
    std::vector<char> block(size);
    if (!::GetFileVersionInfoA(path, handle, size, block.data())) {
        failWithLastError("GetFileVersionInfo", result);
    }
    void* info = nullptr;
    UINT infoLength = 0;
    if (!::VerQueryValueA(block.data(), "\\", &info, &infoLength)) {
        failWithLastError("VerQueryValue", result);
    }
    if (infoLength == 0) {
        result = tq::kInvalidSize;
        throw TqFailure("VerQueryValue size is invalid.");
    }
    const auto* fixed = static_cast<const VS_FIXEDFILEINFO*>(info);
    return fixed->dwSignature == kFixedInfoSignature ? HIWORD(fixed->dwFileVersionMS) : 0;
}

} // namespace

int ZelDLLCommonCPPGetFileVersion(const char* path, char** versionOut, int* versionLengthOut,
                                  const char* logFile) noexcept {
    return TqGuard<int>(
        [&](int& result) {
            if (logFile != nullptr) {
                TqLogger().SetFileName(logFile);
            }
            TqLogger().Log(kLogInfo, kTag, kFunction, "Entered");
            if (path == nullptr || versionOut == nullptr || versionLengthOut == nullptr) {
                result = tq::kInvalidArguments;
                throw TqFailure("One or more calling arguments is invalid");
            }
            *versionOut = nullptr;
            *versionLengthOut = 0;
            char text[25];
            std::snprintf(text, sizeof text, "%d", static_cast<int>(majorVersionOf(path, result)));
            TqHandOutText(text, versionOut, versionLengthOut);
            TqLogger().Log(kLogInfo, kTag, kFunction, "Leaving");
        },
        [](const TqCaught& caught) {
            TqLogger().Log(kLogError, kTag, kFunction,
                           caught.standard() ? caught.text : "Unexpected Error occurred");
        },
        [&](const TqCaught&, int resultSoFar) noexcept {
            if (versionOut != nullptr) {
                *versionOut = nullptr;
            }
            return resultSoFar != tq::kSuccess ? resultSoFar : tq::kExceptionOccurred;
        });
}
