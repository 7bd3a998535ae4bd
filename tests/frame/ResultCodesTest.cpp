#include "base/TqResultCodes.h"

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
    EXPECT_STREQ("No error was encountered.", TqGetSmartCardMessage(0));
    EXPECT_STREQ("The user - specified time - out value has expired.",
                 TqGetSmartCardMessage(0x8010000A));
    EXPECT_STREQ("Not enough memory available to complete this command",
                 TqGetSmartCardMessage(0x80100006));
    EXPECT_STREQ("The requested item could not be found in the cache.",
                 TqGetSmartCardMessage(0x80100070));
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
        std::uint32_t windowsError;
        int code;
    } rows[] = {
        {2, 11},          {3, 11},          {259, 58},        {0x8009000D, 26}, {0x80090016, 11},
        {0x80100011, 4},  {0x80100013, 56}, {0x80100014, 4},  {0x80100017, 61}, {0x8010001A, 14},
        {0x8010001C, 14}, {0x80100022, 14}, {0x80100023, 11}, {0x80100024, 11}, {0x80100027, 16},
        {0x8010002A, 16}, {0x8010002C, 15}, {0x80100030, 15}, {0x8010002D, 61}, {0x8010002E, 61},
        {0x8010002F, 56}, {0x80100034, 62}, {0x80100065, 14}, {0x80100066, 63}, {0x80100067, 63},
        {0x80100068, 63}, {0x8010006C, 27}, {0x8010006E, 52},
    };
    for (const auto& row : rows) {
        EXPECT_EQ(row.code, TqMapFileVersionError(row.windowsError))
            << std::hex << "0x" << row.windowsError;
    }
}

TEST(FileVersionErrorMapping, EveryOtherErrorIsAnInternalError) {
    EXPECT_EQ(4, TqMapFileVersionError(0));
    EXPECT_EQ(4, TqMapFileVersionError(5));
    EXPECT_EQ(4, TqMapFileVersionError(1812));
    EXPECT_EQ(4, TqMapFileVersionError(1813));
    EXPECT_EQ(4, TqMapFileVersionError(0x8010002B));
    EXPECT_EQ(4, TqMapFileVersionError(0xFFFFFFFF));
}

} // namespace
