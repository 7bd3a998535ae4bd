// zelplat report and zelplat doctor as support staff run them: a separate process on a prepared
// registry, its output checked against the report's schema and the doctor's rule table.
#include "card/TqATRMiddleware.h"
#include "card/TqEnrollmentMode.h"
#include "identityagent/IdentityAgentFixture.h"
#include "identityagent/TqSpringCheck.h"
#include "support/JsonSchemaCheck.h"
#include "support/KitProcesses.h"
#include "support/TestSupport.h"
#include "support/Workstation.h"

#include <sddl.h>

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <fstream>
#include <map>
#include <optional>
#include <sstream>

namespace {

// Where Windows looks for a minidriver named without a folder, for 64-bit and 32-bit programs.
std::string systemFile(const char* name) {
    char folder[MAX_PATH + 1] = {};
    const UINT length = ::GetSystemDirectoryA(folder, sizeof folder);
    return std::string(folder, length) + "\\" + name;
}
std::string wow64File(const char* name) {
    char folder[MAX_PATH + 1] = {};
    const UINT length = ::GetSystemWow64DirectoryA(folder, sizeof folder);
    return std::string(folder, length) + "\\" + name;
}

using nlohmann::json;
using Rules = std::vector<std::string>;

// "S-1-5-21-...": the SID of this process's user, as an undo record names its account.
std::string currentUserSid() {
    TqUniqueHandle token;
    if (!::OpenProcessToken(::GetCurrentProcess(), TOKEN_QUERY, token.put())) {
        return "";
    }
    BYTE buffer[256] = {};
    DWORD size = 0;
    if (!::GetTokenInformation(token.get(), TokenUser, buffer, sizeof buffer, &size)) {
        return "";
    }
    char* text = nullptr;
    if (!::ConvertSidToStringSidA(reinterpret_cast<TOKEN_USER*>(buffer)->User.Sid, &text)) {
        return "";
    }
    const TqUniqueLocalMemory owned(text);
    return text;
}

const zeltest::InstalledProgram kInstalledAwp = {
    "{ZELTEST-AWP}", "AWP 5.2.1 (64-bit)", "Oberthur Technologies", "5.2.1.77", 5, 2};

class ZelplatReport : public iatest::IdentityAgentRegistry {
protected:
    void SetUp() override {
        iatest::IdentityAgentRegistry::SetUp();
        removeCardKeys();
    }
    void TearDown() override {
        removeCardKeys();
        iatest::IdentityAgentRegistry::TearDown();
    }
    static void removeCardKeys() {
        zeltest::DeleteKeyTree(HKEY_CURRENT_USER, kTqEnrollmentKey);
        for (const REGSAM view : {KEY_WOW64_64KEY, KEY_WOW64_32KEY}) {
            zeltest::DeleteKeyTree(HKEY_LOCAL_MACHINE, kTqJcopContactKey, view);
            zeltest::DeleteKeyTree(HKEY_LOCAL_MACHINE, kTqJcopContactlessKey, view);
        }
    }

    static zeltest::ProcessResult zelplat(const std::string& arguments) {
        return zeltest::RunProgram("\"" + zeltest::BuiltFile("zelplat.exe") + "\" " + arguments);
    }

    // The report, checked to be one JSON object that fits the schema.
    static json report(zeltest::CallSite caller = zeltest::CallSite::current()) {
        const zeltest::CallerTrace trace(caller);
        const auto run = zelplat("report --json");
        EXPECT_EQ(0u, run.exitCode) << run.err;
        const json document = json::parse(run.out, nullptr, false);
        EXPECT_TRUE(document.is_object()) << run.out;
        EXPECT_EQ(std::vector<std::string>{},
                  zeltest::SchemaViolations(zeltest::ReportSchema(), document));
        return document;
    }

    // The doctor's findings as JSON, and the rules they name, in order.
    static Rules doctorRules(DWORD expectedExit, json* findings = nullptr,
                             zeltest::CallSite caller = zeltest::CallSite::current()) {
        const zeltest::CallerTrace trace(caller);
        const auto run = zelplat("doctor --json");
        EXPECT_EQ(expectedExit, run.exitCode) << run.out << run.err;
        const json answer = json::parse(run.out, nullptr, false);
        EXPECT_TRUE(answer.is_object()) << run.out;
        Rules rules;
        for (const json& finding : answer.value("findings", json::array())) {
            rules.push_back(finding.value("rule", ""));
        }
        // Every pair of proposed fixes over every state a rule test prepares: no two switch the
        // same setting opposite ways.
        const auto fixes = answer.value("findings", json::array());
        for (const json& one : fixes) {
            for (const json& other : fixes) {
                for (const char* lead :
                     {"zelplat atr set ", "zelplat enrollment set ", "zelplat ia spring-check "}) {
                    const std::string a = one.value("fix", "");
                    const std::string b = other.value("fix", "");
                    const bool bothSwitch =
                        a.rfind(lead, 0) == 0 && b.rfind(lead, 0) == 0 &&
                        a.find_first_of("|, ", std::string(lead).size()) == std::string::npos &&
                        b.find_first_of("|, ", std::string(lead).size()) == std::string::npos;
                    EXPECT_FALSE(bothSwitch && a != b) << "opposite fixes: " << a << " / " << b;
                }
            }
        }
        if (findings != nullptr) {
            *findings = answer;
        }
        expectASecondFixChangesNothing();
        return rules;
    }

    // What every key a fix may write holds: each value's type and bytes, by name; nullopt for a
    // key that is missing or cannot be read.
    using KeyContents = std::optional<std::map<std::string, zeltest::StoredValue>>;
    struct FixableKey {
        HKEY root;
        const char* path;
        REGSAM view;
    };
    static std::vector<FixableKey> fixableKeys() {
        std::vector<FixableKey> keys = {{HKEY_CURRENT_USER, kTqEnrollmentKey, 0},
                                        {HKEY_CURRENT_USER, kTqIAUserKey, 0}};
        for (const REGSAM view : {KEY_WOW64_64KEY, KEY_WOW64_32KEY}) {
            keys.push_back({HKEY_LOCAL_MACHINE, kTqJcopContactKey, view});
            keys.push_back({HKEY_LOCAL_MACHINE, kTqJcopContactlessKey, view});
        }
        return keys;
    }
    static KeyContents contents(const FixableKey& where) {
        TqUniqueRegKey key;
        if (::RegOpenKeyExA(where.root, where.path, 0, KEY_READ | where.view, key.put()) !=
            ERROR_SUCCESS) {
            return std::nullopt;
        }
        std::map<std::string, zeltest::StoredValue> values;
        for (DWORD index = 0;; ++index) {
            char name[16384];
            DWORD nameLength = sizeof name;
            if (::RegEnumValueA(key.get(), index, name, &nameLength, nullptr, nullptr, nullptr,
                                nullptr) != ERROR_SUCCESS) {
                break;
            }
            values[std::string(name, nameLength)] =
                zeltest::ReadValue(where.root, where.path, name, where.view);
        }
        return values;
    }
    static std::vector<KeyContents> fixableState() {
        std::vector<KeyContents> state;
        for (const FixableKey& key : fixableKeys()) {
            state.push_back(contents(key));
        }
        return state;
    }
    static void putBack(const FixableKey& where, const KeyContents& before,
                        const KeyContents& now) {
        if (!before) {
            zeltest::DeleteKeyTree(where.root, where.path, where.view);
            return;
        }
        TqUniqueRegKey key;
        ASSERT_EQ(ERROR_SUCCESS, ::RegOpenKeyExA(where.root, where.path, 0,
                                                 KEY_SET_VALUE | where.view, key.put()));
        for (const auto& [name, value] :
             now.value_or(std::map<std::string, zeltest::StoredValue>{})) {
            if (before->count(name) == 0) {
                ::RegDeleteValueA(key.get(), name.c_str());
            }
        }
        for (const auto& [name, value] : *before) {
            zeltest::WriteExactValue(where.root, where.path, name.c_str(), value.type, value.data,
                                     where.view);
        }
    }
    static bool same(const KeyContents& a, const KeyContents& b) {
        if (a.has_value() != b.has_value()) {
            return false;
        }
        if (!a) {
            return true;
        }
        if (a->size() != b->size()) {
            return false;
        }
        for (const auto& [name, value] : *a) {
            const auto other = b->find(name);
            if (other == b->end() || other->second.type != value.type ||
                other->second.data != value.data) {
                return false;
            }
        }
        return true;
    }

    // Every state a rule test prepares: once `doctor --fix --yes` has done what it does, a second
    // one changes nothing. The state the test prepared is put back afterwards, so the test goes
    // on from it.
    static void expectASecondFixChangesNothing() {
        const std::vector<KeyContents> prepared = fixableState();
        zelplat("doctor --fix --yes");
        const std::vector<KeyContents> fixed = fixableState();
        zelplat("doctor --fix --yes");
        const std::vector<KeyContents> again = fixableState();
        const std::vector<FixableKey> keys = fixableKeys();
        for (std::size_t at = 0; at < keys.size(); ++at) {
            EXPECT_TRUE(same(fixed[at], again[at]))
                << "a second doctor --fix --yes changed " << keys[at].path
                << (keys[at].view == KEY_WOW64_32KEY ? " (32-bit view)" : "");
        }
        for (std::size_t at = 0; at < keys.size(); ++at) {
            if (!same(prepared[at], again[at])) {
                putBack(keys[at], prepared[at], again[at]);
            }
        }
    }

    static void setAtr(const char* word) {
        ASSERT_EQ(0u, zelplat(std::string("atr set ") + word).exitCode);
    }

    static void setApplet() { ASSERT_EQ(0u, zelplat("enrollment set AGILE").exitCode); }

    // The four JCOP 41 entries as the library writes them, from literal bytes: first ATR byte
    // 0x3B claims the card for GemSafe, 0xFF leaves it to the PIV minidriver.
    static void writeJcopEntries(BYTE first) {
        const auto text = [](const std::string& value) {
            return std::vector<BYTE>(value.begin(), value.end());
        };
        const std::vector<BYTE> contact = {first, 0xF9, 0x18, 0x00, 0x00, 0x81, 0x31,
                                           0xFE,  0x45, 0x4A, 0x43, 0x4F, 0x50, 0x34,
                                           0x31,  0x56, 0x32, 0x32, 0xAF};
        const std::vector<BYTE> contactless = {first, 0x89, 0x80, 0x01, 0x4A, 0x43, 0x4F,
                                               0x50,  0x34, 0x31, 0x56, 0x32, 0x32, 0x4D};
        for (const REGSAM view : {KEY_WOW64_64KEY, KEY_WOW64_32KEY}) {
            for (const auto& [key, atr] : {std::pair{kTqJcopContactKey, contact},
                                           std::pair{kTqJcopContactlessKey, contactless}}) {
                zeltest::WriteExactValue(HKEY_LOCAL_MACHINE, key, "80000001", REG_SZ,
                                         text("GemSafeMD.dll"), view);
                zeltest::WriteValue(HKEY_LOCAL_MACHINE, key, "ATR", REG_BINARY, atr, view);
                zeltest::WriteValue(HKEY_LOCAL_MACHINE, key, "ATRMask", REG_BINARY,
                                    std::vector<BYTE>(atr.size(), 0xFF), view);
                zeltest::WriteExactValue(HKEY_LOCAL_MACHINE, key, "Crypto Provider", REG_SZ,
                                         text("Microsoft Base Smart Card Crypto Provider"), view);
                zeltest::WriteExactValue(HKEY_LOCAL_MACHINE, key, "Smart Card Key Storage Provider",
                                         REG_SZ, text("Microsoft Smart Card Key Storage Provider"),
                                         view);
            }
        }
    }

    // The applet set as the library sets AGILE: a 4-byte DWORD 0.
    static void writeAgileApplet() {
        zeltest::WriteValue(HKEY_CURRENT_USER, kTqEnrollmentKey, kTqEnrollmentValue, REG_DWORD,
                            {0, 0, 0, 0});
    }

    // The file an "undo record: PATH" line names, removed; "" when there is none.
    static std::string removeRecord(const std::string& out) {
        const std::string lead = "undo record: ";
        const std::size_t at = out.find(lead);
        if (at == std::string::npos) {
            return "";
        }
        const std::string path =
            out.substr(at + lead.size(), out.find("\r\n", at) - at - lead.size());
        ::DeleteFileA(path.c_str());
        return path;
    }

    zeltest::Workstation workstation;
};

// Registry text is in the system code page; the report is UTF-8 all the same.
TEST_F(ZelplatReport, RegistryTextInTheSystemCodePageIsUtf8InTheReport) {
    setAtr("PIVMINIDRIVER");
    const std::string stored = "Gem\xE9Safe\xA0MD.dll"; // not UTF-8
    zeltest::WriteValue(HKEY_LOCAL_MACHINE, kTqJcopContactKey, "80000001", REG_SZ,
                        std::vector<BYTE>(stored.begin(), stored.end() + 1), KEY_WOW64_64KEY);
    wchar_t wide[64] = {};
    const int wideLength =
        ::MultiByteToWideChar(CP_ACP, 0, stored.data(), static_cast<int>(stored.size()), wide, 64);
    char utf8[128] = {};
    const int utf8Length =
        ::WideCharToMultiByte(CP_UTF8, 0, wide, wideLength, utf8, sizeof utf8, nullptr, nullptr);
    const auto run = zelplat("report --json");
    EXPECT_EQ(0u, run.exitCode);
    const json document = json::parse(run.out, nullptr, false); // refuses text that is not UTF-8
    ASSERT_TRUE(document.is_object());
    EXPECT_EQ(json(std::string(utf8, static_cast<std::size_t>(utf8Length))),
              document["atr"]["entries"][0]["minidriver"]);
    EXPECT_EQ(std::string::npos, run.out.find("\xEF\xBF\xBD")) << "nothing replaced";
}

TEST_F(ZelplatReport, JsonIsOneObjectWithTheSevenSectionsEachWithItsResult) {
    const json document = report();
    std::vector<std::string> keys;
    for (auto section = document.begin(); section != document.end(); ++section) {
        keys.push_back(section.key());
        EXPECT_TRUE(section.value().contains("result")) << section.key();
        EXPECT_TRUE(section.value().contains("resultText")) << section.key();
        EXPECT_TRUE(section.value()["outcome"].is_string()) << section.key();
        EXPECT_TRUE(section.value()["outcomeText"].is_string()) << section.key();
        EXPECT_TRUE(section.value()["diagnostics"].is_array()) << section.key();
    }
    EXPECT_EQ((std::vector<std::string>{"atr", "enrollment", "fileVersions", "identityAgent",
                                        "library", "middleware", "oberthur"}),
              keys); // nlohmann's json lists members in name order
    // 11 is an answer of GetEnrollmentMode: no setting, not a failure.
    EXPECT_EQ(11, document["enrollment"]["result"]);
    EXPECT_EQ("not set", document["enrollment"]["outcome"]);
    EXPECT_EQ("No applet is set: the PIV minidriver's key is missing.",
              document["enrollment"]["outcomeText"]);
    EXPECT_EQ(nullptr, document["enrollment"]["resultText"]);
    EXPECT_EQ("NOT SET", document["enrollment"]["mode"]);
    // A failure keeps the common text beside its own.
    EXPECT_EQ(19, document["atr"]["result"]);
    EXPECT_EQ("entry missing", document["atr"]["outcome"]);
    EXPECT_EQ("(0x00000013) File access failed.", document["atr"]["resultText"]);
    EXPECT_EQ("not detected", document["oberthur"]["outcome"]);
    EXPECT_EQ(nullptr, document["oberthur"]["resultText"]);
    // The library's documents are embedded as JSON, not as text.
    EXPECT_EQ("false", document["middleware"]["document"]["OTMiddleware"]["Detected"]);
    EXPECT_EQ("unknown", document["identityAgent"]["document"]["ia"]["name"]);
    EXPECT_EQ(zeltest::BuiltFile("ZelPlatformMethods64.dll"),
              document["library"]["path"].get<std::string>());
    EXPECT_EQ(ZEL_TEST_PROJECT_VERSION ".0", document["library"]["fileVersion"]);
    EXPECT_EQ("winscard", document["fileVersions"]["modules"][0]["role"]);
}

TEST_F(ZelplatReport, SectionsComeInTheDocumentedOrder) {
    const auto run = zelplat("report");
    EXPECT_EQ(0u, run.exitCode);
    std::size_t last = 0;
    for (const char* key : {"\"library\"", "\"fileVersions\"", "\"enrollment\"", "\"atr\"",
                            "\"middleware\"", "\"oberthur\"", "\"identityAgent\""}) {
        const std::size_t at = run.out.find(std::string("\r\n  ") + key + ": {");
        ASSERT_NE(std::string::npos, at) << key;
        EXPECT_LT(last, at) << key;
        last = at;
    }
}

TEST_F(ZelplatReport, ReportWritesNothingToTheRegistry) {
    report();
    EXPECT_FALSE(zeltest::KeyExists(HKEY_CURRENT_USER, kTqEnrollmentKey));
    EXPECT_FALSE(zeltest::KeyExists(HKEY_CURRENT_USER, kTqIAUserKey));
    EXPECT_FALSE(zeltest::KeyExists(HKEY_LOCAL_MACHINE, kTqJcopContactKey, KEY_WOW64_64KEY));
    EXPECT_FALSE(zeltest::KeyExists(HKEY_LOCAL_MACHINE, kTqJcopContactKey, KEY_WOW64_32KEY));
}

TEST_F(ZelplatReport, AtrSectionShowsBothViewsOfTheEntries) {
    setAtr("PIVMINIDRIVER");
    zeltest::WriteValue(HKEY_LOCAL_MACHINE, kTqJcopContactKey, "ATR", REG_BINARY, {0x3B, 0xF9},
                        KEY_WOW64_32KEY);
    const json atr = report()["atr"];
    // The export reads the 64-bit view only: the 32-bit entry's own ATR shows in the entries alone.
    EXPECT_EQ(0, atr["result"]);
    EXPECT_EQ("PIVMINIDRIVER", atr["answer"]);
    ASSERT_EQ(4u, atr["entries"].size());
    EXPECT_EQ((json{{"entry", "contact"},
                    {"view", "64-bit"},
                    {"state", "present"},
                    {"atr", "FFF91800008131FE454A434F503431563232AF"},
                    {"atrMask", "FFFFFFFFFFFFFFFFFFFFFFFFFFFFFFFFFFFFFF"},
                    {"minidriver", "GemSafeMD.dll"},
                    {"cryptoProvider", "Microsoft Base Smart Card Crypto Provider"},
                    {"keyStorageProvider", "Microsoft Smart Card Key Storage Provider"},
                    {"effect", "disabled"},
                    {"minidriverPath", systemFile("GemSafeMD.dll")},
                    {"minidriverInstalled", false}}),
              atr["entries"][0]);
    EXPECT_EQ("active", atr["entries"][2]["effect"]);
    EXPECT_EQ(json(wow64File("GemSafeMD.dll")), atr["entries"][2]["minidriverPath"]);
    // The 64-bit entries match no card: the PIV minidriver takes it there; the 32-bit contact
    // entry gives it to GemSafe.
    EXPECT_EQ((json{{"64-bit", "PIV minidriver"}, {"32-bit", "GemSafeMD.dll"}}), atr["servedBy"]);
    EXPECT_EQ("3BF9", atr["entries"][2]["atr"]);
    EXPECT_EQ("32-bit", atr["entries"][2]["view"]);
}

// The library's documents are hand-built and escape nothing: a display name with a quote makes
// the middleware document unparsable. The report keeps it as text and still fits its schema.
TEST_F(ZelplatReport, UnparsableLibraryDocumentIsKeptAsText) {
    workstation.install({"{ZELTEST-IDEMIA}", "IDEMIA Minidriver for PIV/CIV \"beta\" (64-Bit)",
                         "IDEMIA", "9.1.3.210", 9, 1});
    const json middleware = report()["middleware"];
    EXPECT_EQ(0, middleware["result"]);
    EXPECT_TRUE(middleware["document"].is_null());
    EXPECT_NE(std::string::npos,
              middleware["unparsedText"].get<std::string>().find(
                  "\"Name\": \"IDEMIA Minidriver for PIV/CIV \"beta\" (64-Bit)\""));
}

TEST_F(ZelplatReport, TableAlignsItsThreeColumns) {
    const auto run = zelplat("report --table");
    EXPECT_EQ(0u, run.exitCode);
    std::istringstream lines(run.out);
    std::string header;
    std::getline(lines, header);
    const std::size_t field = header.find("FIELD");
    const std::size_t value = header.find("VALUE");
    ASSERT_EQ(0u, header.find("SECTION  "));
    bool sawMode = false;
    for (std::string line; std::getline(lines, line);) {
        ASSERT_GT(line.size(), field) << line;
        EXPECT_NE(' ', line[field]) << line;
        EXPECT_EQ(' ', line[field - 1]) << line;
        if (line.rfind("enrollment", 0) == 0 && line.find(" mode ") != std::string::npos) {
            EXPECT_EQ("NOT SET\r", line.substr(value)) << line;
            sawMode = true;
        }
    }
    EXPECT_TRUE(sawMode);
    EXPECT_EQ(std::string::npos, run.out.find('\x1b'));
}

TEST_F(ZelplatReport, OutputOptionWritesTheDocumentIntoTheFile) {
    const zeltest::ScratchLogFile file;
    const auto run = zelplat(std::string("report --output \"") + file.path() + "\"");
    EXPECT_EQ(0u, run.exitCode);
    EXPECT_EQ("", run.out);
    const json document = json::parse(file.contents(), nullptr, false);
    EXPECT_EQ(std::vector<std::string>{},
              zeltest::SchemaViolations(zeltest::ReportSchema(), document));
}

TEST_F(ZelplatReport, UnknownReportOptionShowsTheReportsUsage) {
    for (const char* arguments : {"report --yaml", "report --json --table", "report --output"}) {
        const auto run = zelplat(arguments);
        EXPECT_EQ(30u, run.exitCode) << arguments;
        EXPECT_EQ("", run.out) << arguments;
        EXPECT_NE(std::string::npos, run.err.find("usage: zelplat report [--json | --table]"))
            << arguments;
    }
}

// --- the doctor's rules, one prepared registry each ---------------------------------------------

// The card entries missing and no middleware to give the card to: the doctor has no answer about
// the card, and says so rather than "nothing wrong found".
TEST_F(ZelplatReport, DoctorCannotAssessAWorkstationWithoutCardEntriesOrMiddleware) {
    json findings;
    EXPECT_EQ(Rules{"could-not-assess"}, doctorRules(10, &findings));
    EXPECT_EQ("warning", findings["findings"][0]["severity"]);
    EXPECT_EQ((json{{"atr.result", 19},
                    {"atr.outcomeText", "A JCOP 41 card entry is missing."},
                    {"atr.resultText", findings["findings"][0]["facts"]["atr.resultText"]}}),
              findings["findings"][0]["facts"]);
    EXPECT_TRUE(findings["findings"][0]["facts"]["atr.resultText"].is_string());
    EXPECT_EQ("needs a person: the PIV minidriver (OTMiddleware), which `atr set PIVMINIDRIVER` "
              "would leave the card to, is not installed; GemSafeMD.dll, which `atr set GEMSAFE` "
              "would point the card at, is not installed",
              findings["findings"][0]["fix"]);
    const auto run = zelplat("doctor");
    EXPECT_EQ(10u, run.exitCode);
    EXPECT_EQ("zelplat: doctor: could not assess: atr: A JCOP 41 card entry is missing.\r\n",
              run.err);
    EXPECT_EQ(std::string::npos, run.out.find("nothing wrong found")) << run.out;
}

TEST_F(ZelplatReport, DoctorFindsNothingWhenEverySectionAnsweredAndExits0) {
    workstation.install(kInstalledAwp);
    writeAgileApplet();
    writeJcopEntries(0xFF);
    EXPECT_EQ(Rules{}, doctorRules(0));
    const auto run = zelplat("doctor");
    EXPECT_EQ(0u, run.exitCode);
    EXPECT_EQ("doctor: nothing wrong found\r\n", run.out);
}

// No false healthy: the JCOP 41 entries deleted in both views make the library's get fail; the
// fix writes them towards the middleware that is installed, and a second run changes nothing.
TEST_F(ZelplatReport, RuleAtrNotAnsweredEntriesMissingInBothViewsAreRecreated) {
    workstation.install(kInstalledAwp);
    writeAgileApplet();
    json findings;
    EXPECT_EQ(Rules{"atr-not-answered"}, doctorRules(2, &findings));
    EXPECT_EQ("problem", findings["findings"][0]["severity"]);
    EXPECT_EQ("zelplat atr set PIVMINIDRIVER", findings["findings"][0]["fix"]);
    EXPECT_EQ(19, findings["findings"][0]["facts"]["atr.result"]);
    EXPECT_EQ("entry missing", findings["findings"][0]["facts"]["atr.outcome"]);

    const auto fixed = zelplat("doctor --fix --yes");
    const std::string record = removeRecord(fixed.out);
    EXPECT_EQ(0u, fixed.exitCode) << fixed.out;
    EXPECT_EQ("fix atr-not-answered: zelplat atr set PIVMINIDRIVER\r\n"
              "  machine-wide: needs an administrator (or SYSTEM)\r\n"
              "\r\n"
              "undo record: " +
                  record +
                  "\r\n"
                  "zelplat atr set PIVMINIDRIVER: applied\r\n"
                  "\r\n"
                  "doctor: nothing wrong found\r\n",
              fixed.out);
    EXPECT_EQ((std::vector<int>{0xFF, 0xFF, 0xFF, 0xFF}), zeltest::JcopAtrFirstBytes());
    const auto again = zelplat("doctor --fix --yes");
    EXPECT_EQ(0u, again.exitCode);
    EXPECT_EQ("\r\ndoctor: nothing wrong found\r\n", again.out);
}

// An ATR byte the library does not know, without the OT middleware: the answer is "unknown ATR",
// and GEMSAFE is not offered while GemSafeMD.dll is not installed.
TEST_F(ZelplatReport, UnknownAtrWithoutAnInstalledMinidriverIsNotRewritten) {
    workstation.install(
        {"{ZELTEST-GEMALTO}", "Classic Client 7.3 Patch 1 64 bits", "Gemalto", "7.3.1.23", 7, 3});
    writeJcopEntries(0x12);
    json findings;
    // An ATR that is not FF claims the card for a file that is not there, too.
    EXPECT_EQ((Rules{"minidriver-file-missing", "could-not-assess"}), doctorRules(10, &findings));
    EXPECT_EQ(11, findings["findings"][1]["facts"]["atr.result"]);
    EXPECT_EQ("install the middleware that brings GemSafeMD.dll", findings["findings"][0]["fix"]);
    const auto fixed = zelplat("doctor --fix --yes");
    EXPECT_EQ(10u, fixed.exitCode) << fixed.out;
    EXPECT_EQ(std::string::npos, fixed.out.find("undo record")) << fixed.out;
    EXPECT_EQ((std::vector<int>{0x12, 0x12, 0x12, 0x12}), zeltest::JcopAtrFirstBytes());
}

TEST_F(ZelplatReport, RuleAtrMiddlewareMissing) {
    setAtr("GEMSAFE");
    json findings;
    EXPECT_EQ((Rules{"atr-middleware-missing", "minidriver-file-missing"}),
              doctorRules(2, &findings));
    EXPECT_EQ("install GemaltoMiddleware, or zelplat atr set PIVMINIDRIVER once its middleware is "
              "installed",
              findings["findings"][0]["fix"]);
    EXPECT_EQ((json{{"atr.answer", "GEMSAFE"},
                    {"atr.entries[0].minidriver", "GemSafeMD.dll"},
                    {"GemaltoMiddleware.Detected", "false"}}),
              findings["findings"][0]["facts"]);
    workstation.install(kInstalledAwp);
    // A problem and a warning: the problem decides the exit code.
    EXPECT_EQ((Rules{"atr-middleware-missing", "minidriver-file-missing", "piv-applet-not-set"}),
              doctorRules(2));
    setApplet();
    EXPECT_EQ((Rules{"atr-middleware-missing", "minidriver-file-missing", "piv-applet-unused"}),
              doctorRules(2, &findings));
    EXPECT_EQ("zelplat atr set PIVMINIDRIVER", findings["findings"][0]["fix"]);
    setAtr("PIVMINIDRIVER");
    EXPECT_EQ(Rules{}, doctorRules(0));
}

TEST_F(ZelplatReport, RuleAtrViewsDisagree) {
    workstation.install(kInstalledAwp);
    setApplet();
    setAtr("PIVMINIDRIVER");
    zeltest::WriteValue(
        HKEY_LOCAL_MACHINE, kTqJcopContactlessKey, "ATR", REG_BINARY,
        {0x3B, 0x89, 0x80, 0x01, 0x4A, 0x43, 0x4F, 0x50, 0x34, 0x31, 0x56, 0x32, 0x32, 0x4D},
        KEY_WOW64_32KEY);
    json findings;
    // The 32-bit entry that claims the card names a file that is not there, too.
    EXPECT_EQ((Rules{"atr-views-disagree", "minidriver-file-missing"}), doctorRules(2, &findings));
    EXPECT_EQ("problem", findings["findings"][0]["severity"]);
    EXPECT_EQ((json{{"contactless 64-bit", "present ATR FF898001"
                                           "4A434F503431563232"
                                           "4D"},
                    {"contactless 32-bit", "present ATR 3B898001"
                                           "4A434F503431563232"
                                           "4D"}}),
              findings["findings"][0]["facts"]);
    EXPECT_EQ("zelplat atr set PIVMINIDRIVER", findings["findings"][0]["fix"]);
    EXPECT_EQ(2, findings["problems"]);
    EXPECT_EQ(0, findings["warnings"]);
}

TEST_F(ZelplatReport, RulePivAppletNotSet) {
    workstation.install(kInstalledAwp);
    writeJcopEntries(0xFF);
    json findings;
    EXPECT_EQ(Rules{"piv-applet-not-set"}, doctorRules(1, &findings));
    EXPECT_EQ("warning", findings["findings"][0]["severity"]);
    EXPECT_EQ("zelplat enrollment set AGILE|COMPATIBILITY", findings["findings"][0]["fix"]);
    EXPECT_EQ((json{{"OTMiddleware.Detected", "true"},
                    {"enrollment.mode", "NOT SET"},
                    {"enrollment.result", 11}}),
              findings["findings"][0]["facts"]);
    setApplet();
    EXPECT_EQ(Rules{}, doctorRules(0));
}

TEST_F(ZelplatReport, RuleAgentNotRunning) {
    workstation.install(kInstalledAwp);
    writeAgileApplet();
    writeJcopEntries(0xFF);
    installVessant();
    json findings;
    EXPECT_EQ(Rules{"agent-not-running"}, doctorRules(1, &findings));
    EXPECT_EQ((json{{"identityAgent.installed",
                     json::array({{{"name", "Vessant Identity Agent"}, {"version", "11.2"}}})},
                    {"identityAgent.document.ia.name", "unknown"}}),
              findings["findings"][0]["facts"]);
    zeltest::AgentStandIn agent(kTqKVRAgentExecutable);
    ASSERT_TRUE(agent.running());
    EXPECT_EQ(Rules{}, doctorRules(0));
}

TEST_F(ZelplatReport, RuleSpringCheckRecordMismatch) {
    workstation.install(kInstalledAwp);
    writeAgileApplet();
    writeJcopEntries(0xFF);
    setCardRemovalCheck(HKEY_CURRENT_USER, kTqIAUserKey, "False");
    json findings;
    EXPECT_EQ(Rules{"spring-check-record-mismatch"}, doctorRules(1, &findings));
    // Making the switched-off check permanent is the organisation's decision, not the doctor's.
    EXPECT_EQ("needs a person: `zelplat ia spring-check off` would make the switched-off "
              "card-removal check permanent; declare what is intended with --expect "
              "spring-check=default|off",
              findings["findings"][0]["fix"]);

    zeltest::DeleteKeyTree(HKEY_CURRENT_USER, kTqIAUserKey);
    zeltest::WriteValue(HKEY_CURRENT_USER, kTqIAUserKey, kTqZelCheckValue, REG_BINARY,
                        std::vector<BYTE>(kTqZelCheckSize, 0x5A));
    EXPECT_EQ(Rules{"spring-check-record-mismatch"}, doctorRules(1, &findings));
    EXPECT_EQ("zelplat ia spring-check default", findings["findings"][0]["fix"]);
    EXPECT_EQ((json{{"identityAgent.userSettings.cardRemovalCheck", nullptr},
                    {"identityAgent.userSettings.zelCheckBytes", kTqZelCheckSize},
                    {"identityAgent.document.springCheck.status", "unknown"}}),
              findings["findings"][0]["facts"]);

    setCardRemovalCheck(HKEY_CURRENT_USER, kTqIAUserKey, "FALSE");
    EXPECT_EQ(Rules{}, doctorRules(0));
}

// A per-user fix, run as the workstation's user (under Wine the only user there is): its record
// is the user's, and the undo brings back the left-over record's bytes, and the key's absence.
TEST_F(ZelplatReport, PerUserFixWritesTheUsersUndoRecordAndUndoPutsTheValuesBack) {
    std::vector<BYTE> stored(kTqZelCheckSize);
    for (std::size_t at = 0; at < stored.size(); ++at) {
        stored[at] = static_cast<BYTE>(at * 7);
    }
    zeltest::WriteValue(HKEY_CURRENT_USER, kTqIAUserKey, kTqZelCheckValue, REG_BINARY, stored);
    zeltest::DeleteKeyTree(HKEY_CURRENT_USER, "SOFTWARE\\Oberthur Technologies");

    // This test is about the per-user record alone: the card is not assessed here.
    const auto fixed = zelplat("doctor --fix --yes --skip could-not-assess");
    EXPECT_EQ(0u, fixed.exitCode) << fixed.out;
    const std::string lead = "undo record: ";
    const std::size_t at = fixed.out.find(lead);
    ASSERT_NE(std::string::npos, at) << fixed.out;
    const std::string path =
        fixed.out.substr(at + lead.size(), fixed.out.find("\r\n", at) - at - lead.size());
    EXPECT_EQ("fix spring-check-record-mismatch: zelplat ia spring-check default\r\n"
              "  per-user: must run as the workstation's user\r\n"
              "\r\n"
              "undo record: " +
                  path +
                  "\r\n"
                  "zelplat ia spring-check default: applied\r\n"
                  "\r\n"
                  "doctor: nothing wrong found\r\n",
              fixed.out);
    EXPECT_EQ(0u,
              path.find(std::string(std::getenv("LOCALAPPDATA")) + "\\ZelPlatform\\repairs\\fix-"))
        << path;
    EXPECT_FALSE(zeltest::ReadValue(HKEY_CURRENT_USER, kTqIAUserKey, kTqZelCheckValue).present);

    std::ifstream in(path, std::ios::binary);
    std::stringstream text;
    text << in.rdbuf();
    in.close();
    const json record = json::parse(text.str(), nullptr, false);
    EXPECT_EQ(std::vector<std::string>{},
              zeltest::SchemaViolations(zeltest::DocsSchema("undo-record.schema.json"), record));
    EXPECT_EQ("user", record["scope"]);
    // Only the user's keys: the applet's (not there) and the agent's.
    ASSERT_EQ(2u, record["keys"].size());
    EXPECT_EQ(false, record["keys"][0]["existed"]);
    EXPECT_EQ("SOFTWARE\\Oberthur Technologies", record["keys"][0]["missingFrom"]);
    EXPECT_EQ((json{{"name", kTqZelCheckValue},
                    {"present", true},
                    {"type", "REG_BINARY"},
                    {"data",
                     [&] {
                         std::string hex;
                         for (const BYTE byte : stored) {
                             hex += "0123456789ABCDEF"[byte >> 4];
                             hex += "0123456789ABCDEF"[byte & 15];
                         }
                         return hex;
                     }()}}),
              record["keys"][1]["values"][1]);

    // The key the undo finds gone again is made, and its value put back with its bytes.
    zeltest::DeleteKeyTree(HKEY_CURRENT_USER, kTqIAUserKey);
    const auto undone = zelplat("doctor --undo \"" + path + "\"");
    EXPECT_EQ(0u, undone.exitCode) << undone.out << undone.err;
    const auto back = zeltest::ReadValue(HKEY_CURRENT_USER, kTqIAUserKey, kTqZelCheckValue);
    EXPECT_TRUE(back.present);
    EXPECT_EQ(static_cast<DWORD>(REG_BINARY), back.type);
    EXPECT_EQ(stored, back.data);
    EXPECT_FALSE(
        zeltest::ReadValue(HKEY_CURRENT_USER, kTqIAUserKey, kTqCardRemovalCheckValue).present);
    EXPECT_FALSE(zeltest::KeyExists(HKEY_CURRENT_USER, "SOFTWARE\\Oberthur Technologies"));
    ::DeleteFileA(path.c_str());
    const std::size_t undoAt = undone.out.find(lead);
    if (undoAt != std::string::npos) {
        ::DeleteFileA(undone.out
                          .substr(undoAt + lead.size(),
                                  undone.out.find("\r\n", undoAt) - undoAt - lead.size())
                          .c_str());
    }
}

// The applet's key, missing before a fix made it, goes again with the undo.
TEST_F(ZelplatReport, UndoRemovesTheKeysTheFixCreated) {
    const std::string path = [] {
        char temp[MAX_PATH + 1] = {};
        ::GetTempPathA(sizeof temp, temp);
        return std::string(temp) + "zelplat-applet-undo.json";
    }();
    char computer[MAX_COMPUTERNAME_LENGTH + 1] = {};
    DWORD size = sizeof computer;
    ASSERT_TRUE(::GetComputerNameA(computer, &size));
    zeltest::DeleteKeyTree(HKEY_CURRENT_USER, "SOFTWARE\\Oberthur Technologies");
    // The applet set as the library sets AGILE: a 4-byte DWORD 0.
    zeltest::WriteValue(HKEY_CURRENT_USER, kTqEnrollmentKey, kTqEnrollmentValue, REG_DWORD,
                        {0, 0, 0, 0});
    // A record made before the applet was set: the key did not exist.
    const json record = {
        {"schemaVersion", 1},
        {"scope", "user"},
        {"time", "2026-11-25T13:00:00Z"},
        {"computer", std::string(computer, size)},
        {"account", {{"name", "x"}, {"sid", currentUserSid()}}},
        {"command", "doctor --fix"},
        {"findings", json::array()},
        {"fixes", json::array({"zelplat enrollment set AGILE"})},
        {"keys", json::array({{{"family", "enrollment"},
                               {"root", "HKCU"},
                               {"path", kTqEnrollmentKey},
                               {"view", "none"},
                               {"existed", false},
                               {"missingFrom", "SOFTWARE\\Oberthur Technologies"},
                               {"values", json::array({{{"name", kTqEnrollmentValue},
                                                        {"present", false},
                                                        {"type", nullptr},
                                                        {"data", nullptr}}})}}})}};
    EXPECT_EQ(std::vector<std::string>{},
              zeltest::SchemaViolations(zeltest::DocsSchema("undo-record.schema.json"), record));
    { std::ofstream(path, std::ios::binary) << record.dump(2); }
    const auto undone = zelplat("doctor --undo \"" + path + "\"");
    ::DeleteFileA(path.c_str());
    EXPECT_EQ(0u, undone.exitCode) << undone.out << undone.err;
    EXPECT_FALSE(zeltest::KeyExists(HKEY_CURRENT_USER, "SOFTWARE\\Oberthur Technologies"));
    const std::string lead = "undo record: ";
    const std::size_t at = undone.out.find(lead);
    ASSERT_NE(std::string::npos, at) << undone.out;
    ::DeleteFileA(
        undone.out.substr(at + lead.size(), undone.out.find("\r\n", at) - at - lead.size())
            .c_str());
}

TEST_F(ZelplatReport, RuleSpringCheckRestartPending) {
    workstation.install(kInstalledAwp);
    writeAgileApplet();
    writeJcopEntries(0xFF);
    installVessant();
    {
        zeltest::AgentStandIn agent(kTqKVRAgentExecutable);
        ASSERT_TRUE(agent.running());
        ASSERT_EQ(0u, zelplat("ia spring-check off").exitCode);
        json findings;
        EXPECT_EQ(Rules{"spring-check-restart-pending"}, doctorRules(1, &findings));
        EXPECT_EQ("warning", findings["findings"][0]["severity"]);
        EXPECT_EQ((json{{"identityAgent.document.ia.name", "KVR"},
                        {"identityAgent.document.springCheck.status", "off"},
                        {"identityAgent.document.os.hasRebooted", "pending"}}),
                  findings["findings"][0]["facts"]);
        EXPECT_EQ("restart the Identity Agent (or sign out and in again)",
                  findings["findings"][0]["fix"]);
    }
    // Another agent process: it started with the switch in force.
    zeltest::AgentStandIn restarted(kTqKVRAgentExecutable);
    ASSERT_TRUE(restarted.running());
    EXPECT_EQ(Rules{}, doctorRules(0));
}

TEST_F(ZelplatReport, RuleRegistryAccessDenied) {
    workstation.install(kInstalledAwp);
    setApplet();
    writeJcopEntries(0xFF);
    const std::string entry = std::string(zeltest::kUninstallKey) + "\\{ZELTEST-AWP}";
    json findings;
    {
        const zeltest::DeniedKey denied(HKEY_LOCAL_MACHINE, entry, KEY_WOW64_64KEY);
        // The search for the OT middleware failed on that key: the doctor cannot say whether it
        // is installed, and its exit code says so.
        EXPECT_EQ((Rules{"registry-access-denied", "could-not-assess"}),
                  doctorRules(10, &findings));
        const auto run = zelplat("doctor");
        EXPECT_EQ(10u, run.exitCode);
        EXPECT_EQ("zelplat: doctor: could not assess: oberthur: The installed programs could not "
                  "be searched.\r\n",
                  run.err);
    }
    EXPECT_EQ((json{{"deniedKeys", json::array({"HKLM\\" + entry + " (64-bit view)"})}}),
              findings["findings"][0]["facts"]);
    EXPECT_EQ(Rules{}, doctorRules(0));
}

TEST_F(ZelplatReport, DoctorTextNamesSeverityFactsAndFixWithoutColour) {
    workstation.install(kInstalledAwp);
    writeJcopEntries(0xFF);
    const auto run = zelplat("doctor");
    EXPECT_EQ(1u, run.exitCode);
    EXPECT_EQ("WARNING  piv-applet-not-set\r\n"
              "  The PIV minidriver (OT middleware) is installed, but no enrollment applet is set "
              "for this user.\r\n"
              "  facts:\r\n"
              "     OTMiddleware.Detected  true\r\n"
              "     enrollment.mode        NOT SET\r\n"
              "     enrollment.result      11\r\n"
              "  fix:   zelplat enrollment set AGILE|COMPATIBILITY\r\n"
              "\r\n"
              "doctor: 0 problems, 1 warning\r\n",
              run.out);
}

// CardRemovalCheck switched off by hand, no ZelCheck: without a policy --fix --yes leaves both
// as they were; with the policy it restores the default.
TEST_F(ZelplatReport, SpringCheckSwitchedOffByHandIsConfirmedOnlyByAPolicy) {
    workstation.install(kInstalledAwp);
    writeAgileApplet();
    writeJcopEntries(0xFF);
    const std::string offText = "False";
    zeltest::WriteExactValue(HKEY_CURRENT_USER, kTqIAUserKey, kTqCardRemovalCheckValue, REG_SZ,
                             std::vector<BYTE>(offText.begin(), offText.end()));
    const auto before =
        zeltest::ReadValue(HKEY_CURRENT_USER, kTqIAUserKey, kTqCardRemovalCheckValue);
    ASSERT_TRUE(before.present);

    const auto fixed = zelplat("doctor --fix --yes");
    EXPECT_EQ(1u, fixed.exitCode) << fixed.out;
    EXPECT_EQ(0u, fixed.out.find("fix spring-check-record-mismatch: needs a person: `zelplat ia "
                                 "spring-check off` would make the switched-off card-removal "
                                 "check permanent; declare what is intended with --expect "
                                 "spring-check=default|off\r\n\r\n"))
        << fixed.out;
    EXPECT_EQ("", removeRecord(fixed.out));
    const auto after =
        zeltest::ReadValue(HKEY_CURRENT_USER, kTqIAUserKey, kTqCardRemovalCheckValue);
    EXPECT_TRUE(after.present);
    EXPECT_EQ(before.type, after.type);
    EXPECT_EQ(before.data, after.data);
    EXPECT_FALSE(zeltest::ReadValue(HKEY_CURRENT_USER, kTqIAUserKey, kTqZelCheckValue).present);

    // The policy declared: the workstation differs from it, and the fix moves it there.
    EXPECT_EQ(1u, zelplat("doctor --expect spring-check=default").exitCode);
    const auto restored = zelplat("doctor --fix --yes --expect spring-check=default");
    removeRecord(restored.out);
    EXPECT_EQ(0u, restored.exitCode) << restored.out;
    EXPECT_NE(std::string::npos, restored.out.find("zelplat ia spring-check default: applied\r\n"))
        << restored.out;
    EXPECT_FALSE(
        zeltest::ReadValue(HKEY_CURRENT_USER, kTqIAUserKey, kTqCardRemovalCheckValue).present);
    EXPECT_FALSE(zeltest::ReadValue(HKEY_CURRENT_USER, kTqIAUserKey, kTqZelCheckValue).present);
    const auto again = zelplat("doctor --fix --yes --expect spring-check=default");
    EXPECT_EQ(0u, again.exitCode);
    EXPECT_EQ("\r\ndoctor: nothing wrong found\r\n", again.out);
}

// A policy file, --only and --skip select what the doctor reports; a policy zelplat does not
// understand is a usage error, never a verdict.
TEST_F(ZelplatReport, PolicyFileOnlyAndSkipSelectRules) {
    workstation.install(kInstalledAwp);
    writeJcopEntries(0xFF);
    installVessant();
    EXPECT_EQ(1u, zelplat("doctor --only agent-not-running").exitCode);
    const auto only = zelplat("doctor --json --only piv-applet-not-set");
    EXPECT_EQ(1u, only.exitCode);
    const json onlyAnswer = json::parse(only.out, nullptr, false);
    ASSERT_EQ(1u, onlyAnswer["findings"].size()) << only.out;
    EXPECT_EQ("piv-applet-not-set", onlyAnswer["findings"][0]["rule"]);
    EXPECT_EQ(0u, zelplat("doctor --skip piv-applet-not-set --skip agent-not-running").exitCode);

    const std::string path = [] {
        char temp[MAX_PATH + 1] = {};
        ::GetTempPathA(sizeof temp, temp);
        return std::string(temp) + "zelplat-policy.json";
    }();
    {
        std::ofstream(path, std::ios::binary)
            << R"({"applet": "COMPATIBILITY", "skip": ["agent-not-running"]})";
    }
    const auto policy = zelplat("doctor --json --expect \"" + path + "\"");
    const json answer = json::parse(policy.out, nullptr, false);
    ASSERT_TRUE(answer.is_object()) << policy.out << policy.err;
    ASSERT_EQ(2u, answer["findings"].size()) << policy.out;
    EXPECT_EQ("zelplat enrollment set COMPATIBILITY", answer["findings"][0]["fix"]);
    EXPECT_EQ("expected-applet", answer["findings"][1]["rule"]);
    EXPECT_EQ(1u, policy.exitCode);

    { std::ofstream(path, std::ios::binary) << R"({"applet": "AGILE2"})"; }
    EXPECT_EQ(30u, zelplat("doctor --expect \"" + path + "\"").exitCode);
    ::DeleteFileA(path.c_str());
    EXPECT_EQ(30u, zelplat("doctor --expect spring-check=on").exitCode);
    EXPECT_EQ(30u, zelplat("doctor --only no-such-rule").exitCode);
}

// The library reads the applet leniently: a value of another size, or a key that refuses writing,
// answers AGILE whatever is stored. The report shows what is stored, and a rule says they differ.
TEST_F(ZelplatReport, RuleEnrollmentAnswerDiffersFromTheStoredValue) {
    workstation.install(kInstalledAwp);
    writeJcopEntries(0xFF);
    zeltest::WriteValue(HKEY_CURRENT_USER, kTqEnrollmentKey, kTqEnrollmentValue, REG_QWORD,
                        {1, 0, 0, 0, 0, 0, 0, 0});
    json document = report();
    EXPECT_EQ("AGILE", document["enrollment"]["mode"]);
    EXPECT_EQ((json{{"present", true},
                    {"type", "REG_QWORD"},
                    {"data", "0100000000000000"},
                    {"meaning", "COMPATIBILITY"},
                    {"keyWritable", true}}),
              document["enrollment"]["stored"]);
    json findings;
    EXPECT_EQ(Rules{"enrollment-answer-differs"}, doctorRules(1, &findings));
    EXPECT_EQ("The library answers AGILE for the PIV minidriver's applet, but COMPATIBILITY is "
              "stored: the answer is not what is stored.",
              findings["findings"][0]["summary"]);

    // COMPATIBILITY (1) stored as the library stores it, in a key that refuses writing.
    zeltest::WriteValue(HKEY_CURRENT_USER, kTqEnrollmentKey, kTqEnrollmentValue, REG_DWORD,
                        {1, 0, 0, 0});
    EXPECT_EQ(Rules{}, doctorRules(0));
    {
        const zeltest::SavedKeySecurity saved(HKEY_CURRENT_USER, kTqEnrollmentKey);
        PSECURITY_DESCRIPTOR descriptor = nullptr;
        // Setting values and making subkeys denied; reading allowed.
        ASSERT_TRUE(::ConvertStringSecurityDescriptorToSecurityDescriptorA(
            "D:(D;;0x6;;;WD)(A;;KA;;;WD)", SDDL_REVISION_1, &descriptor, nullptr));
        const TqUniqueLocalMemory owned(descriptor);
        ASSERT_EQ(ERROR_SUCCESS,
                  ::RegSetKeySecurity(saved.key(), DACL_SECURITY_INFORMATION, descriptor));
        document = report();
        EXPECT_EQ("AGILE", document["enrollment"]["mode"]);
        EXPECT_EQ(false, document["enrollment"]["stored"]["keyWritable"]);
        EXPECT_EQ("COMPATIBILITY", document["enrollment"]["stored"]["meaning"]);
        EXPECT_EQ(Rules{"enrollment-answer-differs"}, doctorRules(1, &findings));
        EXPECT_EQ(false, findings["findings"][0]["facts"]["enrollment.stored.keyWritable"]);
    }
}

TEST_F(ZelplatReport, HelpForTheNewCommands) {
    for (const char* arguments : {"help report", "report --help"}) {
        const auto run = zelplat(arguments);
        EXPECT_EQ(0u, run.exitCode) << arguments;
        EXPECT_EQ(0u, run.out.find(
                          "usage: zelplat report [--json | --table] [--output FILE [--force]]\r\n"))
            << arguments;
    }
    const auto doctor = zelplat("help doctor");
    EXPECT_EQ(0u, doctor.exitCode);
    EXPECT_NE(std::string::npos,
              doctor.out.find("\r\nExit codes (every command):\r\n   0  done: "));
    EXPECT_EQ(0u, doctor.out.find("usage: zelplat doctor [--json]\r\n"
                                  "       zelplat doctor --fix [--yes | --dry-run] [--scope "
                                  "machine|user] [--json]\r\n"
                                  "       zelplat doctor --undo FILE\r\n"));
    const auto unknown = zelplat("help frobnicate");
    EXPECT_EQ(30u, unknown.exitCode);
    EXPECT_NE(std::string::npos, unknown.err.find("usage: zelplat"));
}

} // namespace
