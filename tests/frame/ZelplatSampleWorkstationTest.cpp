// zelplat on the sample workstation of the README (demo/workstation.reg, imported with reg.exe as
// an administrator would): the report support staff send, the doctor a fleet tool runs, and the
// doctor's repairs.
#include "card/TqATRMiddleware.h"
#include "support/JsonSchemaCheck.h"
#include "support/TestSupport.h"

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <algorithm>
#include <fstream>
#include <string>
#include <vector>

namespace {

using nlohmann::json;

std::string sampleRegFile() {
    std::string path = std::string("Z:") + ZEL_TEST_SOURCE_DIR + "/demo/workstation.reg";
    std::replace(path.begin(), path.end(), '/', '\\');
    return path;
}

// The keys the sample file writes, as "[HKEY_...\path]" lines name them.
std::vector<std::pair<HKEY, std::string>> sampleKeys() {
    std::ifstream in(sampleRegFile());
    std::vector<std::pair<HKEY, std::string>> keys;
    for (std::string line; std::getline(in, line);) {
        if (!line.empty() && line.back() == '\r') {
            line.pop_back();
        }
        if (line.size() < 2 || line.front() != '[' || line.back() != ']') {
            continue;
        }
        const std::string name = line.substr(1, line.size() - 2);
        for (const auto& [prefix, root] :
             {std::pair<const char*, HKEY>{"HKEY_LOCAL_MACHINE\\", HKEY_LOCAL_MACHINE},
              {"HKEY_CURRENT_USER\\", HKEY_CURRENT_USER}}) {
            if (name.rfind(prefix, 0) == 0) {
                keys.emplace_back(root, name.substr(std::string(prefix).size()));
            }
        }
    }
    return keys;
}

std::string wow64File(const char* name) {
    char folder[MAX_PATH + 1] = {};
    const UINT length = ::GetSystemWow64DirectoryA(folder, sizeof folder);
    return std::string(folder, length) + "\\" + name;
}

class ZelplatSampleWorkstation : public ::testing::Test {
protected:
    void SetUp() override {
        removeSample();
        const auto imported = zeltest::RunProgram("reg.exe import \"" + sampleRegFile() + "\"");
        ASSERT_EQ(0u, imported.exitCode) << imported.out << imported.err;
        ASSERT_FALSE(sampleKeys().empty());
    }
    void TearDown() override { removeSample(); }

    static void removeSample() {
        for (const auto& [root, path] : sampleKeys()) {
            zeltest::DeleteKeyTree(root, path);
        }
    }

    static zeltest::ProcessResult zelplat(const std::string& arguments) {
        return zeltest::RunProgram("\"" + zeltest::BuiltFile("zelplat.exe") + "\" " + arguments);
    }

    // The first ATR byte of each JCOP 41 entry: 64-bit contact, contactless, 32-bit contact,
    // contactless.
    static std::vector<int> atrFirstBytes() {
        std::vector<int> bytes;
        for (const REGSAM view : {KEY_WOW64_64KEY, KEY_WOW64_32KEY}) {
            for (const char* key : {kTqJcopContactKey, kTqJcopContactlessKey}) {
                const auto value = zeltest::ReadValue(HKEY_LOCAL_MACHINE, key, "ATR", view);
                bytes.push_back(value.present && !value.data.empty() ? value.data[0] : -1);
            }
        }
        return bytes;
    }
};

TEST_F(ZelplatSampleWorkstation, ReportIsOneUtf8DocumentAndTheStreamsCarryNoLibraryLine) {
    const auto run = zelplat("report --json");
    EXPECT_EQ(0u, run.exitCode);
    EXPECT_EQ("", run.err);
    // nlohmann refuses text that is not UTF-8: one parse proves both.
    const json report = json::parse(run.out, nullptr, false);
    ASSERT_TRUE(report.is_object()) << run.out;
    EXPECT_EQ(std::vector<std::string>{},
              zeltest::SchemaViolations(zeltest::ReportSchema(), report));
    // The library's own lines are kept per section; the agent's detection writes some here.
    EXPECT_EQ((json{"TqDetectKVRIdentityAgent : KVR Identity Agent not executing."}),
              report["identityAgent"]["diagnostics"]);
    // A "found" answer is an answer, not a failure text.
    EXPECT_EQ(1, report["oberthur"]["result"]);
    EXPECT_EQ("detected", report["oberthur"]["outcome"]);
    EXPECT_EQ("The OT middleware is installed.", report["oberthur"]["outcomeText"]);
    EXPECT_EQ(nullptr, report["oberthur"]["resultText"]);
    for (auto section = report.begin(); section != report.end(); ++section) {
        if (section.value()["result"] == 1) {
            EXPECT_EQ(std::string::npos, section.value().dump().find("invalid arguments"))
                << section.key();
        }
    }
    // The 64-bit entries match no card; the 32-bit contact entry still claims it for GemSafe.
    EXPECT_EQ((json{{"64-bit", "PIV minidriver"}, {"32-bit", "GemSafeMD.dll"}}),
              report["atr"]["servedBy"]);
    EXPECT_EQ("disabled", report["atr"]["entries"][0]["effect"]);
    EXPECT_EQ("active", report["atr"]["entries"][2]["effect"]);
}

TEST_F(ZelplatSampleWorkstation, VerboseReportShowsTheLibrarysLinesOnStandardError) {
    const auto run = zelplat("--verbose report --json");
    EXPECT_EQ(0u, run.exitCode);
    EXPECT_NE(std::string::npos,
              run.err.find("TqDetectKVRIdentityAgent : KVR Identity Agent not executing.\r\n"));
    EXPECT_TRUE(json::parse(run.out, nullptr, false).is_object());
}

TEST_F(ZelplatSampleWorkstation, DoctorNamesTheMissingMinidriverFile) {
    const auto run = zelplat("doctor --json");
    EXPECT_EQ(2u, run.exitCode);
    EXPECT_EQ("", run.err);
    const json answer = json::parse(run.out, nullptr, false);
    ASSERT_TRUE(answer.is_object()) << run.out;
    const json& findings = answer["findings"];
    const auto missing = std::find_if(findings.begin(), findings.end(), [](const json& finding) {
        return finding["rule"] == "minidriver-file-missing";
    });
    ASSERT_NE(findings.end(), missing) << run.out;
    EXPECT_EQ("problem", (*missing)["severity"]);
    EXPECT_EQ("A JCOP 41 card entry gives the card to GemSafeMD.dll, which is not installed: "
              "programs of that view cannot use the card.",
              (*missing)["summary"]);
    EXPECT_EQ(
        (json{{"contact 32-bit", "GemSafeMD.dll not found at " + wow64File("GemSafeMD.dll")}}),
        (*missing)["facts"]);
    EXPECT_EQ("zelplat atr set PIVMINIDRIVER", (*missing)["fix"]);
}

// Detection and remediation, as a fleet tool pairs them.
TEST_F(ZelplatSampleWorkstation, DoctorFixYesRepairsWhatItCanAndTheDoctorFindsNoProblemAfter) {
    EXPECT_EQ(2u, zelplat("doctor").exitCode);
    const auto fixed = zelplat("doctor --fix --yes");
    EXPECT_EQ(0u, fixed.out.find("fix atr-views-disagree: zelplat atr set PIVMINIDRIVER\r\n"
                                 "  applied\r\n"
                                 "fix minidriver-file-missing: zelplat atr set PIVMINIDRIVER\r\n"
                                 "  the same fix as above\r\n"
                                 "fix agent-not-running: zelplat cannot do this itself: start the "
                                 "agent (IdentityAgent.exe or GACService.exe), then zelplat ia "
                                 "--table\r\n"
                                 "\r\n"))
        << fixed.out;
    EXPECT_EQ("", fixed.err);
    // What is left: the agent that only a person can start, a warning.
    EXPECT_EQ(1u, fixed.exitCode);
    EXPECT_EQ((std::vector<int>{0xFF, 0xFF, 0xFF, 0xFF}), atrFirstBytes());
    const auto after = zelplat("doctor");
    EXPECT_EQ(1u, after.exitCode);
    EXPECT_EQ(std::string::npos, after.out.find("PROBLEM"));
    EXPECT_NE(std::string::npos, after.out.find("doctor: 0 problems, 1 warning\r\n"));
}

TEST_F(ZelplatSampleWorkstation, DoctorFixDryRunOnlyShows) {
    const std::vector<int> before = atrFirstBytes();
    const auto run = zelplat("doctor --fix --dry-run");
    EXPECT_EQ(2u, run.exitCode);
    EXPECT_EQ(0u, run.out.find("fix atr-views-disagree: zelplat atr set PIVMINIDRIVER\r\n"
                               "  not applied (--dry-run)\r\n"))
        << run.out;
    EXPECT_EQ(before, atrFirstBytes());
    EXPECT_EQ((std::vector<int>{0xFF, 0xFF, 0x3B, 0xFF}), before);
}

// Without --yes a person answers; no answer (no console, end of input) is no.
TEST_F(ZelplatSampleWorkstation, DoctorFixWithoutAnAnswerChangesNothing) {
    const auto run = zelplat("doctor --fix");
    EXPECT_EQ(2u, run.exitCode);
    EXPECT_EQ(0u, run.out.find("fix atr-views-disagree: zelplat atr set PIVMINIDRIVER\r\n"
                               "  apply it? [y/N] \r\n"
                               "  not applied\r\n"))
        << run.out;
    EXPECT_EQ((std::vector<int>{0xFF, 0xFF, 0x3B, 0xFF}), atrFirstBytes());
}

TEST_F(ZelplatSampleWorkstation, FixOptionsNeedFix) {
    const auto run = zelplat("doctor --yes");
    EXPECT_EQ(1u, run.exitCode);
    EXPECT_EQ(0u, run.err.find("zelplat: doctor: unknown option '--yes'\r\n")) << run.err;
    EXPECT_EQ((std::vector<int>{0xFF, 0xFF, 0x3B, 0xFF}), atrFirstBytes());
}

} // namespace
