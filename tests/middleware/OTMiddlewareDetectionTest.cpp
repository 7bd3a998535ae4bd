// Known OT releases found by their product-code keys in the real registry of the prefix.
#include "middleware/TqOTMiddleware.h"

#include "api/TqZelDLLPlatform.h"
#include "support/TestSupport.h"

#include <gtest/gtest.h>

namespace {

using zeltest::ScratchLogFile;

const std::string kUninstall = "SOFTWARE\\Microsoft\\Windows\\CurrentVersion\\Uninstall\\";
const std::string kSR1 = "{1A237A0B-3E20-4D38-9316-C04FF4D2D9FE}";
const std::string k3001 = "{78CD21FA-042D-4AA8-A087-A082215EB661}";
const std::string k3002 = "{1CC04300-D690-439E-BE17-0B0B51220B35}";
const std::string k3003 = "{55C67109-B280-44B8-80AA-2D315D346745}";
const std::string k3004 = "{7C68E9E2-8BFD-46B4-852D-CE957A1225E9}";
const std::string kTag = "TqZelPlatformMethods::TqOTMiddlewareDetection : ";

std::string found(const std::string& product) {
    return "[INFO] " + kTag + " : Succcessfully detected " + product + ".";
}

std::string missing(const std::string& product, const std::string& code) {
    return "[INFO] " + kTag + " Could not detect " + product + ". Failed to find registry key " +
           kUninstall + code + ". Error Code: (0x00000002) - " +
           zeltest::SystemText(ERROR_FILE_NOT_FOUND);
}

class OTMiddlewareDetection : public ::testing::Test {
protected:
    void SetUp() override { removeAll(); }
    void TearDown() override { removeAll(); }

    static void removeAll() {
        for (const std::string* code : {&kSR1, &k3001, &k3002, &k3003, &k3004}) {
            zeltest::DeleteKeyTree(HKEY_LOCAL_MACHINE, kUninstall + *code, KEY_WOW64_64KEY);
            zeltest::DeleteKeyTree(HKEY_LOCAL_MACHINE, kUninstall + *code, KEY_WOW64_32KEY);
        }
    }
    static void install(const std::string& code, REGSAM view = KEY_WOW64_64KEY) {
        zeltest::CreateKey(HKEY_LOCAL_MACHINE, kUninstall + code, view);
    }

    ScratchLogFile log;
};

TEST_F(OTMiddlewareDetection, Selection3StopsAtSR1WhenItIsInstalled) {
    install(kSR1);
    install(k3001);
    EXPECT_EQ(2001, TqOTMiddlewareDetection(3, log.path()));
    EXPECT_EQ((std::vector<std::string>{"[INFO] " + kTag + "Entered",
                                        found("OT Middleware Version 5.2.0 SR1"),
                                        "[INFO] " + kTag + "Leaving"}),
              log.bodies());
}

TEST_F(OTMiddlewareDetection, SR5ReleasesAreTestedInOrderAndTheFirstFoundWins) {
    install(k3003);
    install(k3004);
    EXPECT_EQ(3003, TqOTMiddlewareDetection(3, log.path()));
    EXPECT_EQ((std::vector<std::string>{
                  "[INFO] " + kTag + "Entered", missing("OT Middleware Version 5.2.0 SR1", kSR1),
                  missing("64bit OT Middleware Version 5.2.0 SR5", k3001),
                  missing("64bit OT Admin Middleware Version 5.2.0 SR5", k3002),
                  found("32bit OT Middleware Version 5.2.0 SR5"), "[INFO] " + kTag + "Leaving"}),
              log.bodies());
}

TEST_F(OTMiddlewareDetection, NothingInstalledIs0) {
    EXPECT_EQ(0, TqOTMiddlewareDetection(1, log.path()));
    EXPECT_EQ(6u, log.bodies().size()); // Entered, four SR5 releases, Leaving
    EXPECT_EQ(0, TqOTMiddlewareDetection(2, nullptr));
}

TEST_F(OTMiddlewareDetection, Bit1AloneNeverTestsSR1) {
    install(kSR1);
    EXPECT_EQ(0, TqOTMiddlewareDetection(1, log.path()));
    install(k3002);
    EXPECT_EQ(3002, TqOTMiddlewareDetection(1, nullptr));
}

TEST_F(OTMiddlewareDetection, SelectionWithoutEitherBitTestsNothing) {
    install(kSR1);
    install(k3001);
    EXPECT_EQ(0, TqOTMiddlewareDetection(4, log.path()));
    EXPECT_EQ(
        (std::vector<std::string>{"[INFO] " + kTag + "Entered", "[INFO] " + kTag + "Leaving"}),
        log.bodies());
}

TEST_F(OTMiddlewareDetection, Selection1024BehavesAs1023And1025IsRefused) {
    install(kSR1);
    EXPECT_EQ(2001, TqOTMiddlewareDetection(1024, nullptr));
    EXPECT_EQ(-1, TqOTMiddlewareDetection(1025, log.path()));
    EXPECT_EQ((std::vector<std::string>{"[INFO] " + kTag + "Entered",
                                        "[ERROR] " + kTag +
                                            "Exception Occurred - Invalid Middleware selection. "
                                            "Option 1025 out of range."}),
              log.bodies());
}

TEST_F(OTMiddlewareDetection, Selections3001To3004TestOneReleaseEach) {
    install(k3001);
    install(k3004);
    EXPECT_EQ(3001, TqOTMiddlewareDetection(3001, nullptr));
    EXPECT_EQ(0, TqOTMiddlewareDetection(3002, nullptr));
    EXPECT_EQ(0, TqOTMiddlewareDetection(3003, nullptr));
    EXPECT_EQ(3004, TqOTMiddlewareDetection(3004, log.path()));
    EXPECT_EQ((std::vector<std::string>{"[INFO] " + kTag + "Entered",
                                        found("32bit OT Admin Middleware Version 5.2.0 SR5"),
                                        "[INFO] " + kTag + "Leaving"}),
              log.bodies());
}

TEST_F(OTMiddlewareDetection, ZeroAndSelectionsAbove3004AreInvalid) {
    EXPECT_EQ(-1, TqOTMiddlewareDetection(0, log.path()));
    EXPECT_EQ(-1, TqOTMiddlewareDetection(3005, log.path()));
    EXPECT_EQ(-1, TqOTMiddlewareDetection(0xFFFFFFFFu, log.path()));
    const std::string invalid =
        "[ERROR] " + kTag + "Exception Occurred - Invalid Middleware detection selection";
    const std::string entered = "[INFO] " + kTag + "Entered";
    EXPECT_EQ((std::vector<std::string>{entered, invalid, entered, invalid, entered, invalid}),
              log.bodies());
}

TEST_F(OTMiddlewareDetection, KeyThatRefusesAccessCountsAsInstalled) {
    zeltest::DeniedKey denied(HKEY_LOCAL_MACHINE, kUninstall + k3002, KEY_WOW64_64KEY);
    EXPECT_EQ(3002, TqOTMiddlewareDetection(3002, log.path()));
    EXPECT_EQ((std::vector<std::string>{
                  "[INFO] " + kTag + "Entered",
                  "[INFO] " + kTag + " : Succcessfully detected ( via access denied test ) " +
                      "64bit OT Admin Middleware Version 5.2.0 SR5.",
                  "[INFO] " + kTag + "Leaving"}),
              log.bodies());
}

TEST_F(OTMiddlewareDetection, OnlyThe64BitViewCounts) {
    install(k3003, KEY_WOW64_32KEY);
    EXPECT_EQ(0, TqOTMiddlewareDetection(3003, nullptr));
}

TEST_F(OTMiddlewareDetection, PlatformOperationPassesFoundIdsAndFailsOnNegativeCodes) {
    install(k3001);
    TqZelDLLPlatform platform;
    EXPECT_EQ(3001, platform.OberthurMiddlewareDetection(1, log.path()));
    EXPECT_EQ(-1, platform.OberthurMiddlewareDetection(5000, log.path()));
    const auto bodies = log.bodies();
    ASSERT_FALSE(bodies.empty());
    EXPECT_EQ("[INFO] TqZelDLLPlatform::OberthurMiddlewareDetection : Leaving", bodies[4]);
    EXPECT_EQ("[ERROR] TqZelDLLPlatform::OberthurMiddlewareDetection : Failed to detect the "
              "required Oberthur Middleware. Error Code: (0x00000001) One or more invalid "
              "arguments.",
              bodies.back());
}

} // namespace
