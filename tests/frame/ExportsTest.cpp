// The exports as a client sees them: the built DLL loaded with LoadLibraryA.
#include "card/TqEnrollmentMode.h"
#include "support/CapturedStreams.h"
#include "support/TestSupport.h"

#include <gtest/gtest.h>

#include <cstring>
#include <malloc.h>

namespace {

using zeltest::PlatformDll;
using zeltest::ScratchLogFile;

char* const kGarbage = reinterpret_cast<char*>(0xDEADBEEF);
const std::string kInvalidOutputs = "One or more calling arguments is invalid";

class Exports : public ::testing::Test {
protected:
    void SetUp() override { zeltest::DeleteKeyTree(HKEY_CURRENT_USER, kTqEnrollmentKey); }
    void TearDown() override { zeltest::DeleteKeyTree(HKEY_CURRENT_USER, kTqEnrollmentKey); }

    PlatformDll dll;
    const ZelPlatformExportedInterface& api = dll.api();
    ScratchLogFile log;
};

TEST_F(Exports, InterfaceTableNeedsADestination) {
    EXPECT_EQ(1, api.ZelPlatformGetExportedInterface(nullptr));
}

TEST_F(Exports, InterfaceTableHoldsTheElevenExportsInOrder) {
    ZelPlatformExportedInterface table;
    std::memset(&table, 0xAB, sizeof table);
    ASSERT_EQ(0, api.ZelPlatformGetExportedInterface(&table));
    static_assert(sizeof(ZelPlatformExportedInterface) == 11 * sizeof(void*));
    const char* const names[] = {
        "GetFileVersion",
        "SetATRMiddlewareDetection",
        "GetATRMiddlewareDetection",
        "OberthurMiddlewareDetection",
        "SupportedMiddlewareDetection",
        "DetectIdentityAgent",
        "SetIdentityAgentSpringCheck",
        "GetEnrollmentMode",
        "SwitchEnrollmentMode",
        "FreeStringData",
        "ZelPlatformGetExportedInterface",
    };
    void* entries[11];
    std::memcpy(entries, &table, sizeof entries);
    for (int i = 0; i < 11; ++i) {
        EXPECT_EQ(reinterpret_cast<void*>(::GetProcAddress(dll.module(), names[i])), entries[i])
            << names[i];
        EXPECT_NE(nullptr, entries[i]) << names[i];
    }
}

TEST_F(Exports, FreeStringDataIgnoresNullAndNullsWhatItFrees) {
    api.FreeStringData(nullptr);
    char* nothing = nullptr;
    api.FreeStringData(&nothing);
    EXPECT_EQ(nullptr, nothing);

    ASSERT_EQ(0, api.SwitchEnrollmentMode("AGILE", nullptr));
    char* mode = nullptr;
    int length = 0;
    ASSERT_EQ(0, api.GetEnrollmentMode(&mode, &length, nullptr));
    ASSERT_NE(nullptr, mode);
    api.FreeStringData(&mode);
    EXPECT_EQ(nullptr, mode);
}

TEST_F(Exports, GetEnrollmentModeWithNullOutputReturns1WithoutEntered) {
    int length = -1;
    EXPECT_EQ(1, api.GetEnrollmentMode(nullptr, &length, log.path()));
    char* mode = kGarbage;
    EXPECT_EQ(1, api.GetEnrollmentMode(&mode, nullptr, log.path()));
    EXPECT_EQ(nullptr, mode);
    const std::string refused = "[ERROR] TqZelDLLPlatform::getEnrollmentMode : " + kInvalidOutputs;
    EXPECT_EQ((std::vector<std::string>{refused, refused}), log.bodies());
}

TEST_F(Exports, EveryExportRefusesNullArgumentsWithItsOwnText) {
    char* text = kGarbage;
    int length = -1;
    EXPECT_EQ(1, api.SetATRMiddlewareDetection(nullptr, log.path()));
    EXPECT_EQ(1, api.GetATRMiddlewareDetection(&text, nullptr, log.path()));
    EXPECT_EQ(nullptr, text);
    EXPECT_EQ(1, api.OberthurMiddlewareDetection(nullptr, &length, log.path()));
    EXPECT_EQ(1, api.SupportedMiddlewareDetection(nullptr, nullptr, log.path()));
    text = kGarbage;
    EXPECT_EQ(1, api.DetectIdentityAgent(&text, nullptr, log.path()));
    EXPECT_EQ(nullptr, text);
    EXPECT_EQ(1, api.SwitchEnrollmentMode(nullptr, log.path()));
    EXPECT_EQ(1, api.GetEnrollmentMode(nullptr, nullptr, log.path()));
    EXPECT_EQ(1, api.GetFileVersion(nullptr, nullptr, nullptr, log.path()));
    EXPECT_EQ(-1, length);
    EXPECT_EQ(
        (std::vector<std::string>{
            "[ERROR] TqZelDLLPlatform::setATRMiddlewareDetection : ATR Argument is invalid",
            "[ERROR] TqZelDLLPlatform::getATRMiddlewareDetection : " + kInvalidOutputs,
            "[ERROR] TqZelDLLPlatform::OberthurMiddlewareDetectionJSON : " + kInvalidOutputs,
            "[ERROR] TqZelDLLPlatform::SupportedMiddlewareDetectionJSON : " + kInvalidOutputs,
            "[ERROR] TqZelDLLPlatform::detectIdentityAgent : " + kInvalidOutputs,
            "[ERROR] TqZelDLLPlatform::setEnrollmentMode : applet Argument is invalid",
            "[ERROR] TqZelDLLPlatform::getEnrollmentMode : " + kInvalidOutputs,
            "[INFO] ZelPlatformMethods::ZelDLLCommonCPPGetFileVersion : Entered",
            "[ERROR] ZelPlatformMethods::ZelDLLCommonCPPGetFileVersion : " + kInvalidOutputs}),
        log.bodies());
}

TEST_F(Exports, SwitchThenGetRoundTripsThroughTheRegistry) {
    ASSERT_EQ(0, api.SwitchEnrollmentMode("COMPATIBILITY", log.path()));
    char* mode = nullptr;
    int length = 0;
    ASSERT_EQ(0, api.GetEnrollmentMode(&mode, &length, log.path()));
    EXPECT_STREQ("COMPATIBILITY", mode);
    EXPECT_EQ(13, length);
    EXPECT_EQ(14u, _msize(mode)); // exactly length + 1 bytes
    api.FreeStringData(&mode);
    EXPECT_EQ((std::vector<std::string>{
                  "[INFO] TqZelDLLPlatform::setEnrollmentMode : Entered",
                  "[INFO] TqZelPlatformMethods::TqSwitchEnrollmentMode : Entered",
                  "[INFO] TqZelPlatformMethods::TqSwitchEnrollmentMode : Creating registry keys",
                  "[INFO] TqZelPlatformMethods::TqSwitchEnrollmentMode : Switching registry to "
                  "Applet: COMPATIBILITY",
                  "[INFO] TqZelPlatformMethods::TqSwitchEnrollmentMode : Leaving",
                  "[INFO] TqZelDLLPlatform::setEnrollmentMode : Leaving",
                  "[INFO] TqZelDLLPlatform::getEnrollmentMode : Entered",
                  "[INFO] TqZelDLLPlatform::getEnrollmentMode : Leaving"}),
              log.bodies());
    const auto stored = zeltest::ReadValue(HKEY_CURRENT_USER, kTqEnrollmentKey, kTqEnrollmentValue);
    ASSERT_TRUE(stored.present);
    EXPECT_EQ(static_cast<DWORD>(REG_DWORD), stored.type);
    EXPECT_EQ((std::vector<BYTE>{1, 0, 0, 0}), stored.data);
}

TEST_F(Exports, GetHandsOutNotSetWithCode11WhenTheKeyIsMissing) {
    char* mode = nullptr;
    int length = 0;
    EXPECT_EQ(11, api.GetEnrollmentMode(&mode, &length, log.path()));
    EXPECT_STREQ("NOT SET", mode);
    EXPECT_EQ(7, length);
    api.FreeStringData(&mode);
}

TEST_F(Exports, GetHandsOutNotSetWithCode4WhenTheValueIsMissing) {
    zeltest::CreateKey(HKEY_CURRENT_USER, kTqEnrollmentKey);
    char* mode = nullptr;
    int length = 0;
    EXPECT_EQ(4, api.GetEnrollmentMode(&mode, &length, log.path()));
    EXPECT_STREQ("NOT SET", mode);
    EXPECT_EQ(7, length);
    api.FreeStringData(&mode);
}

TEST_F(Exports, UnknownAppletFailsWithTheWorkerCode) {
    EXPECT_EQ(4, api.SwitchEnrollmentMode("agile", log.path()));
    const auto bodies = log.bodies();
    ASSERT_EQ(6u, bodies.size());
    EXPECT_EQ("[ERROR] TqZelPlatformMethods::TqSwitchEnrollmentMode : Exception occurred: Unknown "
              "Enrollment mode 'agile'.",
              bodies[4]);
    EXPECT_EQ("[ERROR] TqZelDLLPlatform::setEnrollmentMode : TqSwitchEnrollmentMode failed. "
              "Error Code: (0x00000004) Internal error.",
              bodies[5]);
}

TEST_F(Exports, GarbageAppletsFailCleanly) {
    EXPECT_EQ(4, api.SwitchEnrollmentMode("", log.path()));
    const std::string huge(100000, 'A');
    EXPECT_EQ(4, api.SwitchEnrollmentMode(huge.c_str(), log.path()));
    EXPECT_EQ(4, api.SwitchEnrollmentMode("AGILE\xff\x01", log.path()));
    EXPECT_FALSE(
        zeltest::ReadValue(HKEY_CURRENT_USER, kTqEnrollmentKey, kTqEnrollmentValue).present);
    EXPECT_NE(std::string::npos, log.contents().find("Unknown Enrollment mode '" + huge + "'."));
}

TEST_F(Exports, LogFileStaysSetForLaterCallsWithoutOne) {
    ASSERT_EQ(0, api.SwitchEnrollmentMode("AGILE", log.path()));
    char* mode = nullptr;
    int length = 0;
    ASSERT_EQ(0, api.GetEnrollmentMode(&mode, &length, nullptr));
    api.FreeStringData(&mode);
    const auto bodies = log.bodies();
    ASSERT_EQ(8u, bodies.size());
    EXPECT_EQ("[INFO] TqZelDLLPlatform::getEnrollmentMode : Leaving", bodies.back());
}

TEST_F(Exports, LogFileThatCannotBeOpenedDoesNotStopTheAnswer) {
    ASSERT_EQ(0, api.SwitchEnrollmentMode("COMPATIBILITY", nullptr));
    zeltest::CapturedStderr errors;
    char* mode = nullptr;
    int length = 0;
    EXPECT_EQ(0, api.GetEnrollmentMode(&mode, &length, "C:\\no\\such\\folder\\zel.log"));
    // The operation and then its worker each try the file: a failed open forgets the name, so
    // the second try is no repeat of the same name. The message has no line end of its own.
    const std::string failed =
        "ZelLogger::SetFileName : Failed to open log file 'C:\\no\\such\\folder\\zel.log'";
    EXPECT_EQ(failed + failed, errors.text());
    EXPECT_STREQ("COMPATIBILITY", mode);
    api.FreeStringData(&mode);
}

} // namespace
