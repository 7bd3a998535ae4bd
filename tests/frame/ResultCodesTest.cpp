#include "base/TqResultCodes.h"

#include <windows.h>

#include <gtest/gtest.h>

#include <climits>

namespace {

TEST(CommonResultText, CodeZeroReadsSuccess) {
    EXPECT_EQ("(0x00000000) Success.", TqGetCommonResultText(0));
}

TEST(CommonResultText, NegativeAndPositiveCodeGiveTheSameText) {
    EXPECT_EQ("(0x00000001) One or more invalid arguments.", TqGetCommonResultText(-1));
    EXPECT_EQ("(0x00000001) One or more invalid arguments.", TqGetCommonResultText(1));
    EXPECT_EQ("(0x00000017) Exception occurred.", TqGetCommonResultText(-23));
}

TEST(CommonResultText, Code33HasNoTextOfItsOwn) {
    EXPECT_EQ("(0x00000021) Unknown error.", TqGetCommonResultText(33));
    EXPECT_EQ("(0x00000021) Unknown error.", TqGetCommonResultText(-33));
}

TEST(CommonResultText, CodesBeyondTheTableAreUnknown) {
    EXPECT_EQ("(0x00000040) Unknown error.", TqGetCommonResultText(64));
    EXPECT_EQ("(0x00000190) Unknown error.", TqGetCommonResultText(400));
    EXPECT_EQ("(0x7fffffff) Unknown error.", TqGetCommonResultText(INT_MAX));
    EXPECT_EQ("(0x80000000) Unknown error.", TqGetCommonResultText(INT_MIN));
}

TEST(CommonResultText, EveryRowOfTheTableReadsAsWritten) {
    const char* const expected[] = {
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
        ("Index is out of range. The supplied index to the content is outside of the size of said "
         "contents containment"),
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
    ASSERT_EQ(64u, std::size(expected));
    for (int code = 0; code < 64; ++code) {
        char hex[16];
        std::snprintf(hex, sizeof hex, "%08x", code);
        EXPECT_EQ(std::string("(0x") + hex + ") " + expected[code] + ".",
                  TqGetCommonResultText(code))
            << "code " << code;
        EXPECT_STREQ(expected[code], TqGetCommonResultMessage(-code)) << "code " << -code;
    }
}

TEST(PKCS11ReturnValueText, StandardValuesCarryTheirNames) {
    EXPECT_EQ("(0x00000000) CKR_OK", TqGetPKCS11ReturnValueText(0x0));
    EXPECT_EQ("(0x00000007) CKR_ARGUMENTS_BAD", TqGetPKCS11ReturnValueText(0x7));
    EXPECT_EQ("(0x000000a0) CKR_PIN_INCORRECT", TqGetPKCS11ReturnValueText(0xA0));
    EXPECT_EQ("(0x00000190) CKR_CRYPTOKI_NOT_INITIALIZED", TqGetPKCS11ReturnValueText(0x190));
    EXPECT_EQ("(0x00000191) CKR_CRYPTOKI_ALREADY_INITIALIZED", TqGetPKCS11ReturnValueText(0x191));
    EXPECT_EQ("(0x000001b9) CKR_PUBLIC_KEY_INVALID", TqGetPKCS11ReturnValueText(0x1B9));
    EXPECT_EQ("(0x00000200) CKR_FUNCTION_REJECTED", TqGetPKCS11ReturnValueText(0x200));
}

TEST(PKCS11ReturnValueText, TheVendorRowsCarryTheirNames) {
    EXPECT_EQ("(0x800003e9) CKR_BAD_P11CONT", TqGetPKCS11ReturnValueText(0x800003E9));
    EXPECT_EQ("(0x800003ea) CKR_BAD_FUNCTION_LIST", TqGetPKCS11ReturnValueText(0x800003EA));
    EXPECT_EQ("(0x800003eb) CKR_BAD_FUNCTION", TqGetPKCS11ReturnValueText(0x800003EB));
    EXPECT_EQ("(0x800003ec) CKR_EMPTY_CARD", TqGetPKCS11ReturnValueText(0x800003EC));
    EXPECT_EQ("(0x800003ed) CKR_INVALID_SEARCH", TqGetPKCS11ReturnValueText(0x800003ED));
    EXPECT_EQ("(0x800003ee) CKR_BAD_CONVERSION", TqGetPKCS11ReturnValueText(0x800003EE));
    EXPECT_EQ("(0x800003ef) CKR_NO_OBJECT_MATCH", TqGetPKCS11ReturnValueText(0x800003EF));
    EXPECT_EQ("(0x800003f0) CKR_ATTRIB_NOT_FOUND", TqGetPKCS11ReturnValueText(0x800003F0));
}

TEST(PKCS11ReturnValueText, ValuesWithoutANameAreVendorDefinedOrUnknown) {
    EXPECT_EQ("(0x80000000) CKR_VENDOR_DEFINED", TqGetPKCS11ReturnValueText(0x80000000));
    EXPECT_EQ("(0x800003f1) CKR_VENDOR_DEFINED", TqGetPKCS11ReturnValueText(0x800003F1));
    EXPECT_EQ("(0x00000004) UNKNOWN_ERROR", TqGetPKCS11ReturnValueText(0x4));
    EXPECT_EQ("(0x00000201) UNKNOWN_ERROR", TqGetPKCS11ReturnValueText(0x201));
    EXPECT_EQ("(0x7fffffff) UNKNOWN_ERROR", TqGetPKCS11ReturnValueText(0x7FFFFFFF));
}

TEST(SmartCardMessage, KnownCodesKeepTheirOwnSpelling) {
    EXPECT_STREQ("No error was encountered.", TqGetSmartCardMessage(SCARD_S_SUCCESS));
    EXPECT_STREQ("The user - specified time - out value has expired.",
                 TqGetSmartCardMessage(SCARD_E_TIMEOUT));
    EXPECT_STREQ("Not enough memory available to complete this command",
                 TqGetSmartCardMessage(SCARD_E_NO_MEMORY));
    EXPECT_STREQ("The requested item could not be found in the cache.",
                 TqGetSmartCardMessage(SCARD_W_CACHE_ITEM_NOT_FOUND));
    EXPECT_STREQ("Potential hardware redirection detected. Certain Smart Card API options will "
                 "not be available.",
                 TqGetSmartCardMessage(0x80190074));
}

TEST(SmartCardMessage, CodesWithoutARowHaveNoMessage) {
    EXPECT_EQ(nullptr, TqGetSmartCardMessage(0x80100035));
    EXPECT_EQ(nullptr, TqGetSmartCardMessage(0x80100064));
    EXPECT_EQ(nullptr, TqGetSmartCardMessage(5));
}

TEST(FileVersionErrorMapping, EveryRowMapsToItsCode) {
    const struct {
        HRESULT windowsError; // the SDK's smart-card and key-set codes are HRESULTs
        int code;
    } rows[] = {
        {2, 11},
        {3, 11},
        {259, 58},
        {NTE_NO_KEY, 26},
        {NTE_BAD_KEYSET, 11},
        {SCARD_E_INVALID_VALUE, 4},
        {SCARD_F_COMM_ERROR, 56},
        {SCARD_F_UNKNOWN_ERROR, 4},
        {SCARD_E_READER_UNAVAILABLE, 61},
        {SCARD_E_READER_UNSUPPORTED, 14},
        {SCARD_E_CARD_UNSUPPORTED, 14},
        {SCARD_E_UNSUPPORTED_FEATURE, 14},
        {SCARD_E_DIR_NOT_FOUND, 11},
        {SCARD_E_FILE_NOT_FOUND, 11},
        {SCARD_E_NO_ACCESS, 16},
        {SCARD_E_INVALID_CHV, 16},
        {SCARD_E_NO_SUCH_CERTIFICATE, 15},
        {SCARD_E_NO_KEY_CONTAINER, 15},
        {SCARD_E_CERTIFICATE_UNAVAILABLE, 61},
        {SCARD_E_NO_READERS_AVAILABLE, 61},
        {SCARD_E_COMM_DATA_LOST, 56},
        {SCARD_E_READ_ONLY_CARD, 62},
        {SCARD_W_UNSUPPORTED_CARD, 14},
        {SCARD_W_UNRESPONSIVE_CARD, 63},
        {SCARD_W_UNPOWERED_CARD, 63},
        {SCARD_W_RESET_CARD, 63},
        {SCARD_W_CHV_BLOCKED, 27},
        {SCARD_W_CANCELLED_BY_USER, 52},
    };
    for (const auto& row : rows) {
        const auto windowsError = static_cast<std::uint32_t>(row.windowsError);
        EXPECT_EQ(row.code, TqMapFileVersionError(windowsError))
            << std::hex << "0x" << windowsError;
    }
}

TEST(FileVersionErrorMapping, EveryOtherErrorIsAnInternalError) {
    EXPECT_EQ(4, TqMapFileVersionError(0));
    EXPECT_EQ(4, TqMapFileVersionError(5));
    EXPECT_EQ(4, TqMapFileVersionError(1812));
    EXPECT_EQ(4, TqMapFileVersionError(1813));
    EXPECT_EQ(4, TqMapFileVersionError(SCARD_E_UNKNOWN_RES_MNG));
    EXPECT_EQ(4, TqMapFileVersionError(0xFFFFFFFF));
}

} // namespace
