// Writing the JCOP 41 entries of the smart-card database, in both registry views of the prefix.
#include "card/TqATRMiddleware.h"

#include "support/CapturedStreams.h"
#include "support/CallerTrace.h"
#include "support/TestSupport.h"

#include <gtest/gtest.h>

namespace {

using zeltest::CapturedStdout;
using zeltest::ScratchLogFile;

const std::string kContact = kTqJcopContactKey;
const std::string kContactless = kTqJcopContactlessKey;
const std::string kTag = "TqZelPlatformMethods::TqSetATRMiddlewareDetection : ";
const std::string kOut = "TqSetATRMiddlewareDetection : ";

const std::vector<BYTE> kContactTail = {0xF9, 0x18, 0x00, 0x00, 0x81, 0x31, 0xFE, 0x45, 0x4A,
                                        0x43, 0x4F, 0x50, 0x34, 0x31, 0x56, 0x32, 0x32, 0xAF};
const std::vector<BYTE> kContactlessTail = {0x89, 0x80, 0x01, 0x4A, 0x43, 0x4F, 0x50,
                                            0x34, 0x31, 0x56, 0x32, 0x32, 0x4D};

std::vector<BYTE> withFirst(BYTE first, const std::vector<BYTE>& tail) {
    std::vector<BYTE> atr(tail.size() + 1, first);
    std::copy(tail.begin(), tail.end(), atr.begin() + 1);
    return atr;
}

// A string value the library writes without its NUL. Wine stores one anyway (Windows would keep
// exactly the bytes given), so one trailing NUL is accepted beyond the written count.
void expectTextWithoutTerminator(const zeltest::StoredValue& value, const std::string& text,
                                 zeltest::CallSite caller = zeltest::CallSite::current()) {
    const zeltest::CallerTrace trace(caller);
    ASSERT_TRUE(value.present);
    EXPECT_EQ(static_cast<DWORD>(REG_SZ), value.type);
    std::vector<BYTE> expected(text.begin(), text.end());
    if (value.data.size() == expected.size() + 1) {
        expected.push_back(0);
    }
    EXPECT_EQ(expected, value.data) << text;
}

void expectEntry(const std::string& path, REGSAM view, BYTE first, bool contactless,
                 zeltest::CallSite caller = zeltest::CallSite::current()) {
    const zeltest::CallerTrace trace(caller);
    SCOPED_TRACE(path + (view == KEY_WOW64_32KEY ? " (32-bit view)" : " (64-bit view)"));
    const auto value = [&](const char* name) {
        return zeltest::ReadValue(HKEY_LOCAL_MACHINE, path, name, view);
    };
    expectTextWithoutTerminator(value("80000001"), "GemSafeMD.dll");
    const auto atr = value("ATR");
    ASSERT_TRUE(atr.present);
    EXPECT_EQ(static_cast<DWORD>(REG_BINARY), atr.type);
    EXPECT_EQ(withFirst(first, contactless ? kContactlessTail : kContactTail), atr.data);
    const auto mask = value("ATRMask");
    EXPECT_EQ(static_cast<DWORD>(REG_BINARY), mask.type);
    EXPECT_EQ(std::vector<BYTE>(contactless ? 14 : 19, 0xFF), mask.data);
    expectTextWithoutTerminator(value("Crypto Provider"),
                                "Microsoft Base Smart Card Crypto Provider");
    expectTextWithoutTerminator(value("Smart Card Key Storage Provider"),
                                "Microsoft Smart Card Key Storage Provider");
}

void expectAllEntries(BYTE first, zeltest::CallSite caller = zeltest::CallSite::current()) {
    const zeltest::CallerTrace trace(caller);
    for (REGSAM view : {KEY_WOW64_64KEY, KEY_WOW64_32KEY}) {
        expectEntry(kContact, view, first, false);
        expectEntry(kContactless, view, first, true);
    }
}

class ATRMiddlewareSet : public ::testing::Test {
protected:
    void SetUp() override { removeEntries(); }
    void TearDown() override { removeEntries(); }

    static void removeEntries() {
        for (REGSAM view : {KEY_WOW64_64KEY, KEY_WOW64_32KEY}) {
            zeltest::DeleteKeyTree(HKEY_LOCAL_MACHINE, kContact, view);
            zeltest::DeleteKeyTree(HKEY_LOCAL_MACHINE, kContactless, view);
        }
    }

    int set(const char* middleware) {
        CapturedStdout output;
        const int result = TqSetATRMiddlewareDetection(middleware, log.path());
        out = output.text();
        return result;
    }

    ScratchLogFile log;
    std::string out;
};

TEST_F(ATRMiddlewareSet, GemSafeCreatesBothEntriesInBothViews) {
    ASSERT_EQ(0, set("GEMSAFE"));
    expectAllEntries(0x3B);
    EXPECT_EQ(kOut + "64Bit Env\n" +                                         //
                  kOut + "[INFO] Creating registry key " + kContact + "\n" + //
                  kOut + "NON RFID\n" +                                      //
                  kOut + "[INFO] Creating registry key " + kContactless + "\n" + kOut +
                  "RFID\n" +                                                 //
                  kOut + "[INFO] Creating registry key " + kContact + "\n" + //
                  kOut + "NON RFID\n" +                                      //
                  kOut + "[INFO] Creating registry key " + kContactless + "\n" + kOut + "RFID\n",
              out);
    EXPECT_EQ(
        (std::vector<std::string>{"[INFO] " + kTag + "Entered", "[INFO] " + kTag + "Leaving"}),
        log.bodies());
}

TEST_F(ATRMiddlewareSet, TheTwoViewsHoldSeparateCopies) {
    ASSERT_EQ(0, set("GEMSAFE"));
    EXPECT_TRUE(zeltest::KeyExists(
        HKEY_LOCAL_MACHINE,
        "SOFTWARE\\Wow6432Node\\Microsoft\\Cryptography\\Calais\\SmartCards\\JCOP 41 T=1",
        KEY_WOW64_64KEY));
}

TEST_F(ATRMiddlewareSet, PivMinidriverSpoilsTheFirstAtrByteOfEveryEntry) {
    ASSERT_EQ(0, set("GEMSAFE"));
    ASSERT_EQ(0, set("PIVMINIDRIVER"));
    expectAllEntries(0xFF);
    // The entries were there: nothing is created the second time.
    EXPECT_EQ(kOut + "64Bit Env\n" + kOut + "NON RFID\n" + kOut + "RFID\n" + kOut + "NON RFID\n" +
                  kOut + "RFID\n",
              out);
}

TEST_F(ATRMiddlewareSet, WordsAreCaseSensitive) {
    EXPECT_EQ(14, set("gemsafe"));
    EXPECT_EQ(kOut + "[Error] Std Exception - Unsupported Middleware type gemsafe\n", out);
    EXPECT_EQ((std::vector<std::string>{
                  "[INFO] " + kTag + "Entered",
                  "[ERROR] " + kTag + "Exception occurred: Unsupported Middleware type gemsafe",
                  "[INFO] " + kTag + "Leaving"}),
              log.bodies());
    EXPECT_FALSE(zeltest::KeyExists(HKEY_LOCAL_MACHINE, kContact, KEY_WOW64_64KEY));
    EXPECT_EQ(14, set("GEMSAFE "));
    EXPECT_EQ(14, set("PIV"));
    EXPECT_EQ(14, set(""));
}

TEST_F(ATRMiddlewareSet, NullWordIsRefusedWith1) {
    EXPECT_EQ(1, set(nullptr));
    EXPECT_EQ(kOut + "[Error] Std Exception - ATRMode argument is invalid\n", out);
}

TEST_F(ATRMiddlewareSet, EntryThatCannotBeOpenedStopsTheSetWithoutRollback) {
    zeltest::DeniedKey denied(HKEY_LOCAL_MACHINE, kContact, KEY_WOW64_32KEY);
    EXPECT_EQ(4, set("PIVMINIDRIVER"));
    const std::string failure = "Could not find or create the registry key " + kContact + " " +
                                "(0x00000005) - " + zeltest::SystemText(ERROR_ACCESS_DENIED);
    EXPECT_EQ(kOut + "64Bit Env\n" + kOut + "[INFO] Creating registry key " + kContact + "\n" +
                  kOut + "NON RFID\n" + kOut + "[INFO] Creating registry key " + kContactless +
                  "\n" + kOut + "RFID\n" + kOut + "[ERROR] " + failure + "\n",
              out);
    EXPECT_EQ((std::vector<std::string>{"[INFO] " + kTag + "Entered", "[ERROR] " + kTag + failure,
                                        "[INFO] " + kTag + "Leaving"}),
              log.bodies());
    // The 64-bit entries written before the failure stay; the 32-bit contactless one is never
    // reached.
    expectEntry(kContact, KEY_WOW64_64KEY, 0xFF, false);
    expectEntry(kContactless, KEY_WOW64_64KEY, 0xFF, true);
    EXPECT_FALSE(zeltest::KeyExists(HKEY_LOCAL_MACHINE, kContactless, KEY_WOW64_32KEY));
}

TEST_F(ATRMiddlewareSet, ExportReportsTheWorkerCode) {
    zeltest::PlatformDll dll;
    CapturedStdout ignoredOutput;
    EXPECT_EQ(0, dll.api().SetATRMiddlewareDetection("PIVMINIDRIVER", log.path()));
    EXPECT_EQ(14, dll.api().SetATRMiddlewareDetection("gemsafe", log.path()));
    ignoredOutput.end();
    expectAllEntries(0xFF);
    const auto bodies = log.bodies();
    ASSERT_FALSE(bodies.empty());
    EXPECT_EQ("[INFO] TqZelDLLPlatform::setATRMiddlewareDetection : Entered", bodies[0]);
    EXPECT_EQ("[ERROR] TqZelDLLPlatform::setATRMiddlewareDetection : TqSetATRMiddlewareDetection "
              "failed. Error Code: (0x0000000e) Unsupported feature, device or program.",
              bodies.back());
}

} // namespace
