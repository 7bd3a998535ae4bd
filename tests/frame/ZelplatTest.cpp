// The support tool as support staff run it: a separate process, its streams and exit code.
#include "card/TqEnrollmentMode.h"
#include "support/TestSupport.h"
#include "support/Workstation.h"

#include <gtest/gtest.h>

namespace {

using zeltest::RunProgram;

class Zelplat : public ::testing::Test {
protected:
    void SetUp() override { zeltest::DeleteKeyTree(HKEY_CURRENT_USER, kTqEnrollmentKey); }
    void TearDown() override { zeltest::DeleteKeyTree(HKEY_CURRENT_USER, kTqEnrollmentKey); }

    static zeltest::ProcessResult zelplat(const std::string& arguments) {
        return RunProgram("\"" + zeltest::BuiltFile("zelplat.exe") + "\" " + arguments);
    }
};

TEST_F(Zelplat, HelpListsTheCommandsAndExits0) {
    const auto run = zelplat("--help");
    EXPECT_EQ(0u, run.exitCode);
    EXPECT_EQ(0u, run.out.find("usage: zelplat [--log FILE] COMMAND [ARGUMENTS]"));
    EXPECT_NE(std::string::npos, run.out.find("enrollment set AGILE|COMPATIBILITY"));
    EXPECT_NE(std::string::npos, run.out.find("file-version PATH"));
    EXPECT_EQ("", run.err);
}

TEST_F(Zelplat, SetThenGetPrintsTheMode) {
    auto run = zelplat("enrollment set COMPATIBILITY");
    EXPECT_EQ(0u, run.exitCode);
    EXPECT_EQ("", run.out);
    EXPECT_EQ("", run.err);
    run = zelplat("enrollment get");
    EXPECT_EQ(0u, run.exitCode);
    EXPECT_EQ("COMPATIBILITY\r\n", run.out);
    EXPECT_EQ("", run.err);
}

TEST_F(Zelplat, MissingSettingPrintsNotSetAndExplainsCode11) {
    const auto run = zelplat("enrollment get");
    EXPECT_EQ(11u, run.exitCode);
    EXPECT_EQ("NOT SET\r\n", run.out);
    EXPECT_EQ("zelplat: (0x0000000b) Not found.\r\n", run.err);
}

TEST_F(Zelplat, UnknownAppletExplainsCode4) {
    const auto run = zelplat("enrollment set agile");
    EXPECT_EQ(4u, run.exitCode);
    EXPECT_EQ("", run.out);
    EXPECT_EQ("zelplat: (0x00000004) Internal error.\r\n", run.err);
}

TEST_F(Zelplat, FileVersionPrintsTheMajorNumber) {
    auto run = zelplat("file-version \"" + zeltest::BuiltFile("version_10_0_19041_1.dll") + "\"");
    EXPECT_EQ(0u, run.exitCode);
    EXPECT_EQ("10\r\n", run.out);
    run = zelplat("file-version C:\\no\\such.dll");
    EXPECT_EQ(11u, run.exitCode);
    EXPECT_EQ("", run.out);
    EXPECT_EQ("zelplat: (0x0000000b) Not found.\r\n", run.err);
}

TEST_F(Zelplat, LogOptionSendsTheLibrarysLinesToTheFile) {
    zeltest::ScratchLogFile log;
    const auto run = zelplat(std::string("--log \"") + log.path() + "\" enrollment get");
    EXPECT_EQ(11u, run.exitCode);
    const std::string text = log.contents();
    EXPECT_NE(std::string::npos,
              text.find("[INFO] TqZelDLLPlatform::getEnrollmentMode : Entered\n"));
    EXPECT_NE(
        std::string::npos,
        text.find("[WARN] TqZelPlatformMethods::TqGetEnrollmentMode : Registry VKey Not Set\n"));
}

TEST_F(Zelplat, UnknownCommandOrMissingArgumentShowsUsageAndExits1) {
    for (const char* arguments : {"", "enrollment", "enrollment set", "frobnicate", "--log"}) {
        const auto run = zelplat(arguments);
        EXPECT_EQ(1u, run.exitCode) << arguments;
        EXPECT_EQ("", run.out) << arguments;
        EXPECT_NE(std::string::npos, run.err.find("usage: zelplat")) << arguments;
    }
}

} // namespace

namespace {

class ZelplatMiddleware : public ::testing::Test {
protected:
    void SetUp() override { removeEntries(); }
    void TearDown() override { removeEntries(); }
    static void removeEntries() {
        for (REGSAM view : {KEY_WOW64_64KEY, KEY_WOW64_32KEY}) {
            zeltest::DeleteKeyTree(HKEY_LOCAL_MACHINE,
                                   "SOFTWARE\\Microsoft\\Cryptography\\Calais\\SmartCards\\JCOP "
                                   "41 T=1",
                                   view);
            zeltest::DeleteKeyTree(HKEY_LOCAL_MACHINE,
                                   "SOFTWARE\\Microsoft\\Cryptography\\Calais\\SmartCards\\JCOP "
                                   "41 T=1 RFID on OMNIKEY CardMan 5x21-CL",
                                   view);
        }
    }
    static zeltest::ProcessResult zelplat(const std::string& arguments) {
        return RunProgram("\"" + zeltest::BuiltFile("zelplat.exe") + "\" " + arguments);
    }

    zeltest::Workstation workstation;
};

TEST_F(ZelplatMiddleware, MiddlewarePrintsTheDocument) {
    const auto run = zelplat("middleware");
    EXPECT_EQ(0u, run.exitCode);
    EXPECT_EQ("{\r\n\t\"GemaltoMiddleware\": {\r\n\t\t\"Detected\": \"false\"\r\n\t},\r\n"
              "\t\"OTMiddleware\": {\r\n\t\t\"Detected\": \"false\"\r\n\t},\r\n"
              "\t\"Idemia09Middleware\": {\r\n\t\t\"Detected\": \"false\"\r\n\t},\r\n"
              "\t\"Idemia09MSUpdate\": {\r\n\t\t\"Detected\": \"false\"\r\n\t},\r\n"
              "\t\"IdemiaCombinedMiddleware\": {\r\n\t\t\"Detected\": \"false\"\r\n\t},\r\n"
              "\t\"IdemiaCombinedMinidriverMSUpdate\": {\r\n\t\t\"Detected\": \"false\"\r\n\t}\r\n"
              "}\r\n",
              run.out);
    EXPECT_EQ("", run.err);
}

TEST_F(ZelplatMiddleware, TableShowsOneLinePerRow) {
    workstation.install(
        {"{ZELTEST-GEMALTO}", "Classic Client 7.3 Patch 1 64 bits", "Gemalto", "7.3.1.23", 7, 3});
    const auto run = zelplat("middleware --table");
    EXPECT_EQ(0u, run.exitCode);
    EXPECT_EQ("MIDDLEWARE                         STATE         NAME                              "
              "         VERSION      PLATFORM\r\n"
              "GemaltoMiddleware                  detected      Classic Client 7.3 Patch 1 64 "
              "bits         7.3.1.23     64-bit\r\n"
              "OTMiddleware                       not detected\r\n"
              "Idemia09Middleware                 not detected\r\n"
              "Idemia09MSUpdate                   not detected\r\n"
              "IdemiaCombinedMiddleware           not detected\r\n"
              "IdemiaCombinedMinidriverMSUpdate   not detected\r\n",
              run.out);
}

TEST_F(ZelplatMiddleware, OberthurExitsWith1WhenDetectedWithoutCallingItAFailure) {
    auto run = zelplat("oberthur");
    EXPECT_EQ(0u, run.exitCode);
    EXPECT_EQ("{\r\n\t\"OTMiddleware\": {\r\n\t\t\"Detected\": \"false\"\r\n\t}\r\n}\r\n", run.out);
    workstation.install(
        {"{ZELTEST-AWP}", "AWP 5.2.1 (64-bit)", "Oberthur Technologies", "5.2.1.77", 5, 2});
    run = zelplat("oberthur");
    EXPECT_EQ(1u, run.exitCode);
    EXPECT_NE(std::string::npos, run.out.find("\t\t\"Detected\": \"true\",\r\n"));
    EXPECT_EQ("", run.err);
}

TEST_F(ZelplatMiddleware, AtrSetThenGet) {
    auto run = zelplat("atr set PIVMINIDRIVER");
    EXPECT_EQ(0u, run.exitCode);
    // The library's own progress lines go to the process's standard output.
    EXPECT_EQ(0u, run.out.find("TqSetATRMiddlewareDetection : 64Bit Env\r\n"));
    run = zelplat("atr get");
    EXPECT_EQ(0u, run.exitCode);
    EXPECT_EQ("PIVMINIDRIVER\r\n", run.out);
    run = zelplat("atr set gemsafe");
    EXPECT_EQ(14u, run.exitCode);
    EXPECT_EQ("zelplat: (0x0000000e) Unsupported feature, device or program.\r\n", run.err);
}

TEST_F(ZelplatMiddleware, AtrGetWithoutEntriesExplainsCode19) {
    const auto run = zelplat("atr get");
    EXPECT_EQ(19u, run.exitCode);
    EXPECT_EQ("zelplat: (0x00000013) File access failed.\r\n", run.err);
}

} // namespace
