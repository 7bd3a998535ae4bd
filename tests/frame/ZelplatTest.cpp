// The support tool as support staff run it: a separate process, its streams and exit code.
#include "card/TqEnrollmentMode.h"
#include "identityagent/IdentityAgentFixture.h"
#include "identityagent/TqIdentityAgent.h"
#include "support/KitProcesses.h"
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
    EXPECT_EQ(0u, run.out.find("usage: zelplat [--log FILE] [--verbose] COMMAND [ARGUMENTS]"));
    EXPECT_NE(std::string::npos, run.out.find("enrollment set AGILE|COMPATIBILITY"));
    EXPECT_NE(std::string::npos, run.out.find("file-version PATH"));
    EXPECT_NE(std::string::npos, run.out.find("ia --table"));
    EXPECT_NE(std::string::npos, run.out.find("ia spring-check off|default"));
    EXPECT_NE(std::string::npos, run.out.find("  --version    show zelplat's version\r\n"));
    EXPECT_EQ("", run.err);
}

// ZEL_TEST_PROJECT_VERSION is the version of project() in the root CMakeLists.txt.
TEST_F(Zelplat, VersionPrintsTheProjectVersionAloneAndExits0) {
    const auto run = zelplat("--version");
    EXPECT_EQ(0u, run.exitCode);
    EXPECT_EQ("zelplat " ZEL_TEST_PROJECT_VERSION "\r\n", run.out);
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

TEST_F(Zelplat, MissingSettingPrintsNotSetAndExits10WithTheLibrarysCode11) {
    const auto run = zelplat("enrollment get");
    EXPECT_EQ(10u, run.exitCode);
    EXPECT_EQ("NOT SET\r\n", run.out);
    EXPECT_EQ("zelplat: (0x0000000b) Not found.\r\n", run.err);
}

// Words in any letter case: the library gets its own spelling.
TEST_F(Zelplat, AppletInAnyLetterCaseSwitchesToItsWord) {
    auto run = zelplat("enrollment set agile");
    EXPECT_EQ(0u, run.exitCode);
    EXPECT_EQ("", run.out);
    EXPECT_EQ("", run.err);
    run = zelplat("ENROLLMENT Get");
    EXPECT_EQ(0u, run.exitCode);
    EXPECT_EQ("AGILE\r\n", run.out);
    run = zelplat("enrollment set Compatibility");
    EXPECT_EQ(0u, run.exitCode);
    EXPECT_EQ("COMPATIBILITY\r\n", zelplat("enrollment get").out);
}

// An unknown word never reaches the library: nothing is written, the words are listed.
TEST_F(Zelplat, UnknownAppletIsRefusedWithTheWords) {
    const auto run = zelplat("enrollment set sideways");
    EXPECT_EQ(30u, run.exitCode);
    EXPECT_EQ("", run.out);
    EXPECT_EQ(
        "zelplat: enrollment set: 'sideways' is not one of the words AGILE, COMPATIBILITY\r\n",
        run.err);
    EXPECT_FALSE(zeltest::KeyExists(HKEY_CURRENT_USER, kTqEnrollmentKey));
}

TEST_F(Zelplat, FileVersionPrintsTheMajorNumber) {
    auto run = zelplat("file-version \"" + zeltest::BuiltFile("version_10_0_19041_1.dll") + "\"");
    EXPECT_EQ(0u, run.exitCode);
    EXPECT_EQ("10\r\n", run.out);
    run = zelplat("file-version C:\\no\\such.dll");
    EXPECT_EQ(10u, run.exitCode);
    EXPECT_EQ("", run.out);
    EXPECT_EQ("zelplat: (0x0000000b) Not found.\r\n", run.err);
}

TEST_F(Zelplat, LogOptionSendsTheLibrarysLinesToTheFile) {
    zeltest::ScratchLogFile log;
    const auto run = zelplat(std::string("--log \"") + log.path() + "\" enrollment get");
    EXPECT_EQ(10u, run.exitCode);
    const std::string text = log.contents();
    EXPECT_NE(std::string::npos,
              text.find("[INFO] TqZelDLLPlatform::getEnrollmentMode : Entered\r\n"));
    EXPECT_NE(
        std::string::npos,
        text.find("[WARN] TqZelPlatformMethods::TqGetEnrollmentMode : Registry VKey Not Set\r\n"));
}

TEST_F(Zelplat, UnknownCommandOrMissingArgumentShowsUsageAndExits30) {
    for (const char* arguments : {"", "enrollment", "enrollment set", "frobnicate", "--log"}) {
        const auto run = zelplat(arguments);
        EXPECT_EQ(30u, run.exitCode) << arguments;
        EXPECT_EQ("", run.out) << arguments;
        EXPECT_NE(std::string::npos, run.err.find("usage: zelplat")) << arguments;
    }
}

// --- one language: any letter case, help words, options anywhere, precise usage errors ---------

TEST_F(Zelplat, EveryWordIsTakenInAnyLetterCase) {
    auto run = zelplat("DOCTOR --JSON");
    EXPECT_NE(30u, run.exitCode) << run.err;
    EXPECT_EQ(0u, run.out.find("{")) << run.out;
    run = zelplat("Report");
    EXPECT_EQ(0u, run.exitCode) << run.err;
    EXPECT_EQ(0u, run.out.find("{")) << run.out;
    run = zelplat("Help");
    EXPECT_EQ(0u, run.exitCode);
    EXPECT_EQ(0u, run.out.find("usage: zelplat [--log FILE] [--verbose] COMMAND [ARGUMENTS]"));
    EXPECT_EQ(0u, zelplat("--HELP").out.find("usage: zelplat [--log FILE]"));
    EXPECT_EQ(0u, zelplat("HELP Report").out.find("usage: zelplat report "));
    run = zelplat("--VERSION");
    EXPECT_EQ(0u, run.exitCode);
    EXPECT_EQ("zelplat " ZEL_TEST_PROJECT_VERSION "\r\n", run.out);
    run = zelplat("Card list");
    EXPECT_NE(30u, run.exitCode) << run.err;
    EXPECT_EQ(std::string::npos, run.err.find("usage:")) << run.err;
    run = zelplat("doctor --FIX --Dry-Run --SCOPE Machine");
    EXPECT_NE(30u, run.exitCode) << run.err;
    EXPECT_EQ(std::string::npos, run.err.find("usage:")) << run.err;
    run = zelplat("Middleware --TABLE");
    EXPECT_EQ(0u, run.exitCode) << run.err;
    EXPECT_EQ(0u, run.out.find("MIDDLEWARE ")) << run.out;
    zeltest::ScratchLogFile log;
    run = zelplat(std::string("--LOG \"") + log.path() + "\" ENROLLMENT GET");
    EXPECT_EQ(10u, run.exitCode);
    EXPECT_NE(std::string::npos,
              log.contents().find("[INFO] TqZelDLLPlatform::getEnrollmentMode : Entered\r\n"));
}

TEST_F(Zelplat, HelpWordsShowTheGeneralHelpOrTheCommandsOwn) {
    const std::string general = zelplat("--help").out;
    for (const char* arguments : {"/?", "-?", "-h", "-H", "help"}) {
        const auto run = zelplat(arguments);
        EXPECT_EQ(0u, run.exitCode) << arguments;
        EXPECT_EQ(general, run.out) << arguments;
        EXPECT_EQ("", run.err) << arguments;
    }
    const std::string report = zelplat("help report").out;
    ASSERT_EQ(0u, report.find("usage: zelplat report ")) << report;
    for (const char* arguments : {"report /?", "report -?", "Report -h", "report --json --help"}) {
        const auto run = zelplat(arguments);
        EXPECT_EQ(0u, run.exitCode) << arguments;
        EXPECT_EQ(report, run.out) << arguments;
    }
    for (const char* arguments : {"atr set -h", "enrollment /?", "ia spring-check -?"}) {
        const auto run = zelplat(arguments);
        EXPECT_EQ(0u, run.exitCode) << arguments;
        EXPECT_EQ(0u, run.out.find("usage: zelplat ")) << arguments;
        EXPECT_NE(std::string::npos, run.out.find(std::string(arguments).substr(0, 3)))
            << arguments;
        EXPECT_FALSE(zeltest::KeyExists(HKEY_CURRENT_USER, kTqEnrollmentKey)) << arguments;
    }
}

// The table once in the general help: every command exits by it.
TEST_F(Zelplat, GeneralHelpShowsTheExitCodeTableOnce) {
    const std::string out = zelplat("help").out;
    const std::string table = "Exit codes (every command):\r\n"
                              "   0  done: the answer is printed, whatever it says; the doctor: "
                              "nothing found\r\n";
    const std::size_t at = out.find(table);
    ASSERT_NE(std::string::npos, at) << out;
    EXPECT_EQ(std::string::npos, out.find("Exit codes", at + 1));
    for (const char* row : {"\r\n   1  ", "\r\n   2  ", "\r\n  10  ", "\r\n  20  ", "\r\n  21  ",
                            "\r\n  30  ", "\r\n  40  ", "\r\n  50  ", "\r\n  51  "}) {
        EXPECT_NE(std::string::npos, out.find(row, at)) << row;
    }
}

TEST_F(Zelplat, LogAndVerboseAreTakenAnywhereOnTheLine) {
    zeltest::ScratchLogFile log;
    auto run = zelplat(std::string("enrollment get --log \"") + log.path() + "\"");
    EXPECT_EQ(10u, run.exitCode) << run.err;
    EXPECT_EQ("NOT SET\r\n", run.out);
    EXPECT_NE(std::string::npos,
              log.contents().find("[INFO] TqZelDLLPlatform::getEnrollmentMode : Entered\r\n"));
    run = zelplat("enrollment --verbose set AGILE");
    EXPECT_EQ(0u, run.exitCode) << run.err;
    EXPECT_EQ("AGILE\r\n", zelplat("enrollment get").out);
    run = zelplat("enrollment get --log");
    EXPECT_EQ(30u, run.exitCode);
    EXPECT_EQ(0u, run.err.find("zelplat: --log needs a file name\r\n")) << run.err;
}

// The word that is wrong, or the piece that is missing, then that command's usage alone.
TEST_F(Zelplat, UsageErrorNamesTheWordAndShowsThatCommandsUsageOnly) {
    const struct {
        const char* arguments;
        const char* problem;
        const char* usage;
    } cases[] = {
        {"enrollment", "enrollment: get or set missing", "usage: zelplat enrollment get\r\n"},
        {"Enrollment Set", "Enrollment Set: AGILE|COMPATIBILITY missing",
         "usage: zelplat enrollment get\r\n"},
        {"enrollment get extra", "enrollment get: unexpected word 'extra'",
         "usage: zelplat enrollment get\r\n"},
        {"enrollment sit AGILE", "enrollment: unknown word 'sit' (get or set expected)",
         "usage: zelplat enrollment get\r\n"},
        {"file-version", "file-version: PATH missing", "usage: zelplat file-version PATH\r\n"},
        {"file-version a b", "file-version a: unexpected word 'b'",
         "usage: zelplat file-version PATH\r\n"},
        {"ia spring-check on", "ia spring-check: unknown word 'on' (off or default expected)",
         "usage: zelplat ia [--table]\r\n"},
        {"ia --tables",
         "ia: unknown word '--tables' (--table or spring-check, or nothing expected)",
         "usage: zelplat ia [--table]\r\n"},
        {"atr", "atr: get or set missing", "usage: zelplat atr get\r\n"},
        {"report --yaml", "report: unknown option '--yaml'", "usage: zelplat report "},
        {"doctor --dry-run", "doctor: --dry-run goes with --fix", "usage: zelplat doctor "},
        {"doctor --fix --scope everyone", "doctor: --scope takes machine or user, not 'everyone'",
         "usage: zelplat doctor "},
        {"doctor --only no-such-rule", "doctor: --only: no rule 'no-such-rule'",
         "usage: zelplat doctor "},
        {"card list extra", "card list: unexpected word 'extra'", "usage: zelplat card list\r\n"},
        {"card check", "card check: READER missing", "usage: zelplat card list\r\n"},
        {"card", "card: list, check or clear-cache missing", "usage: zelplat card list\r\n"},
        {"help frobnicate", "help: no command 'frobnicate'", "usage: zelplat help COMMAND\r\n"},
    };
    for (const auto& step : cases) {
        const auto run = zelplat(step.arguments);
        EXPECT_EQ(30u, run.exitCode) << step.arguments;
        EXPECT_EQ("", run.out) << step.arguments;
        EXPECT_EQ(0u,
                  run.err.find(std::string("zelplat: ") + step.problem + "\r\n\r\n" + step.usage))
            << run.err;
        // Not the general help with every command.
        EXPECT_EQ(std::string::npos, run.err.find("\r\ncommands:\r\n")) << step.arguments;
    }
    EXPECT_FALSE(zeltest::KeyExists(HKEY_CURRENT_USER, kTqEnrollmentKey));
}

TEST_F(Zelplat, UnknownCommandNamesItWithAShortUsage) {
    const auto run = zelplat("frobnicate --json");
    EXPECT_EQ(30u, run.exitCode);
    EXPECT_EQ("", run.out);
    EXPECT_EQ("zelplat: unknown command 'frobnicate'\r\n\r\n"
              "usage: zelplat [--log FILE] [--verbose] COMMAND [ARGUMENTS]\r\n"
              "commands: report, doctor, card, enrollment, file-version, middleware,\r\n"
              "          oberthur, atr, ia, help\r\n"
              "zelplat help shows them all; zelplat help COMMAND one of them.\r\n",
              run.err);
}

// --- one exit-code table -----------------------------------------------------------------------

bool inTheTable(DWORD code) {
    for (const DWORD row : {0u, 1u, 2u, 10u, 20u, 21u, 30u, 40u, 50u, 51u}) {
        if (code == row) {
            return true;
        }
    }
    return false;
}

// On a bare prefix every command, reading or switching, ends on a code of the table: never
// negative, never a result code of the library.
TEST_F(Zelplat, EveryCommandOnABarePrefixExitsWithACodeOfTheTable) {
    for (const char* arguments : {"report",
                                  "report --table",
                                  "doctor",
                                  "doctor --json",
                                  "doctor --fix --dry-run",
                                  "card list",
                                  "enrollment get",
                                  "enrollment set AGILE",
                                  "file-version C:\\windows\\win.ini",
                                  "file-version C:\\windows",
                                  "file-version C:\\no\\such.dll",
                                  "middleware",
                                  "middleware --table",
                                  "oberthur",
                                  "atr get",
                                  "ia",
                                  "ia --table",
                                  "ia spring-check off",
                                  "ia spring-check default",
                                  "help",
                                  "--version",
                                  "help doctor",
                                  "frobnicate"}) {
        const auto run = zelplat(arguments);
        EXPECT_TRUE(inTheTable(run.exitCode)) << arguments << ": " << run.exitCode << run.err;
    }
    for (const char* arguments :
         {"card check \"ZelKit Reader 0\" --pin-stdin", "card clear-cache \"ZelKit Reader 0\""}) {
        const auto run = zeltest::RunProgramWithInput(
            "\"" + zeltest::BuiltFile("zelplat.exe") + "\" " + arguments, "1234\n");
        EXPECT_TRUE(inTheTable(run.exitCode)) << arguments << ": " << run.exitCode << run.err;
    }
}

// Every command that asks the library says so with 40 when it cannot be loaded.
TEST_F(Zelplat, EveryLibraryCommandExits40WhenTheLibraryCannotBeLoaded) {
    char temp[MAX_PATH + 1] = {};
    ::GetTempPathA(sizeof temp, temp);
    const std::string folder = std::string(temp) + "zelplat-without-library";
    ::CreateDirectoryA(folder.c_str(), nullptr);
    const std::string alone = folder + "\\zelplat.exe";
    ASSERT_TRUE(::CopyFileA(zeltest::BuiltFile("zelplat.exe").c_str(), alone.c_str(), FALSE));
    for (const char* arguments :
         {"report", "report --table", "doctor", "enrollment get", "enrollment set AGILE",
          "file-version C:\\windows\\win.ini", "middleware", "oberthur", "atr get",
          "atr set GEMSAFE", "ia", "ia --table", "ia spring-check default"}) {
        const auto run = RunProgram("\"" + alone + "\" " + arguments);
        EXPECT_EQ(40u, run.exitCode) << arguments << run.err;
        EXPECT_EQ("", run.out) << arguments;
    }
    ::DeleteFileA(alone.c_str());
    ::RemoveDirectoryA(folder.c_str());
    EXPECT_FALSE(zeltest::KeyExists(HKEY_CURRENT_USER, kTqEnrollmentKey));
}

// --- the Identity Agent ------------------------------------------------------------------------

// Standard output and error reach the files through the C runtime's text mode: every line feed,
// also those inside the document and after a system text's own "\r\n", gains a carriage return.
// Lines as zelplat shows the library's: every line, whether the library ended it with "\n" or
// "\r\n", ends in one "\r\n".
std::string consoleLines(const std::string& text) {
    std::string converted;
    for (std::size_t at = 0; at < text.size(); ++at) {
        if (text[at] == '\r' && at + 1 < text.size() && text[at + 1] == '\n') {
            continue;
        }
        if (text[at] == '\n') {
            converted += '\r';
        }
        converted += text[at];
    }
    return converted;
}

std::string textMode(const std::string& text) {
    std::string converted;
    for (const char c : text) {
        if (c == '\n') {
            converted += '\r';
        }
        converted += c;
    }
    return converted;
}

class ZelplatIdentityAgent : public iatest::IdentityAgentRegistry {
protected:
    static zeltest::ProcessResult zelplat(const std::string& arguments) {
        return RunProgram("\"" + zeltest::BuiltFile("zelplat.exe") + "\" " + arguments);
    }

    static std::string noAgentKeys() {
        return iatest::MissingKey(kTqIAUserKey) + iatest::MissingKey(kTqIAMachineKey32) +
               iatest::MissingKey(kTqIAPolicyKey) + iatest::MissingKey(kTqIAUserKey);
    }
};

const std::string kKVRFound = "TqDetectKVRIdentityAgent : Successfully detected KVR IA.\n";

TEST_F(ZelplatIdentityAgent, IaPrintsTheDocumentAloneOnStandardOutput) {
    installVessant();
    zeltest::AgentStandIn agent(kTqKVRAgentExecutable);
    ASSERT_TRUE(agent.running());
    const auto run = zelplat("ia");
    EXPECT_EQ(0u, run.exitCode);
    EXPECT_EQ(
        textMode(iatest::Document("KVR", "2", "11", "on", "false", "false", "unknown") + "\n"),
        run.out);
    // The library's own lines are zelplat's to keep: none on either stream.
    EXPECT_EQ("", run.err);
}

TEST_F(ZelplatIdentityAgent, VerboseShowsTheLibrarysLinesOnStandardError) {
    installVessant();
    zeltest::AgentStandIn agent(kTqKVRAgentExecutable);
    ASSERT_TRUE(agent.running());
    const auto run = zelplat("--verbose ia");
    EXPECT_EQ(0u, run.exitCode);
    EXPECT_EQ(
        textMode(iatest::Document("KVR", "2", "11", "on", "false", "false", "unknown") + "\n"),
        run.out);
    // In the order they were written, each line ended once, as zelplat ends its own.
    EXPECT_EQ(consoleLines(noAgentKeys() + kKVRFound), run.err);
}

TEST_F(ZelplatIdentityAgent, IaWithoutAnAgentIsAnAnswerAndExits0) {
    const auto run = zelplat("ia");
    EXPECT_EQ(0u, run.exitCode);
    EXPECT_EQ(
        textMode(iatest::Document("unknown", "0", "0", "unknown", "unknown", "unknown", "unknown") +
                 "\n"),
        run.out);
    EXPECT_EQ("", run.err);
}

TEST_F(ZelplatIdentityAgent, SpringCheckOffThenDefaultShowInTheDocument) {
    installVessant();
    zeltest::AgentStandIn agent(kTqKVRAgentExecutable);
    ASSERT_TRUE(agent.running());

    auto run = zelplat("ia spring-check off");
    EXPECT_EQ(0u, run.exitCode);
    EXPECT_EQ("", run.out);
    EXPECT_EQ("", run.err);
    run = zelplat("ia");
    EXPECT_EQ(0u, run.exitCode);
    EXPECT_EQ(
        textMode(iatest::Document("KVR", "2", "11", "off", "false", "true", "pending") + "\n"),
        run.out);

    run = zelplat("ia spring-check default");
    EXPECT_EQ(0u, run.exitCode);
    EXPECT_EQ("", run.out);
    EXPECT_EQ("", run.err);
    EXPECT_FALSE(
        zeltest::ReadValue(HKEY_CURRENT_USER, kTqIAUserKey, kTqCardRemovalCheckValue).present);
    EXPECT_FALSE(zeltest::ReadValue(HKEY_CURRENT_USER, kTqIAUserKey, kTqZelCheckValue).present);
}

TEST_F(ZelplatIdentityAgent, TableSummarisesASwitchedOffAgent) {
    installVessant();
    zeltest::AgentStandIn agent(kTqKVRAgentExecutable);
    ASSERT_TRUE(agent.running());
    ASSERT_EQ(0u, zelplat("ia spring-check off").exitCode);

    auto run = zelplat("ia --table");
    EXPECT_EQ(0u, run.exitCode);
    EXPECT_EQ("Agent:           KVR\r\n"
              "Version:         11.2\r\n"
              "Spring check:    off\r\n"
              "Locked:          no\r\n"
              "ZelCheck set:    yes\r\n"
              "Restarted since: no (the switch waits for the agent to restart)\r\n",
              run.out);

    ASSERT_TRUE(agent.Stop());
    zeltest::AgentStandIn restarted(kTqKVRAgentExecutable);
    ASSERT_TRUE(restarted.running());
    run = zelplat("ia --table");
    EXPECT_EQ(0u, run.exitCode);
    EXPECT_NE(std::string::npos, run.out.find("\r\nRestarted since: yes\r\n")) << run.out;
}

TEST_F(ZelplatIdentityAgent, TableOfALockedSettingAndOfNoAgent) {
    installBTNewer();
    zeltest::AgentStandIn agent(kTqBTAgentExecutable);
    ASSERT_TRUE(agent.running());
    zeltest::KitService checker;
    ASSERT_TRUE(checker.Start());
    auto run = zelplat("ia --table");
    EXPECT_EQ(0u, run.exitCode);
    EXPECT_EQ("Agent:           BT\r\n"
              "Version:         12.4\r\n"
              "Spring check:    on\r\n"
              "Locked:          yes (machine-wide or policy value)\r\n"
              "ZelCheck set:    unknown\r\n"
              "Restarted since: unknown\r\n",
              run.out);
    EXPECT_EQ("", run.err);

    ASSERT_TRUE(agent.Stop());
    run = zelplat("ia --table");
    EXPECT_EQ(0u, run.exitCode);
    EXPECT_EQ("Agent:           none installed and running\r\n"
              "Version:         -\r\n"
              "Spring check:    unknown\r\n"
              "Locked:          unknown\r\n"
              "ZelCheck set:    unknown\r\n"
              "Restarted since: unknown\r\n",
              run.out);
}

TEST_F(ZelplatIdentityAgent, SpringCheckOffWithoutTheAgentExits10WithTheLibrarysCode11) {
    installVessant();
    const auto run = zelplat("ia spring-check off");
    EXPECT_EQ(10u, run.exitCode);
    EXPECT_EQ("", run.out);
    EXPECT_EQ("zelplat: (0x0000000b) Not found.\r\n", run.err);
    EXPECT_FALSE(zeltest::KeyExists(HKEY_CURRENT_USER, kTqIAUserKey));
}

// Both detectors failed: the all-unknown answer is still printed, the library's result -15 is
// shown, and the exit code is the table's "could not assess", never negative.
TEST_F(ZelplatIdentityAgent, FailedDetectionPrintsTheAnswerAndExits10) {
    zeltest::DeleteKeyTree(HKEY_LOCAL_MACHINE, iatest::kUninstall32);
    const std::string explanation = "zelplat: (0x0000000f) Requested Resource Does not exist.\r\n";
    auto run = zelplat("ia");
    EXPECT_EQ(10u, run.exitCode);
    EXPECT_EQ(
        textMode(iatest::Document("unknown", "0", "0", "unknown", "unknown", "unknown", "unknown") +
                 "\n"),
        run.out);
    ASSERT_GE(run.err.size(), explanation.size()) << run.err;
    EXPECT_EQ(explanation, run.err.substr(run.err.size() - explanation.size()));

    run = zelplat("ia --table");
    EXPECT_EQ(10u, run.exitCode);
    EXPECT_EQ("Agent:           none installed and running\r\n"
              "Version:         -\r\n"
              "Spring check:    unknown\r\n"
              "Locked:          unknown\r\n"
              "ZelCheck set:    unknown\r\n"
              "Restarted since: unknown\r\n",
              run.out);
    ASSERT_GE(run.err.size(), explanation.size()) << run.err;
    EXPECT_EQ(explanation, run.err.substr(run.err.size() - explanation.size()));
}

// The library's "Access Denied." is the table's 20, with the library's text for the ticket.
TEST_F(ZelplatIdentityAgent, SpringCheckUnderADeniedKeyExits20) {
    installVessant();
    zeltest::AgentStandIn agent(kTqKVRAgentExecutable);
    ASSERT_TRUE(agent.running());
    zeltest::CreateKey(HKEY_CURRENT_USER, kTqIAUserKey);
    const zeltest::DeniedKey user(HKEY_CURRENT_USER, kTqIAUserKey);
    const std::string explanation = "zelplat: (0x00000010) Access Denied.\r\n";
    for (const char* arguments : {"ia spring-check off", "IA Spring-Check Default"}) {
        const auto run = zelplat(arguments);
        EXPECT_EQ(20u, run.exitCode) << arguments << run.err;
        EXPECT_EQ("", run.out) << arguments;
        EXPECT_EQ(explanation, run.err) << arguments;
    }
}

TEST_F(ZelplatIdentityAgent, UnknownIaWordsShowUsageAndExit30) {
    for (const char* arguments : {"ia spring-check", "ia spring-check on", "ia --tables",
                                  "ia --table extra", "ia spring-check off now"}) {
        const auto run = zelplat(arguments);
        EXPECT_EQ(30u, run.exitCode) << arguments;
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

TEST_F(ZelplatMiddleware, OberthurExits0WhetherOrNotDetected) {
    auto run = zelplat("oberthur");
    EXPECT_EQ(0u, run.exitCode);
    EXPECT_EQ("{\r\n\t\"OTMiddleware\": {\r\n\t\t\"Detected\": \"false\"\r\n\t}\r\n}\r\n", run.out);
    workstation.install(
        {"{ZELTEST-AWP}", "AWP 5.2.1 (64-bit)", "Oberthur Technologies", "5.2.1.77", 5, 2});
    run = zelplat("oberthur");
    EXPECT_EQ(0u, run.exitCode);
    EXPECT_NE(std::string::npos, run.out.find("\t\t\"Detected\": \"true\",\r\n"));
    EXPECT_EQ("", run.err);
}

TEST_F(ZelplatMiddleware, AtrSetThenGet) {
    auto run = zelplat("atr set PIVMINIDRIVER");
    EXPECT_EQ(0u, run.exitCode);
    // The library's own progress lines are kept off both streams: the output is the answer.
    EXPECT_EQ("", run.out);
    EXPECT_EQ("", run.err);
    run = zelplat("atr get");
    EXPECT_EQ(0u, run.exitCode);
    EXPECT_EQ("PIVMINIDRIVER\r\n", run.out);
    run = zelplat("atr set gemsafe --verbose");
    EXPECT_EQ(0u, run.exitCode);
    EXPECT_EQ("", run.out);
    EXPECT_EQ(0u, run.err.find("TqSetATRMiddlewareDetection : 64Bit Env\r\n"));
    EXPECT_EQ("GEMSAFE\r\n", zelplat("atr get").out);
    run = zelplat("atr set gem");
    EXPECT_EQ(30u, run.exitCode);
    EXPECT_EQ("zelplat: atr set: 'gem' is not one of the words GEMSAFE, PIVMINIDRIVER\r\n",
              run.err);
}

TEST_F(ZelplatMiddleware, AtrGetWithoutEntriesExits10WithTheLibrarysCode19) {
    const auto run = zelplat("atr get");
    EXPECT_EQ(10u, run.exitCode);
    EXPECT_EQ("", run.out);
    EXPECT_EQ("zelplat: (0x00000013) File access failed.\r\n", run.err);
}

} // namespace
