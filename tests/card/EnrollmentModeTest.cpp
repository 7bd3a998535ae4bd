// The enrollment-mode workers against the real registry of the prefix.
#include "card/TqEnrollmentMode.h"

#include "support/TestSupport.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <malloc.h>

namespace {

using zeltest::ScratchLogFile;

const std::string kSwitch = "TqZelPlatformMethods::TqSwitchEnrollmentMode : ";
const std::string kGet = "TqZelPlatformMethods::TqGetEnrollmentMode : ";

class EnrollmentMode : public ::testing::Test {
protected:
    void SetUp() override { zeltest::DeleteKeyTree(HKEY_CURRENT_USER, kTqEnrollmentKey); }
    void TearDown() override { zeltest::DeleteKeyTree(HKEY_CURRENT_USER, kTqEnrollmentKey); }

    zeltest::StoredValue stored() const {
        return zeltest::ReadValue(HKEY_CURRENT_USER, kTqEnrollmentKey, kTqEnrollmentValue);
    }

    struct Answer {
        int result = -1;
        std::string mode;
        int length = -1;
        size_t allocated = 0;
    };
    Answer get() {
        Answer answer;
        char* mode = nullptr;
        answer.result = TqGetEnrollmentMode(&mode, &answer.length, log.path());
        if (mode != nullptr) {
            answer.mode = mode;
            answer.allocated = _msize(mode);
            std::free(mode);
        }
        return answer;
    }

    ScratchLogFile log;
};

TEST_F(EnrollmentMode, SwitchToAgileCreatesTheKeyAndWritesDword0) {
    ASSERT_EQ(0, TqSwitchEnrollmentMode("AGILE", log.path()));
    const auto value = stored();
    ASSERT_TRUE(value.present);
    EXPECT_EQ(static_cast<DWORD>(REG_DWORD), value.type);
    EXPECT_EQ((std::vector<BYTE>{0, 0, 0, 0}), value.data);
    EXPECT_EQ((std::vector<std::string>{"[INFO] " + kSwitch + "Entered",
                                        "[INFO] " + kSwitch + "Creating registry keys",
                                        "[INFO] " + kSwitch + "Switching registry to Applet: AGILE",
                                        "[INFO] " + kSwitch + "Leaving"}),
              log.bodies());
}

TEST_F(EnrollmentMode, SwitchToCompatibilityOverAnExistingKeyWritesDword1) {
    zeltest::WriteDword(HKEY_CURRENT_USER, kTqEnrollmentKey, kTqEnrollmentValue, 0);
    ASSERT_EQ(0, TqSwitchEnrollmentMode("COMPATIBILITY", log.path()));
    EXPECT_EQ((std::vector<BYTE>{1, 0, 0, 0}), stored().data);
    // The key was there: no "Creating registry keys".
    EXPECT_EQ((std::vector<std::string>{"[INFO] " + kSwitch + "Entered",
                                        "[INFO] " + kSwitch +
                                            "Switching registry to Applet: COMPATIBILITY",
                                        "[INFO] " + kSwitch + "Leaving"}),
              log.bodies());
}

TEST_F(EnrollmentMode, LowerCaseModeIsUnknownAndStillLeavesTheCreatedKey) {
    EXPECT_EQ(4, TqSwitchEnrollmentMode("agile", log.path()));
    EXPECT_TRUE(zeltest::KeyExists(HKEY_CURRENT_USER, kTqEnrollmentKey));
    EXPECT_FALSE(stored().present);
    EXPECT_EQ((std::vector<std::string>{
                  "[INFO] " + kSwitch + "Entered", "[INFO] " + kSwitch + "Creating registry keys",
                  "[INFO] " + kSwitch + "Switching registry to Applet: agile",
                  "[ERROR] " + kSwitch + "Exception occurred: Unknown Enrollment mode 'agile'."}),
              log.bodies());
}

TEST_F(EnrollmentMode, TrailingBlankIsUnknownBecauseTheMatchIsExact) {
    zeltest::WriteDword(HKEY_CURRENT_USER, kTqEnrollmentKey, kTqEnrollmentValue, 1);
    EXPECT_EQ(4, TqSwitchEnrollmentMode("AGILE ", log.path()));
    EXPECT_EQ((std::vector<BYTE>{1, 0, 0, 0}), stored().data); // untouched
    const auto bodies = log.bodies();
    ASSERT_FALSE(bodies.empty());
    EXPECT_EQ("[ERROR] " + kSwitch + "Exception occurred: Unknown Enrollment mode 'AGILE '.",
              bodies.back());
}

TEST_F(EnrollmentMode, PrefixOfAKnownModeIsUnknown) {
    EXPECT_EQ(4, TqSwitchEnrollmentMode("COMPATIBILITY2", log.path()));
    EXPECT_EQ(4, TqSwitchEnrollmentMode("AGIL", log.path()));
    EXPECT_FALSE(stored().present);
}

TEST_F(EnrollmentMode, NullModeIsRefusedWithCode1) {
    EXPECT_EQ(1, TqSwitchEnrollmentMode(nullptr, log.path()));
    EXPECT_FALSE(zeltest::KeyExists(HKEY_CURRENT_USER, kTqEnrollmentKey));
    EXPECT_EQ((std::vector<std::string>{"[INFO] " + kSwitch + "Entered",
                                        "[ERROR] " + kSwitch +
                                            "Exception occurred: KVRMode argument is invalid"}),
              log.bodies());
}

TEST_F(EnrollmentMode, KeyThatCannotBeOpenedIsNotRecreated) {
    zeltest::DeniedKey denied(HKEY_CURRENT_USER, kTqEnrollmentKey);
    EXPECT_EQ(4, TqSwitchEnrollmentMode("AGILE", log.path()));
    EXPECT_EQ((std::vector<std::string>{
                  "[INFO] " + kSwitch + "Entered",
                  "[ERROR] " + kSwitch +
                      "Exception occurred: Could not find or create the registry key "
                      "'SOFTWARE\\Oberthur Technologies\\Minidriver\\PIVMinidriver'"}),
              log.bodies());
}

TEST_F(EnrollmentMode, MissingKeyReadsNotSetWith11AndAWarning) {
    const Answer answer = get();
    EXPECT_EQ(11, answer.result);
    EXPECT_EQ("NOT SET", answer.mode);
    EXPECT_EQ(7, answer.length);
    EXPECT_EQ(8u, answer.allocated);
    EXPECT_EQ(std::vector<std::string>{"[WARN] " + kGet + "Registry VKey Not Set"}, log.bodies());
}

TEST_F(EnrollmentMode, KeyWithoutValueReadsNotSetWith4) {
    zeltest::CreateKey(HKEY_CURRENT_USER, kTqEnrollmentKey);
    const Answer answer = get();
    EXPECT_EQ(4, answer.result);
    EXPECT_EQ("NOT SET", answer.mode);
    EXPECT_EQ(7, answer.length);
    EXPECT_EQ("", log.contents()); // the get logs neither "Entered" nor "Leaving"
}

TEST_F(EnrollmentMode, Dword0ReadsAgile) {
    zeltest::WriteDword(HKEY_CURRENT_USER, kTqEnrollmentKey, kTqEnrollmentValue, 0);
    const Answer answer = get();
    EXPECT_EQ(0, answer.result);
    EXPECT_EQ("AGILE", answer.mode);
    EXPECT_EQ(5, answer.length);
    EXPECT_EQ(6u, answer.allocated);
}

TEST_F(EnrollmentMode, AnyNonZeroDwordReadsCompatibility) {
    for (DWORD data : {1u, 2u, 0xFFFFFFFFu}) {
        zeltest::WriteDword(HKEY_CURRENT_USER, kTqEnrollmentKey, kTqEnrollmentValue, data);
        const Answer answer = get();
        EXPECT_EQ(0, answer.result) << data;
        EXPECT_EQ("COMPATIBILITY", answer.mode) << data;
        EXPECT_EQ(13, answer.length) << data;
        EXPECT_EQ(14u, answer.allocated) << data;
    }
}

TEST_F(EnrollmentMode, StringValueLongerThanFourBytesReadsAgile) {
    zeltest::WriteString(HKEY_CURRENT_USER, kTqEnrollmentKey, kTqEnrollmentValue, "COMPATIBILITY");
    const Answer answer = get();
    EXPECT_EQ(0, answer.result);
    EXPECT_EQ("AGILE", answer.mode);
}

TEST_F(EnrollmentMode, BinaryValueLongerThanFourBytesReadsAgile) {
    zeltest::WriteValue(HKEY_CURRENT_USER, kTqEnrollmentKey, kTqEnrollmentValue, REG_BINARY,
                        {1, 1, 1, 1, 1, 1, 1, 1});
    const Answer answer = get();
    EXPECT_EQ(0, answer.result);
    EXPECT_EQ("AGILE", answer.mode);
}

TEST_F(EnrollmentMode, ShortValueOfAnyTypeIsReadAsItsBytes) {
    // The type is never checked: two bytes 01 00 fill the low half of the DWORD.
    zeltest::WriteValue(HKEY_CURRENT_USER, kTqEnrollmentKey, kTqEnrollmentValue, REG_BINARY,
                        {1, 0});
    EXPECT_EQ("COMPATIBILITY", get().mode);
}

TEST_F(EnrollmentMode, KeyThatCannotBeOpenedReadsAgile) {
    zeltest::WriteDword(HKEY_CURRENT_USER, kTqEnrollmentKey, kTqEnrollmentValue, 1);
    zeltest::DeniedKey denied(HKEY_CURRENT_USER, kTqEnrollmentKey);
    const Answer answer = get();
    EXPECT_EQ(0, answer.result); // only "not found" is told apart; the failed read leaves 0
    EXPECT_EQ("AGILE", answer.mode);
}

TEST_F(EnrollmentMode, AfterSwitchingToCompatibilityTheGetReadsIt) {
    ASSERT_EQ(0, TqSwitchEnrollmentMode("COMPATIBILITY", nullptr));
    const Answer answer = get();
    EXPECT_EQ(0, answer.result);
    EXPECT_EQ("COMPATIBILITY", answer.mode);
    EXPECT_EQ(13, answer.length);
}

TEST_F(EnrollmentMode, NullOutputsAreRefusedWithCode1) {
    int length = -1;
    char* mode = nullptr;
    EXPECT_EQ(1, TqGetEnrollmentMode(nullptr, &length, log.path()));
    EXPECT_EQ(1, TqGetEnrollmentMode(&mode, nullptr, log.path()));
    EXPECT_EQ(nullptr, mode);
    EXPECT_EQ(-1, length);
    const std::string refused =
        "[ERROR] " + kGet + "Exception occurred: One ore more calling arguments is invalid";
    EXPECT_EQ((std::vector<std::string>{refused, refused}), log.bodies());
}

} // namespace
