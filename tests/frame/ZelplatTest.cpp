// The support tool as support staff run it: a separate process, its streams and exit code.
#include "card/TqEnrollmentMode.h"
#include "support/TestSupport.h"

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
