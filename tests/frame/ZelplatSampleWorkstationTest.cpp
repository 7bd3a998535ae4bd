// zelplat on the sample workstation of the README (demo/workstation.reg, imported with reg.exe as
// an administrator would): the report support staff send, the doctor a fleet tool runs, and the
// doctor's repairs with their undo records and exit codes.
//
// Under Wine every process runs as the one user, elevated: "needs an administrator" and a
// per-user fix skipped for another account cannot be made here; the refusal of a key that
// cannot be opened for writing can, and stands for both.
#include "card/TqATRMiddleware.h"
#include "base/TqResultCodes.h"
#include "support/JsonSchemaCheck.h"
#include "support/TestSupport.h"
#include "support/Workstation.h"

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <algorithm>
#include <fstream>
#include <sstream>
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

// An environment variable of the test process, which the programs it starts inherit, while it
// lives.
class ScopedEnvironment {
public:
    ScopedEnvironment(const char* name, const std::string& value) : name_(name) {
        char old[MAX_PATH + 1] = {};
        const DWORD length = ::GetEnvironmentVariableA(name, old, sizeof old);
        had_ = length > 0 && length < sizeof old;
        old_.assign(old, had_ ? length : 0);
        ::SetEnvironmentVariableA(name, value.c_str());
    }
    ~ScopedEnvironment() { ::SetEnvironmentVariableA(name_, had_ ? old_.c_str() : nullptr); }
    ScopedEnvironment(const ScopedEnvironment&) = delete;
    ScopedEnvironment& operator=(const ScopedEnvironment&) = delete;

private:
    const char* name_;
    std::string old_;
    bool had_ = false;
};

// "Access denied." as this host words it, without the code and the line end.
std::string deniedText() {
    std::string text = zeltest::SystemText(ERROR_ACCESS_DENIED);
    while (!text.empty() && (text.back() == '\n' || text.back() == '\r' || text.back() == ' ')) {
        text.pop_back();
    }
    return text;
}

class ZelplatSampleWorkstation : public ::testing::Test {
protected:
    void SetUp() override {
        removeSample();
        const auto imported = zeltest::RunProgram("reg.exe import \"" + sampleRegFile() + "\"");
        ASSERT_EQ(0u, imported.exitCode) << imported.out << imported.err;
        ASSERT_FALSE(sampleKeys().empty());
    }
    void TearDown() override {
        removeSample();
        for (const std::string& record : records) {
            ::DeleteFileA(record.c_str());
        }
    }

    // The undo records a test made, removed at its end.
    std::vector<std::string> records;

    static void removeSample() {
        for (const auto& [root, path] : sampleKeys()) {
            zeltest::DeleteKeyTree(root, path);
        }
    }

    static zeltest::ProcessResult zelplat(const std::string& arguments) {
        return zeltest::RunProgram("\"" + zeltest::BuiltFile("zelplat.exe") + "\" " + arguments);
    }
    // The suite's build of zelplat with the doctor's test hook (doctor/RepairTestHook.h).
    static zeltest::ProcessResult zelplatWithTestHooks(const std::string& arguments) {
        return zeltest::RunProgram("\"" + zeltest::BuiltFile("zelplat_test_hooks.exe") + "\" " +
                                   arguments);
    }

    // Every value a JCOP 41 fix may write, in the library's order of keys: what a repair and its
    // undo must leave exactly as they found it.
    static std::vector<zeltest::StoredValue> entryValues() {
        std::vector<zeltest::StoredValue> values;
        for (const REGSAM view : {KEY_WOW64_64KEY, KEY_WOW64_32KEY}) {
            for (const char* key : {kTqJcopContactKey, kTqJcopContactlessKey}) {
                for (const char* name : {"80000001", "ATR", "ATRMask", "Crypto Provider",
                                         "Smart Card Key Storage Provider"}) {
                    values.push_back(zeltest::ReadValue(HKEY_LOCAL_MACHINE, key, name, view));
                }
            }
        }
        return values;
    }

    // The file an "undo record: PATH" line names; "" when there is none.
    static std::string recordPath(const std::string& out) {
        const std::string lead = "undo record: ";
        const std::size_t at = out.find(lead);
        if (at == std::string::npos) {
            return "";
        }
        const std::size_t end = out.find("\r\n", at);
        return out.substr(at + lead.size(), end - at - lead.size());
    }

    static json fileJson(const std::string& path) {
        std::ifstream in(path, std::ios::binary);
        std::stringstream text;
        text << in.rdbuf();
        return json::parse(text.str(), nullptr, false);
    }

    // Each value as "REG_BINARY 3BF9..." or "absent", for comparisons that show the difference.
    static std::vector<std::string> described(const std::vector<zeltest::StoredValue>& values) {
        std::vector<std::string> lines;
        for (const zeltest::StoredValue& value : values) {
            lines.push_back(value.present ? std::to_string(value.type) + " " + hex(value.data)
                                          : std::string("absent"));
        }
        return lines;
    }

    static std::string hex(const std::vector<BYTE>& bytes) {
        static const char kDigits[] = "0123456789ABCDEF";
        std::string text;
        for (const BYTE byte : bytes) {
            text += kDigits[byte >> 4];
            text += kDigits[byte & 15];
        }
        return text;
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
    const std::string record = recordPath(fixed.out);
    records.push_back(record);
    EXPECT_EQ("fix atr-views-disagree: zelplat atr set PIVMINIDRIVER\r\n"
              "  machine-wide: needs an administrator (or SYSTEM)\r\n"
              "fix minidriver-file-missing: zelplat atr set PIVMINIDRIVER\r\n"
              "  the same fix as above\r\n"
              "fix agent-not-running: zelplat cannot do this itself: start the agent "
              "(IdentityAgent.exe or GACService.exe), then zelplat ia --table\r\n"
              "\r\n"
              "undo record: " +
                  record +
                  "\r\n"
                  "zelplat atr set PIVMINIDRIVER: applied\r\n"
                  "\r\n",
              fixed.out.substr(0, fixed.out.find("WARNING")))
        << fixed.out;
    EXPECT_EQ("", fixed.err);
    // What is left: the agent that only a person can start, a warning.
    EXPECT_EQ(1u, fixed.exitCode);
    EXPECT_EQ((std::vector<int>{0xFF, 0xFF, 0xFF, 0xFF}), zeltest::JcopAtrFirstBytes());
    const auto after = zelplat("doctor");
    EXPECT_EQ(1u, after.exitCode);
    EXPECT_EQ(std::string::npos, after.out.find("PROBLEM"));
    EXPECT_NE(std::string::npos, after.out.find("doctor: 0 problems, 1 warning\r\n"));
    // A second run changes nothing.
    const std::vector<zeltest::StoredValue> fixedValues = entryValues();
    const auto again = zelplat("doctor --fix --yes");
    EXPECT_EQ(1u, again.exitCode);
    EXPECT_EQ("", recordPath(again.out)) << again.out;
    EXPECT_EQ(described(fixedValues), described(entryValues()));
}

// The AWP Uninstall entry gone (a half-uninstalled middleware) while Classic Client is registered
// without its GemSafeMD.dll: no fix may give the card to a file that is not there, and the
// advice does not go back and forth.
TEST_F(ZelplatSampleWorkstation, HalfUninstalledMiddlewareFixChangesNoCardEntryAndNamesTheFile) {
    zeltest::DeleteKeyTree(HKEY_LOCAL_MACHINE,
                           "SOFTWARE\\Microsoft\\Windows\\CurrentVersion\\Uninstall\\{78CD21FA-"
                           "042D-4AA8-A087-A082215EB661}",
                           KEY_WOW64_64KEY);
    const std::vector<zeltest::StoredValue> before = entryValues();
    const std::string reason =
        "needs a person: GemSafeMD.dll, which `atr set GEMSAFE` would point the card at, is not "
        "installed";
    const auto found = zelplat("doctor --json");
    EXPECT_EQ(2u, found.exitCode) << found.out;
    const json answer = json::parse(found.out, nullptr, false);
    ASSERT_TRUE(answer.is_object()) << found.out;
    std::vector<std::string> fixes;
    for (const json& finding : answer["findings"]) {
        fixes.push_back(finding["rule"].get<std::string>() + ": " +
                        finding["fix"].get<std::string>());
    }
    EXPECT_EQ((std::vector<std::string>{
                  "atr-middleware-missing: " + reason, "atr-views-disagree: " + reason,
                  "minidriver-file-missing: install the middleware that brings GemSafeMD.dll",
                  "agent-not-running: start the agent (IdentityAgent.exe or GACService.exe), then "
                  "zelplat ia --table"}),
              fixes);

    for (int run = 0; run < 2; ++run) {
        const auto fixed = zelplat("doctor --fix --yes");
        EXPECT_EQ(2u, fixed.exitCode) << fixed.out;
        EXPECT_EQ("", recordPath(fixed.out)) << fixed.out;
        EXPECT_EQ(0u, fixed.out.find("fix atr-middleware-missing: " + reason + "\r\n" +
                                     "fix atr-views-disagree: " + reason + "\r\n"))
            << fixed.out;
        EXPECT_EQ(std::string::npos, fixed.out.find("applied")) << fixed.out;
        EXPECT_EQ(described(before), described(entryValues()));
    }
}

// The record holds every entry's bytes as they were; the undo brings exactly those back, and
// with them the fault the doctor finds.
TEST_F(ZelplatSampleWorkstation, UndoRecordHoldsThePreFixBytesAndUndoPutsThemBack) {
    // A hand-tuned value, stored without its terminating NUL.
    const std::string tuned = "Hand Tuned CSP";
    zeltest::WriteExactValue(HKEY_LOCAL_MACHINE, kTqJcopContactlessKey, "Crypto Provider", REG_SZ,
                             std::vector<BYTE>(tuned.begin(), tuned.end()), KEY_WOW64_64KEY);
    const std::vector<zeltest::StoredValue> before = entryValues();
    ASSERT_EQ(20u, before.size());

    const auto fixed = zelplat("doctor --fix --yes --json");
    EXPECT_EQ(1u, fixed.exitCode) << fixed.err;
    const std::string path = recordPath(fixed.err);
    records.push_back(path);
    EXPECT_EQ(0u,
              path.find(std::string(std::getenv("ProgramData")) + "\\ZelPlatform\\repairs\\fix-"))
        << fixed.err;
    const json answer = json::parse(fixed.out, nullptr, false);
    EXPECT_EQ(std::vector<std::string>{},
              zeltest::SchemaViolations(zeltest::DocsSchema("doctor.schema.json"), answer));
    EXPECT_EQ(json::array({path}), answer["undoRecords"]);
    EXPECT_EQ(1, answer["schemaVersion"]);
    EXPECT_NE(described(before), described(entryValues()));

    const json record = fileJson(path);
    ASSERT_TRUE(record.is_object()) << path;
    EXPECT_EQ(std::vector<std::string>{},
              zeltest::SchemaViolations(zeltest::DocsSchema("undo-record.schema.json"), record));
    EXPECT_EQ("machine", record["scope"]);
    EXPECT_EQ(json::array({"zelplat atr set PIVMINIDRIVER"}), record["fixes"]);
    EXPECT_EQ("atr-views-disagree", record["findings"][0]["rule"]);
    char computer[MAX_COMPUTERNAME_LENGTH + 1] = {};
    DWORD size = sizeof computer;
    ASSERT_TRUE(::GetComputerNameA(computer, &size));
    EXPECT_EQ(json(std::string(computer, size)), record["computer"]);
    ASSERT_EQ(4u, record["keys"].size());
    std::vector<std::string> recorded;
    for (const json& key : record["keys"]) {
        EXPECT_EQ(true, key["existed"]);
        for (const json& value : key["values"]) {
            recorded.push_back(value["present"].get<bool>()
                                   ? value["type"].get<std::string>() + " " +
                                         value["data"].get<std::string>()
                                   : std::string("absent"));
        }
    }
    std::vector<std::string> expected;
    for (const zeltest::StoredValue& value : before) {
        expected.push_back(std::string(value.type == REG_SZ ? "REG_SZ" : "REG_BINARY") + " " +
                           hex(value.data));
    }
    EXPECT_EQ(expected, recorded);
    EXPECT_EQ("REG_SZ " + hex(std::vector<BYTE>(tuned.begin(), tuned.end())), recorded[8]);

    const auto undone = zelplat("doctor --undo \"" + path + "\"");
    EXPECT_EQ(0u, undone.exitCode) << undone.out << undone.err;
    const std::string undoRecord = recordPath(undone.out);
    records.push_back(undoRecord);
    EXPECT_EQ("undo " + path + "\r\nundo record: " + undoRecord +
                  "\r\nput back: every value the record holds\r\n",
              undone.out);
    EXPECT_EQ("", undone.err);
    EXPECT_EQ(described(before), described(entryValues()));
    const auto doctor = zelplat("doctor");
    EXPECT_EQ(2u, doctor.exitCode);
    EXPECT_NE(std::string::npos, doctor.out.find("PROBLEM  atr-views-disagree\r\n"));

    // The undo wrote its own record: the repair can be made again from it.
    EXPECT_EQ(0u, undoRecord.find(std::string(std::getenv("ProgramData")) +
                                  "\\ZelPlatform\\repairs\\undo-"));
    EXPECT_EQ(std::vector<std::string>{},
              zeltest::SchemaViolations(zeltest::DocsSchema("undo-record.schema.json"),
                                        fileJson(undoRecord)));
    const auto redone = zelplat("doctor --undo \"" + undoRecord + "\"");
    records.push_back(recordPath(redone.out));
    EXPECT_EQ(0u, redone.exitCode) << redone.out;
    EXPECT_EQ((std::vector<int>{0xFF, 0xFF, 0xFF, 0xFF}), zeltest::JcopAtrFirstBytes());
}

// The machine-wide records' folder is made, and kept, with the DACL
// "D:P(A;OICI;FA;;;BA)(A;OICI;FA;;;SY)" (administrators and SYSTEM only). Wine does not keep a
// file's or folder's security: it answers with SYSTEM and the user whatever was set, so that DACL
// cannot be checked here.

// The library stops at its first failure; zelplat puts back what it had written already.
TEST_F(ZelplatSampleWorkstation, FixThatFailsAfterItsFirstWritesLeavesBothViewsAsBefore) {
    // A hand-tuned 64-bit entry, which the library overwrites before it fails on the 32-bit view.
    const std::string tuned = "Hand Tuned KSP";
    zeltest::WriteExactValue(HKEY_LOCAL_MACHINE, kTqJcopContactKey,
                             "Smart Card Key Storage Provider", REG_SZ,
                             std::vector<BYTE>(tuned.begin(), tuned.end()), KEY_WOW64_64KEY);
    const std::vector<zeltest::StoredValue> before = entryValues();
    zeltest::ProcessResult fixed;
    {
        const ScopedEnvironment hook("ZELPLAT_TEST_HOOK",
                                     "deny-32-bit-contact-entry-during-atr-fix");
        fixed = zelplatWithTestHooks("doctor --fix --yes");
    }
    records.push_back(recordPath(fixed.out));
    EXPECT_NE(std::string::npos,
              fixed.out.find("zelplat atr set PIVMINIDRIVER: failed: " + TqGetCommonResultText(4) +
                             "\r\n  put back as the undo record holds it: nothing of this fix "
                             "is left\r\n"))
        << fixed.out;
    EXPECT_EQ(described(before), described(entryValues()));
    // The second pass reports what is really there: the fault is still there.
    EXPECT_NE(std::string::npos, fixed.out.find("PROBLEM  atr-views-disagree\r\n")) << fixed.out;
    EXPECT_EQ(2u, fixed.exitCode);
}

// What cannot be put back is named, and the exit code says access was denied.
TEST_F(ZelplatSampleWorkstation, FixThatCannotBePutBackExits20) {
    const std::vector<zeltest::StoredValue> before = entryValues();
    const zeltest::SavedKeySecurity kept(HKEY_LOCAL_MACHINE, kTqJcopContactKey, KEY_WOW64_32KEY);
    zeltest::ProcessResult fixed;
    {
        const ScopedEnvironment hook("ZELPLAT_TEST_HOOK", "deny-32-bit-contact-entry-from-atr-fix");
        fixed = zelplatWithTestHooks("doctor --fix --yes");
    }
    records.push_back(recordPath(fixed.out));
    EXPECT_EQ(20u, fixed.exitCode) << fixed.out;
    EXPECT_NE(std::string::npos,
              fixed.out.find("  not put back: HKLM\\" + std::string(kTqJcopContactKey) +
                             " (32-bit view) cannot be opened for writing: " + deniedText() +
                             "\r\n"))
        << fixed.out;
    // The 64-bit view, which the library had written, is back.
    const std::vector<std::string> was = described(before);
    const std::vector<std::string> now = described(entryValues());
    EXPECT_EQ(std::vector<std::string>(was.begin(), was.begin() + 10),
              std::vector<std::string>(now.begin(), now.begin() + 10));
}

TEST_F(ZelplatSampleWorkstation, DeniedEntryRefusesTheMachineWideFixBeforeAnythingIsWritten) {
    const std::vector<zeltest::StoredValue> before = entryValues();
    zeltest::ProcessResult fixed;
    {
        const zeltest::DeniedKey denied(HKEY_LOCAL_MACHINE, kTqJcopContactlessKey, KEY_WOW64_32KEY);
        fixed = zelplat("doctor --fix --yes");
    }
    EXPECT_EQ(21u, fixed.exitCode);
    EXPECT_EQ(0u, fixed.out.find("fix atr-views-disagree: zelplat atr set PIVMINIDRIVER\r\n"
                                 "  machine-wide: needs an administrator (or SYSTEM)\r\n"
                                 "  refused, nothing written: HKLM\\" +
                                 std::string(kTqJcopContactlessKey) +
                                 " (32-bit view) cannot be opened for writing: " + deniedText() +
                                 "\r\n"))
        << fixed.out;
    EXPECT_EQ(std::string::npos, fixed.out.find("undo record")) << fixed.out;
    EXPECT_EQ(described(before), described(entryValues()));
}

TEST_F(ZelplatSampleWorkstation, DoctorFixDryRunOnlyShows) {
    const std::vector<int> before = zeltest::JcopAtrFirstBytes();
    const auto run = zelplat("doctor --fix --dry-run");
    EXPECT_EQ(2u, run.exitCode);
    EXPECT_EQ(0u, run.out.find("fix atr-views-disagree: zelplat atr set PIVMINIDRIVER\r\n"
                               "  machine-wide: needs an administrator (or SYSTEM)\r\n"
                               "  not applied (--dry-run)\r\n"))
        << run.out;
    EXPECT_EQ(std::string::npos, run.out.find("undo record")) << run.out;
    EXPECT_EQ(before, zeltest::JcopAtrFirstBytes());
    EXPECT_EQ((std::vector<int>{0xFF, 0xFF, 0x3B, 0xFF}), before);
}

// The per-user run leaves the machine-wide fix to the run as SYSTEM.
TEST_F(ZelplatSampleWorkstation, ScopeUserLeavesTheMachineWideFix) {
    const auto run = zelplat("doctor --fix --yes --scope user");
    EXPECT_EQ(2u, run.exitCode);
    EXPECT_EQ(0u, run.out.find("fix atr-views-disagree: zelplat atr set PIVMINIDRIVER\r\n"
                               "  machine-wide: needs an administrator (or SYSTEM)\r\n"
                               "  left to the machine-wide run (--scope user)\r\n"))
        << run.out;
    EXPECT_EQ(std::string::npos, run.out.find("undo record")) << run.out;
    EXPECT_EQ((std::vector<int>{0xFF, 0xFF, 0x3B, 0xFF}), zeltest::JcopAtrFirstBytes());
}

// Without --yes a person answers; no answer (no console, end of input) is no.
TEST_F(ZelplatSampleWorkstation, DoctorFixWithoutAnAnswerChangesNothing) {
    const auto run = zelplat("doctor --fix");
    EXPECT_EQ(2u, run.exitCode);
    EXPECT_EQ(0u, run.out.find("fix atr-views-disagree: zelplat atr set PIVMINIDRIVER\r\n"
                               "  machine-wide: needs an administrator (or SYSTEM)\r\n"
                               "  apply it? [y/N] \r\n"
                               "  not applied\r\n"))
        << run.out;
    EXPECT_EQ((std::vector<int>{0xFF, 0xFF, 0x3B, 0xFF}), zeltest::JcopAtrFirstBytes());
}

// --- the exit codes a management tool decides by -------------------------------------------------

TEST_F(ZelplatSampleWorkstation, UsageErrorsExit30ForEveryCommand) {
    for (const char* arguments :
         {"doctor --yes", "doctor --frobnicate", "doctor --undo", "doctor --scope everyone --fix",
          "doctor --undo x.json --fix", "frobnicate", "", "card frobnicate", "report --yaml",
          "atr set gem", "help frobnicate"}) {
        const auto run = zelplat(arguments);
        EXPECT_EQ(30u, run.exitCode) << arguments;
        EXPECT_EQ("", run.out) << arguments;
    }
    EXPECT_EQ(0u, zelplat("doctor --yes").err.find("zelplat: doctor: --yes goes with --fix\r\n"));
    EXPECT_EQ(0u, zelplat("doctor --frobnicate")
                      .err.find("zelplat: doctor: unknown option '--frobnicate'\r\n"));
    EXPECT_EQ((std::vector<int>{0xFF, 0xFF, 0x3B, 0xFF}), zeltest::JcopAtrFirstBytes());
}

// On the sample workstation, fault and all, every reading command ends on a code of the one
// table: never negative, never a result code of the library.
TEST_F(ZelplatSampleWorkstation, EveryReadingCommandExitsWithACodeOfTheTable) {
    const std::vector<DWORD> table = {0, 1, 2, 10, 20, 21, 30, 40, 50, 51};
    for (const char* arguments :
         {"report", "report --table", "doctor", "doctor --json", "doctor --fix --dry-run",
          "card list", "enrollment get", "file-version C:\\windows\\win.ini", "middleware",
          "middleware --table", "oberthur", "atr get", "ia", "ia --table"}) {
        const auto run = zelplat(arguments);
        EXPECT_NE(table.end(), std::find(table.begin(), table.end(), run.exitCode))
            << arguments << ": " << run.exitCode << run.err;
    }
    // The detected OT middleware is an answer.
    EXPECT_EQ(0u, zelplat("oberthur").exitCode);
    EXPECT_EQ((std::vector<int>{0xFF, 0xFF, 0x3B, 0xFF}), zeltest::JcopAtrFirstBytes());
}

TEST_F(ZelplatSampleWorkstation, LibraryThatCannotBeLoadedExits40) {
    char temp[MAX_PATH + 1] = {};
    ::GetTempPathA(sizeof temp, temp);
    const std::string folder = std::string(temp) + "zelplat-alone";
    ::CreateDirectoryA(folder.c_str(), nullptr);
    const std::string alone = folder + "\\zelplat.exe";
    ASSERT_TRUE(::CopyFileA(zeltest::BuiltFile("zelplat.exe").c_str(), alone.c_str(), FALSE));
    const auto run = zeltest::RunProgram("\"" + alone + "\" doctor");
    ::DeleteFileA(alone.c_str());
    ::RemoveDirectoryA(folder.c_str());
    EXPECT_EQ(40u, run.exitCode) << run.err;
}

TEST_F(ZelplatSampleWorkstation, UndoRecordThatCannotBeWrittenExits50AndNothingIsApplied) {
    const std::vector<zeltest::StoredValue> before = entryValues();
    // A file where the repairs folder would be made.
    char temp[MAX_PATH + 1] = {};
    ::GetTempPathA(sizeof temp, temp);
    const std::string blocker = std::string(temp) + "zelplat-not-a-folder";
    { std::ofstream(blocker) << "x"; }
    zeltest::ProcessResult fixed;
    {
        const ScopedEnvironment programData("ProgramData", blocker);
        fixed = zelplat("doctor --fix --yes");
    }
    ::DeleteFileA(blocker.c_str());
    EXPECT_EQ(50u, fixed.exitCode) << fixed.out;
    EXPECT_NE(std::string::npos,
              fixed.out.find("undo record: cannot be written, nothing applied: folder " + blocker +
                             "\\ZelPlatform cannot be made"))
        << fixed.out;
    EXPECT_EQ(described(before), described(entryValues()));
}

TEST_F(ZelplatSampleWorkstation, UndoRecordOfAnotherComputerOrAccountOrSchemaExits51) {
    const auto fixed = zelplat("doctor --fix --yes");
    const std::string path = recordPath(fixed.out);
    records.push_back(path);
    const json record = fileJson(path);
    ASSERT_TRUE(record.is_object()) << fixed.out;
    const std::vector<std::string> after = described(entryValues());
    struct Case {
        const char* pointer;
        json value;
        std::string says;
    };
    const Case cases[] = {
        {"/computer", "ANOTHER-PC", "was made on computer ANOTHER-PC, not on "},
        {"/account/sid", "S-1-5-21-1-2-3-500", "was made by "},
        {"/schemaVersion", 2,
         "is not an undo record zelplat can put back: its schemaVersion is "
         "not 1\r\n"},
        {"/keys/0/path", "SOFTWARE\\Microsoft\\Windows\\CurrentVersion\\Run",
         "is not an undo record zelplat can put back: key HKLM\\SOFTWARE\\Microsoft\\Windows\\"
         "CurrentVersion\\Run is not one a fix of this record's scope touches\r\n"},
    };
    for (const Case& item : cases) {
        json changed = record;
        changed[json::json_pointer(item.pointer)] = item.value;
        const std::string other = path + ".changed.json";
        { std::ofstream(other, std::ios::binary) << changed.dump(2); }
        const auto undone = zelplat("doctor --undo \"" + other + "\"");
        ::DeleteFileA(other.c_str());
        EXPECT_EQ(51u, undone.exitCode) << item.pointer;
        EXPECT_NE(std::string::npos,
                  undone.err.find("zelplat: doctor --undo: " + other + " " + item.says))
            << undone.err;
        EXPECT_EQ(after, described(entryValues())) << item.pointer;
    }
    const auto missing = zelplat("doctor --undo \"" + path + ".missing\"");
    EXPECT_EQ(51u, missing.exitCode);
}

TEST_F(ZelplatSampleWorkstation, HelpDoctorListsEveryExitCode) {
    const auto run = zelplat("help doctor");
    EXPECT_EQ(0u, run.exitCode);
    EXPECT_NE(std::string::npos,
              run.out.find("Exit codes (every command):\r\n"
                           "   0  done: the answer is printed, whatever it says; the doctor: "
                           "nothing found\r\n"
                           "   1  warnings only (the doctor)\r\n"
                           "   2  problems: the doctor's (found, or left after the fixes); card "
                           "check: the\r\n"
                           "      card is still invalid after its cache was cleared\r\n"
                           "  10  could not assess: a query or a switch of the library failed "
                           "(the library's\r\n"
                           "      result code and text are shown)\r\n"
                           "  20  access denied: the library, or a registry key zelplat must "
                           "read or put\r\n"
                           "      back, refused it\r\n"
                           "  21  a fix refused for rights: it needs an administrator, or must "
                           "run as the\r\n"
                           "      workstation's user\r\n"
                           "  30  usage error: a command line zelplat does not understand, or no "
                           "PIN given\r\n"
                           "  40  the library cannot be loaded\r\n"
                           "  50  an output file, the log or the undo record cannot be "
                           "written\r\n"
                           "  51  an undo record cannot be read, or is refused (another computer "
                           "or account)\r\n"
                           "When several apply, the highest is given.\r\n"))
        << run.out;
}

} // namespace
