#include "base/TqErrorText.h"

#include <windows.h>

#include "support/CapturedStreams.h"
#include "support/TestSupport.h"

#include <gtest/gtest.h>

namespace {

using zeltest::CapturedStderr;

// The system's own text of a code, as FormatMessage gives it on this host.

TEST(LastErrorText, CarriesTheCodeAndTheSystemText) {
    ASSERT_FALSE(zeltest::SystemText(ERROR_ACCESS_DENIED).empty());
    EXPECT_EQ("(0x00000005) - " + zeltest::SystemText(ERROR_ACCESS_DENIED),
              TqGetLastErrorAsString(ERROR_ACCESS_DENIED));
    EXPECT_EQ("(0x00000002) - " + zeltest::SystemText(ERROR_FILE_NOT_FOUND),
              TqGetLastErrorAsString(ERROR_FILE_NOT_FOUND));
}

TEST(LastErrorText, ACodeWithoutSystemTextSaysSoAndReportsTheFailure) {
    CapturedStderr errors;
    const std::string text = TqGetLastErrorAsString(0x2BADC0DE);
    const std::string diagnostics = errors.text();
    EXPECT_EQ("(0x2badc0de) - NO MESSAGE FOR THIS ERROR CODE", text);
    // 0x13d: ERROR_MR_MID_NOT_FOUND, FormatMessage's own failure.
    EXPECT_EQ("TqGetLastErrorAsString : FormatMessage failed. - Error(0x13d).\n", diagnostics);
}

TEST(SmartCardErrorText, KnownCodeReadsMessageAndCode) {
    EXPECT_EQ("The user - specified time - out value has expired. Error Code: (0x8010000a)",
              TqGetSmartCardErrorText(SCARD_E_TIMEOUT));
    EXPECT_EQ("No error was encountered. Error Code: (0x00000000)",
              TqGetSmartCardErrorText(SCARD_S_SUCCESS));
    EXPECT_EQ("The specified reader name is not recognized. Error Code: (0x80100009)",
              TqGetSmartCardErrorText(SCARD_E_UNKNOWN_READER));
}

TEST(SmartCardErrorText, UnknownCodeFallsBackToTheWindowsText) {
    EXPECT_EQ("Unknown SCard Error. Windows Error: (0x00000005) - " +
                  zeltest::SystemText(ERROR_ACCESS_DENIED),
              TqGetSmartCardErrorText(ERROR_ACCESS_DENIED));
}

} // namespace
