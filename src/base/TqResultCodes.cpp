#include "TqResultCodes.h"

#include <array>
#include <cstdio>
#include <cstdlib>
#include <string_view>

namespace {

// Index = code. 33 has no row of its own on purpose: it reads "Unknown error".
constexpr std::array<std::string_view, 64> kCommonMessages = {
    "Success",
    "One or more invalid arguments",
    "Invalid length",
    "Invalid size",
    "Internal error",
    "Function pointer is NULL",
    "Failed to assign function pointer",
    "Failed to cast variable",
    "Invalid memory allocation",
    "Invalid memory location (pointer is NULL)",
    "Invalid pointer size and data pointer pair",
    "Not found",
    "Buffer sizes do not match",
    "Buffer contents do not match",
    "Unsupported feature, device or program",
    "Requested Resource Does not exist",
    "Access Denied",
    "Invalid Type",
    "File not found",
    "File access failed",
    "File creation failed",
    "File read failure",
    "File write failure",
    "Exception occurred",
    "General failure",
    "Format of data is invalid",
    "No content discovered, target appears empty",
    "Access has been blocked",
    "Unknown state",
    "Failed to load required component",
    "Failed to unload required component",
    "Required element is missing or undetectable",
    "Failed to determine required type",
    "Unknown error",
    "Item or resource is unconfigured",
    "Item or resource is uninitialized",
    "Item or resource did not initalize successfully",
    "Directory not found",
    "Failed to access the directory",
    "Failed to create the directory",
    "Index is out of range. The supplied index to the content is outside of the size of said "
    "contents containment",
    "Failed to convert supplied data to required type",
    "Count of required elements is greater than the containers size",
    "Element offset and required element count will cause container over run",
    "Not enough allocated memory available for opreation",
    "Invalid enum value",
    "Requested resource already loaded",
    "Requested resource already unloaded",
    "Required resource is not loaded",
    "The common return code has not been set. Result status unknown",
    "Already initialized",
    "Already executing",
    "Operation cancelled",
    "Element already exists",
    "Invalid state encountered",
    "Operation has exited",
    "Communications error",
    "Handle is invalid",
    "Number of Items has been exhausted",
    "Failed to acquire the required resource",
    "Failed to get data",
    "The target of the request is unavailable",
    "Target provides just read only operations",
    "Resource failure",
};

struct CodeName {
    std::uint32_t code;
    const char* text;
};

// PKCS#11 v2.x return values up to CKR_FUNCTION_REJECTED, then the card vendor's own rows.
constexpr CodeName kPKCS11Names[] = {
    {0x000, "CKR_OK"},
    {0x001, "CKR_CANCEL"},
    {0x002, "CKR_HOST_MEMORY"},
    {0x003, "CKR_SLOT_ID_INVALID"},
    {0x005, "CKR_GENERAL_ERROR"},
    {0x006, "CKR_FUNCTION_FAILED"},
    {0x007, "CKR_ARGUMENTS_BAD"},
    {0x008, "CKR_NO_EVENT"},
    {0x009, "CKR_NEED_TO_CREATE_THREADS"},
    {0x00A, "CKR_CANT_LOCK"},
    {0x010, "CKR_ATTRIBUTE_READ_ONLY"},
    {0x011, "CKR_ATTRIBUTE_SENSITIVE"},
    {0x012, "CKR_ATTRIBUTE_TYPE_INVALID"},
    {0x013, "CKR_ATTRIBUTE_VALUE_INVALID"},
    {0x01B, "CKR_ACTION_PROHIBITED"},
    {0x020, "CKR_DATA_INVALID"},
    {0x021, "CKR_DATA_LEN_RANGE"},
    {0x030, "CKR_DEVICE_ERROR"},
    {0x031, "CKR_DEVICE_MEMORY"},
    {0x032, "CKR_DEVICE_REMOVED"},
    {0x040, "CKR_ENCRYPTED_DATA_INVALID"},
    {0x041, "CKR_ENCRYPTED_DATA_LEN_RANGE"},
    {0x050, "CKR_FUNCTION_CANCELED"},
    {0x051, "CKR_FUNCTION_NOT_PARALLEL"},
    {0x054, "CKR_FUNCTION_NOT_SUPPORTED"},
    {0x060, "CKR_KEY_HANDLE_INVALID"},
    {0x062, "CKR_KEY_SIZE_RANGE"},
    {0x063, "CKR_KEY_TYPE_INCONSISTENT"},
    {0x064, "CKR_KEY_NOT_NEEDED"},
    {0x065, "CKR_KEY_CHANGED"},
    {0x066, "CKR_KEY_NEEDED"},
    {0x067, "CKR_KEY_INDIGESTIBLE"},
    {0x068, "CKR_KEY_FUNCTION_NOT_PERMITTED"},
    {0x069, "CKR_KEY_NOT_WRAPPABLE"},
    {0x06A, "CKR_KEY_UNEXTRACTABLE"},
    {0x070, "CKR_MECHANISM_INVALID"},
    {0x071, "CKR_MECHANISM_PARAM_INVALID"},
    {0x082, "CKR_OBJECT_HANDLE_INVALID"},
    {0x090, "CKR_OPERATION_ACTIVE"},
    {0x091, "CKR_OPERATION_NOT_INITIALIZED"},
    {0x0A0, "CKR_PIN_INCORRECT"},
    {0x0A1, "CKR_PIN_INVALID"},
    {0x0A2, "CKR_PIN_LEN_RANGE"},
    {0x0A3, "CKR_PIN_EXPIRED"},
    {0x0A4, "CKR_PIN_LOCKED"},
    {0x0B0, "CKR_SESSION_CLOSED"},
    {0x0B1, "CKR_SESSION_COUNT"},
    {0x0B3, "CKR_SESSION_HANDLE_INVALID"},
    {0x0B4, "CKR_SESSION_PARALLEL_NOT_SUPPORTED"},
    {0x0B5, "CKR_SESSION_READ_ONLY"},
    {0x0B6, "CKR_SESSION_EXISTS"},
    {0x0B7, "CKR_SESSION_READ_ONLY_EXISTS"},
    {0x0B8, "CKR_SESSION_READ_WRITE_SO_EXISTS"},
    {0x0C0, "CKR_SIGNATURE_INVALID"},
    {0x0C1, "CKR_SIGNATURE_LEN_RANGE"},
    {0x0D0, "CKR_TEMPLATE_INCOMPLETE"},
    {0x0D1, "CKR_TEMPLATE_INCONSISTENT"},
    {0x0E0, "CKR_TOKEN_NOT_PRESENT"},
    {0x0E1, "CKR_TOKEN_NOT_RECOGNIZED"},
    {0x0E2, "CKR_TOKEN_WRITE_PROTECTED"},
    {0x0F0, "CKR_UNWRAPPING_KEY_HANDLE_INVALID"},
    {0x0F1, "CKR_UNWRAPPING_KEY_SIZE_RANGE"},
    {0x0F2, "CKR_UNWRAPPING_KEY_TYPE_INCONSISTENT"},
    {0x100, "CKR_USER_ALREADY_LOGGED_IN"},
    {0x101, "CKR_USER_NOT_LOGGED_IN"},
    {0x102, "CKR_USER_PIN_NOT_INITIALIZED"},
    {0x103, "CKR_USER_TYPE_INVALID"},
    {0x104, "CKR_USER_ANOTHER_ALREADY_LOGGED_IN"},
    {0x105, "CKR_USER_TOO_MANY_TYPES"},
    {0x110, "CKR_WRAPPED_KEY_INVALID"},
    {0x112, "CKR_WRAPPED_KEY_LEN_RANGE"},
    {0x113, "CKR_WRAPPING_KEY_HANDLE_INVALID"},
    {0x114, "CKR_WRAPPING_KEY_SIZE_RANGE"},
    {0x115, "CKR_WRAPPING_KEY_TYPE_INCONSISTENT"},
    {0x120, "CKR_RANDOM_SEED_NOT_SUPPORTED"},
    {0x121, "CKR_RANDOM_NO_RNG"},
    {0x130, "CKR_DOMAIN_PARAMS_INVALID"},
    {0x140, "CKR_CURVE_NOT_SUPPORTED"},
    {0x150, "CKR_BUFFER_TOO_SMALL"},
    {0x160, "CKR_SAVED_STATE_INVALID"},
    {0x170, "CKR_INFORMATION_SENSITIVE"},
    {0x180, "CKR_STATE_UNSAVEABLE"},
    {0x190, "CKR_CRYPTOKI_NOT_INITIALIZED"},
    {0x191, "CKR_CRYPTOKI_ALREADY_INITIALIZED"},
    {0x1A0, "CKR_MUTEX_BAD"},
    {0x1A1, "CKR_MUTEX_NOT_LOCKED"},
    {0x1B0, "CKR_NEW_PIN_MODE"},
    {0x1B1, "CKR_NEXT_OTP"},
    {0x1B5, "CKR_EXCEEDED_MAX_ITERATIONS"},
    {0x1B6, "CKR_FIPS_SELF_TEST_FAILED"},
    {0x1B7, "CKR_LIBRARY_LOAD_FAILED"},
    {0x1B8, "CKR_PIN_TOO_WEAK"},
    {0x1B9, "CKR_PUBLIC_KEY_INVALID"},
    {0x200, "CKR_FUNCTION_REJECTED"},
    {0x800003E9, "CKR_BAD_P11CONT"},
    {0x800003EA, "CKR_BAD_FUNCTION_LIST"},
    {0x800003EB, "CKR_BAD_FUNCTION"},
    {0x800003EC, "CKR_EMPTY_CARD"},
    {0x800003ED, "CKR_INVALID_SEARCH"},
    {0x800003EE, "CKR_BAD_CONVERSION"},
    {0x800003EF, "CKR_NO_OBJECT_MATCH"},
    {0x800003F0, "CKR_ATTRIB_NOT_FOUND"},
};

constexpr CodeName kSmartCardMessages[] = {
    {0x00000000, "No error was encountered."},
    {0x0000006D, "The client attempted a smart card operation in a remote session, such as a "
                 "client session running on a terminal server, and the operating system in use "
                 "does not support smart card redirection."},
    {0x80100001, "An internal consistency check failed."},
    {0x80100002, "The action was canceled by an SCardCancel request."},
    {0x80100003, "The supplied handle was not valid."},
    {0x80100004, "One or more of the supplied parameters could not be properly interpreted."},
    {0x80100005, "Registry startup information is missing or not valid."},
    {0x80100006, "Not enough memory available to complete this command"},
    {0x80100007, "An internal consistency timer has expired."},
    {0x80100008, "The data buffer for returned data is too small for the returned data."},
    {0x80100009, "The specified reader name is not recognized."},
    {0x8010000A, "The user - specified time - out value has expired."},
    {0x8010000B, "The smart card cannot be accessed because of other outstanding connections."},
    {0x8010000C,
     "The operation requires a smart card, but no smart card is currently in the device."},
    {0x8010000D, "The specified smart card name is not recognized."},
    {0x8010000E, "The system could not dispose of the media in the requested manner."},
    {0x8010000F, "The requested protocols are incompatible with the protocol currently in use "
                 "with the card."},
    {0x80100010, "The reader or card is not ready to accept commands."},
    {0x80100011, "One or more of the supplied parameter values could not be properly interpreted."},
    {0x80100012, "The action was canceled by the system, presumably to log off or shut down."},
    {0x80100013, "An internal communications error has been detected."},
    {0x80100014, "An internal error has been detected, but the source is unknown."},
    {0x80100015, "An ATR string obtained from the registry is not a valid ATR string."},
    {0x80100016, "An attempt was made to end a nonexistent transaction."},
    {0x80100017, "The specified reader is not currently available for use."},
    {0x80100018, "The operation has been aborted to allow the server application to exit."},
    {0x80100019, "The PCI receive buffer was too small."},
    {0x8010001A, "The reader driver does not meet minimal requirements for support."},
    {0x8010001B, "The reader driver did not produce a unique reader name."},
    {0x8010001C, "The smart card does not meet minimal requirements for support."},
    {0x8010001D, "The smart card resource manager is not running."},
    {0x8010001E, "The smart card resource manager has shut down."},
    {0x8010001F, "An unexpected card error has occurred."},
    {0x80100020, "No primary provider can be found for the smart card."},
    {0x80100021, "The requested order of object creation is not supported."},
    {0x80100022, "This smart card does not support the requested feature."},
    {0x80100023, "The specified directory does not exist in the smart card."},
    {0x80100024, "The specified file does not exist in the smart card."},
    {0x80100025, "The supplied path does not represent a smart card directory."},
    {0x80100026, "The supplied path does not represent a smart card file."},
    {0x80100027, "Access is denied to the file."},
    {0x80100028, "An attempt was made to write more data than would fit in the target object."},
    {0x80100029, "An error occurred in setting the smart card file object pointer."},
    {0x8010002A, "The supplied PIN is incorrect."},
    {0x8010002B, "An unrecognized error code was returned."},
    {0x8010002C, "The requested certificate does not exist."},
    {0x8010002D, "The requested certificate could not be obtained."},
    {0x8010002E, "No smart card reader is available."},
    {0x8010002F, "A communications error with the smart card has been detected."},
    {0x80100030, "The requested key container does not exist on the smart card."},
    {0x80100031, "The smart card resource manager is too busy to complete this operation."},
    {0x80100032, "The smart card PIN cache has expired."},
    {0x80100033, "The smart card PIN cannot be cached."},
    {0x80100034, "The smart card is read - only and cannot be written to."},
    {0x80100065,
     "The reader cannot communicate with the card, due to ATR string configuration conflicts."},
    {0x80100066, "The smart card is not responding to a reset."},
    {0x80100067, "Power has been removed from the smart card, so that further communication is "
                 "not possible."},
    {0x80100068, "The smart card was reset."},
    {0x80100069, "The smart card has been removed, so further communication is not possible."},
    {0x8010006A, "Access was denied because of a security violation."},
    {0x8010006B, "The card cannot be accessed because the wrong PIN was presented."},
    {0x8010006C, "The card cannot be accessed because the maximum number of PIN entry attempts "
                 "has been reached."},
    {0x8010006D, "The end of the smart card file has been reached."},
    {0x8010006E, "The action was canceled by the user."},
    {0x8010006F, "No PIN was presented to the smart card."},
    {0x80100070, "The requested item could not be found in the cache."},
    {0x80100071, "The requested cache item is too old and was deleted from the cache."},
    {0x80100072, "The new cache item exceeds the maximum per - item size defined for the cache."},
    {0x80190074, "Potential hardware redirection detected. Certain Smart Card API options will "
                 "not be available."},
};

template <std::size_t N> const char* findText(const CodeName (&table)[N], std::uint32_t code) {
    for (const CodeName& row : table) {
        if (row.code == code) {
            return row.text;
        }
    }
    return nullptr;
}

// Absolute value of a code as the unsigned magnitude, so INT_MIN does not overflow.
std::uint32_t magnitude(int code) {
    return code < 0 ? 0u - static_cast<std::uint32_t>(code) : static_cast<std::uint32_t>(code);
}

} // namespace

std::string TqFormatHex8(std::uint32_t value) {
    char buffer[16];
    std::snprintf(buffer, sizeof buffer, "%08x", static_cast<unsigned>(value));
    return buffer;
}

const char* TqGetCommonResultMessage(int code) {
    const std::uint32_t index = magnitude(code);
    return index < kCommonMessages.size() ? kCommonMessages[index].data() : "Unknown error";
}

std::string TqGetCommonResultText(int code) {
    return "(0x" + TqFormatHex8(magnitude(code)) + ") " + TqGetCommonResultMessage(code) + ".";
}

std::string TqGetPKCS11ReturnValueText(std::uint32_t returnValue) {
    const char* name = findText(kPKCS11Names, returnValue);
    if (name == nullptr) {
        name = (returnValue & 0x80000000u) != 0 ? "CKR_VENDOR_DEFINED" : "UNKNOWN_ERROR";
    }
    return "(0x" + TqFormatHex8(returnValue) + ") " + name;
}

const char* TqGetSmartCardMessage(std::uint32_t code) {
    return findText(kSmartCardMessages, code);
}

int TqCommonCodeOfWindowsError(std::uint32_t windowsError) {
    switch (windowsError) {
    case 2:
        return tq::kResourceDoesNotExist;
    case 5:
        return tq::kAccessDenied;
    default:
        return tq::kInternalError;
    }
}

int TqMapFileVersionError(std::uint32_t windowsError) {
    switch (windowsError) {
    case 2:
    case 3:
    case 0x80090016:
    case 0x80100023:
    case 0x80100024:
        return tq::kNotFound;
    case 259:
        return tq::kItemsExhausted;
    case 0x8009000D:
        return tq::kNoContent;
    case 0x80100013:
    case 0x8010002F:
        return tq::kCommunicationsError;
    case 0x80100017:
    case 0x8010002D:
    case 0x8010002E:
        return tq::kTargetUnavailable;
    case 0x8010001A:
    case 0x8010001C:
    case 0x80100022:
    case 0x80100065:
        return tq::kUnsupported;
    case 0x80100027:
    case 0x8010002A:
        return tq::kAccessDenied;
    case 0x8010002C:
    case 0x80100030:
        return tq::kResourceDoesNotExist;
    case 0x80100034:
        return tq::kReadOnlyTarget;
    case 0x80100066:
    case 0x80100067:
    case 0x80100068:
        return tq::kResourceFailure;
    case 0x8010006C:
        return tq::kAccessBlocked;
    case 0x8010006E:
        return tq::kOperationCancelled;
    default: // 0x80100011, 0x80100014 and everything without a row
        return tq::kInternalError;
    }
}
