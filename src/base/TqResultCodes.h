// Common result codes of the library and the texts that go with them.
// Free of <windows.h>: builds natively as well.
#pragma once

#include <cstdint>
#include <string>

namespace tq {

// Codes of the common table. Workers return them as they are or negated; texts are looked
// up by the absolute value.
enum ResultCode : int {
    kSuccess = 0,
    kInvalidArguments = 1,
    kInvalidLength = 2,
    kInvalidSize = 3,
    kInternalError = 4,
    kFunctionPointerNull = 5,
    kInvalidMemoryAllocation = 8,
    kNotFound = 11,
    kBufferSizesDiffer = 12,
    kUnsupported = 14,
    kResourceDoesNotExist = 15,
    kAccessDenied = 16,
    kFileAccessFailed = 19,
    kFileReadFailure = 21,
    kExceptionOccurred = 23,
    kFormatInvalid = 25,
    kNoContent = 26,
    kAccessBlocked = 27,
    kLoadFailed = 29,
    kTypeUndetermined = 32,
    kCommunicationsError = 56,
    kItemsExhausted = 58,
    kTargetUnavailable = 61,
    kReadOnlyTarget = 62,
    kResourceFailure = 63,
    kOperationCancelled = 52,
};

} // namespace tq

// "0000002a": lower-case hexadecimal, zero-filled to width 8.
std::string TqFormatHex8(std::uint32_t value);

// The table text of a code ("Exception occurred" for 23 and -23, "Unknown error" for a code
// without a row).
const char* TqGetCommonResultMessage(int code);

// "(0x00000017) Exception occurred." for 23 and -23.
std::string TqGetCommonResultText(int code);

// "(0x000000a0) CKR_PIN_INCORRECT": a PKCS#11 return value and its name.
std::string TqGetPKCS11ReturnValueText(std::uint32_t returnValue);

// The message of a smart-card error code, or nullptr when the code has no row.
const char* TqGetSmartCardMessage(std::uint32_t code);

// The common code of a Windows error, as the host utilities and the setting writers report it:
// 2 (file not found) gives 15, 5 (access denied) 16, anything else 4. Callers negate it where
// their codes are negative.
int TqCommonCodeOfWindowsError(std::uint32_t windowsError);

// The result code that the file-version query reports for a Windows error.
int TqMapFileVersionError(std::uint32_t windowsError);
