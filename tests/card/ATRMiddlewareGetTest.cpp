// Reading back which minidriver the JCOP 41 entries name.
#include "card/TqATRMiddleware.h"

#include "support/CapturedStreams.h"
#include "support/TestSupport.h"
#include "support/Workstation.h"

#include <gtest/gtest.h>

#include <cstdlib>

namespace {

using zeltest::CapturedStdout;
using zeltest::ScratchLogFile;

const std::string kContact = kTqJcopContactKey;
const std::string kContactless = kTqJcopContactlessKey;
const std::string kOut = "TqGetATRMiddlewareDetection : ";
const std::string kTag = "TqZelPlatformMethods::TqGetATRMiddlewareDetection : ";

class ATRMiddlewareGet : public ::testing::Test {
protected:
    void SetUp() override { removeEntries(); }
    void TearDown() override { removeEntries(); }

    static void removeEntries() {
        for (REGSAM view : {KEY_WOW64_64KEY, KEY_WOW64_32KEY}) {
            zeltest::DeleteKeyTree(HKEY_LOCAL_MACHINE, kContact, view);
            zeltest::DeleteKeyTree(HKEY_LOCAL_MACHINE, kContactless, view);
        }
    }

    static void setEntries(const char* middleware) {
        CapturedStdout ignoredOutput;
        ASSERT_EQ(0, TqSetATRMiddlewareDetection(middleware, nullptr));
        ignoredOutput.end();
    }

    static void setFirstAtrByte(const std::string& path, BYTE first) {
        auto atr = zeltest::ReadValue(HKEY_LOCAL_MACHINE, path, "ATR", KEY_WOW64_64KEY);
        ASSERT_TRUE(atr.present);
        atr.data[0] = first;
        zeltest::WriteValue(HKEY_LOCAL_MACHINE, path, "ATR", REG_BINARY, atr.data, KEY_WOW64_64KEY);
    }

    struct Answer {
        int result = -99;
        std::string word;
        int length = -1;
        std::string out;
    };

    Answer get() {
        Answer answer;
        char* word = nullptr;
        CapturedStdout output;
        answer.result = TqGetATRMiddlewareDetection(&word, &answer.length, log.path());
        answer.out = output.text();
        if (word != nullptr) {
            answer.word = word;
            std::free(word);
        }
        return answer;
    }

    zeltest::Workstation workstation;
    ScratchLogFile log;
};

TEST_F(ATRMiddlewareGet, AfterSettingThePivMinidriverBothEntriesNameIt) {
    setEntries("PIVMINIDRIVER");
    const Answer answer = get();
    EXPECT_EQ(0, answer.result);
    EXPECT_EQ("PIVMINIDRIVER", answer.word);
    EXPECT_EQ(13, answer.length);
    EXPECT_EQ("", answer.out);
    EXPECT_EQ("", log.contents());
}

TEST_F(ATRMiddlewareGet, AfterSettingGemSafeBothEntriesNameIt) {
    setEntries("GEMSAFE");
    const Answer answer = get();
    EXPECT_EQ(0, answer.result);
    EXPECT_EQ("GEMSAFE", answer.word);
    EXPECT_EQ(7, answer.length);
}

TEST_F(ATRMiddlewareGet, OnlyThe64BitViewIsRead) {
    setEntries("GEMSAFE");
    zeltest::DeleteKeyTree(HKEY_LOCAL_MACHINE, kContact, KEY_WOW64_32KEY);
    EXPECT_EQ("GEMSAFE", get().word);
}

TEST_F(ATRMiddlewareGet, DisagreeingEntriesWithoutTheOTMiddlewareAreUnknown32) {
    setEntries("GEMSAFE");
    setFirstAtrByte(kContactless, 0xFF);
    const Answer answer = get();
    EXPECT_EQ(32, answer.result);
    EXPECT_EQ("UNKNOWN", answer.word);
    EXPECT_EQ(7, answer.length);
    EXPECT_EQ("", answer.out); // no exception: the disagreement is an answer
}

TEST_F(ATRMiddlewareGet, InstalledOTMiddlewareCountsOnlyWhenItsRecordReadsUpperCaseTrue) {
    // The OT record says "true"; the entries' judge wants "TRUE", so an installed AWP does not
    // settle a disagreement.
    workstation.install(
        {"{ZELTEST-AWP}", "AWP 5.2.1 (64-bit)", "Oberthur Technologies", "5.2.1.77", 5, 2});
    setEntries("GEMSAFE");
    setFirstAtrByte(kContact, 0xFF);
    const Answer answer = get();
    EXPECT_EQ(32, answer.result);
    EXPECT_EQ("UNKNOWN", answer.word);
}

TEST_F(ATRMiddlewareGet, UnknownAtrWithoutTheOTMiddlewareIs11WithAnAnswer) {
    setEntries("PIVMINIDRIVER");
    setFirstAtrByte(kContact, 0x3F);
    const Answer answer = get();
    EXPECT_EQ(11, answer.result);
    EXPECT_EQ("UNKNOWN", answer.word);
    EXPECT_EQ(7, answer.length);
    const std::string message =
        "Registry value for the ATR is not known and OT Middleware not installed.";
    EXPECT_EQ(kOut + "[Error] Exception Occurred - " + message + "\n", answer.out);
    EXPECT_EQ(std::vector<std::string>{"[ERROR] " + kTag + "Exception occurred:" + message},
              log.bodies());
}

TEST_F(ATRMiddlewareGet, MissingEntryIs19) {
    setEntries("GEMSAFE");
    zeltest::DeleteKeyTree(HKEY_LOCAL_MACHINE, kContactless, KEY_WOW64_64KEY);
    const Answer answer = get();
    EXPECT_EQ(19, answer.result);
    EXPECT_EQ("UNKNOWN", answer.word);
    const std::string message = "Failed to open registry key " + kContactless + "(0x00000002) - " +
                                zeltest::SystemText(ERROR_FILE_NOT_FOUND);
    EXPECT_EQ(kOut + "[Error] Exception Occurred - " + message + "\n", answer.out);
}

TEST_F(ATRMiddlewareGet, EntryWithoutAtrIs21) {
    setEntries("GEMSAFE");
    TqUniqueRegKey key;
    ASSERT_EQ(ERROR_SUCCESS, ::RegOpenKeyExA(HKEY_LOCAL_MACHINE, kContact.c_str(), 0,
                                             KEY_ALL_ACCESS | KEY_WOW64_64KEY, key.put()));
    ASSERT_EQ(ERROR_SUCCESS, ::RegDeleteValueA(key.get(), "ATR"));
    const Answer answer = get();
    EXPECT_EQ(21, answer.result);
    EXPECT_EQ("UNKNOWN", answer.word);
    EXPECT_EQ(kOut + "[Error] Exception Occurred - Failed to query registry value  ATR" +
                  "(0x00000002) - " + zeltest::SystemText(ERROR_FILE_NOT_FOUND) + "\n",
              answer.out);
}

TEST_F(ATRMiddlewareGet, NullOutputsAre1AndNothingIsHandedOut) {
    char* word = nullptr;
    int length = -1;
    CapturedStdout ignoredOutput;
    EXPECT_EQ(1, TqGetATRMiddlewareDetection(&word, nullptr, log.path()));
    EXPECT_EQ(1, TqGetATRMiddlewareDetection(nullptr, &length, log.path()));
    ignoredOutput.end();
    EXPECT_EQ(nullptr, word);
    EXPECT_EQ(-1, length);
}

TEST_F(ATRMiddlewareGet, ExportTreatsEveryNonZeroResultAsAFailureAndNullsTheAnswer) {
    zeltest::PlatformDll dll;
    setEntries("GEMSAFE");
    setFirstAtrByte(kContactless, 0xFF);
    char* word = reinterpret_cast<char*>(0xDEADBEEF);
    int length = -1;
    EXPECT_EQ(32, dll.api().GetATRMiddlewareDetection(&word, &length, log.path()));
    EXPECT_EQ(nullptr, word);
    zeltest::DeleteKeyTree(HKEY_LOCAL_MACHINE, kContact, KEY_WOW64_64KEY);
    CapturedStdout ignoredOutput;
    EXPECT_EQ(19, dll.api().GetATRMiddlewareDetection(&word, &length, log.path()));
    ignoredOutput.end();
    EXPECT_EQ(nullptr, word);
    const auto bodies = log.bodies();
    ASSERT_GE(bodies.size(), 2u);
    EXPECT_EQ("[ERROR] TqZelDLLPlatform::getATRMiddlewareDetection : TqGetATRMiddlewareDetection "
              "failed. Error Code: (0x00000020) Failed to determine required type.",
              bodies[1]);
    EXPECT_EQ("[ERROR] TqZelDLLPlatform::getATRMiddlewareDetection : TqGetATRMiddlewareDetection "
              "failed. Error Code: (0x00000013) File access failed.",
              bodies.back());
}

TEST_F(ATRMiddlewareGet, ExportHandsOutTheAgreedWord) {
    zeltest::PlatformDll dll;
    setEntries("PIVMINIDRIVER");
    char* word = nullptr;
    int length = 0;
    ASSERT_EQ(0, dll.api().GetATRMiddlewareDetection(&word, &length, nullptr));
    EXPECT_STREQ("PIVMINIDRIVER", word);
    EXPECT_EQ(13, length);
    dll.api().FreeStringData(&word);
}

} // namespace
