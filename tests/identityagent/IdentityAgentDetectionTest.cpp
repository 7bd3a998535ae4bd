// Identity Agent detection on the Wine prefix: products registered in the 32-bit Uninstall
// view, the test kit's agent stand-in running as IdentityAgent.exe or GACService.exe, and the
// kit's service installed as the BT agent's "KVR Card Checker".
//
// Not covered here, because this host cannot produce it: an agent that runs only under another
// user's account. The prefix has one user, so every process a test can start runs under the
// caller's own SID. The closest real case is covered instead: an agent process whose account
// cannot be read is not taken for this user's agent.
#include "identityagent/IdentityAgentFixture.h"
#include "identityagent/TqIdentityAgent.h"
#include "api/TqZelDLLPlatform.h"
#include "support/CapturedStreams.h"
#include "support/KitProcesses.h"

#include <cstdlib>
#include <cstring>
#include <memory>
#include <vector>

namespace {

using iatest::Document;
using iatest::ExpectParsedDocument;
using iatest::ExpectSpringCheck;
using iatest::IdentityAgentRegistry;
using iatest::MissingKey;
using zeltest::AgentStandIn;
using zeltest::CapturedStderr;
using zeltest::CapturedStdout;
using zeltest::KitService;

constexpr const char* kLimitedQueryOnly = "D:(A;;0x1000;;;WD)";

const std::string kKVRFound = "TqDetectKVRIdentityAgent : Successfully detected KVR IA.\n";
const std::string kKVRNotExecuting =
    "TqDetectKVRIdentityAgent : KVR Identity Agent not executing.\n";
const std::string kBTNotExecuting = "TqDetectBTIdentityAgent : BT Identity Agent not executing.\n";
const std::string kBTFound = "TqDetectBTIdentityAgent : Successfully detected BT IA.\n";
const std::string kBTOlder =
    "TqDetectBTIdentityAgent : BT IA v11 Does not support CSP based Spring Check.\n";
const std::string kBTPaused =
    "TqDetectBTIdentityAgent : Service in paused or pending state. Default to 'unknown'.\n";

// What the spring-check reading writes when none of the agent's keys exists.
std::string noAgentKeys() {
    return MissingKey(kTqIAUserKey) + MissingKey(kTqIAMachineKey32) + MissingKey(kTqIAPolicyKey) +
           MissingKey(kTqIAUserKey);
}

std::uint64_t ticks(const FILETIME& time) {
    return (std::uint64_t{time.dwHighDateTime} << 32) | time.dwLowDateTime;
}

struct Detected {
    int result = -99;
    IARecord record;
    std::string out;
    std::string err;
};

Detected detectWith(int (*detector)(IARecord*)) {
    Detected detected;
    CapturedStdout output;
    CapturedStderr errors;
    detected.result = detector(&detected.record);
    detected.err = errors.text();
    detected.out = output.text();
    return detected;
}

bool endsWith(const std::string& text, const std::string& tail) {
    return text.size() >= tail.size() &&
           text.compare(text.size() - tail.size(), tail.size(), tail) == 0;
}

// The whole operation, as the export runs it: the document handed out, and the lines written.
struct Answer {
    int result = -99;
    bool handedOut = false;
    std::string json;
    int length = -1;
    std::string out;
    std::string err;
};

Answer detectIdentityAgent(const char* logFile = nullptr) {
    Answer answer;
    TqZelDLLPlatform platform;
    char* text = nullptr;
    CapturedStdout output;
    CapturedStderr errors;
    answer.result = platform.detectIdentityAgent(&text, &answer.length, logFile);
    answer.err = errors.text();
    answer.out = output.text();
    if (text != nullptr) {
        answer.handedOut = true;
        answer.json = text;
        std::free(text);
    }
    return answer;
}

// The document must be exactly this text, and parse as JSON holding the same values.
// The detection's answer (1 found, 0 nothing found, negative both detectors failed) and the
// document, which goes out with every one of them.
void expectDocument(const Answer& answer, int result, const std::string& name,
                    const std::string& minVersion, const std::string& maxVersion,
                    const std::string& status, const std::string& locked, const std::string& zelSet,
                    const std::string& hasRebooted,
                    zeltest::CallSite caller = zeltest::CallSite::current()) {
    const zeltest::CallerTrace trace(caller);
    EXPECT_EQ(result, answer.result);
    ASSERT_TRUE(answer.handedOut);
    EXPECT_EQ(Document(name, minVersion, maxVersion, status, locked, zelSet, hasRebooted),
              answer.json);
    EXPECT_EQ(static_cast<int>(answer.json.size()), answer.length);
    ExpectParsedDocument(answer.json, name, minVersion, maxVersion, status, locked, zelSet,
                         hasRebooted);
}

using IdentityAgentDetection = IdentityAgentRegistry;
using IdentityAgentDocument = IdentityAgentRegistry;

// --- the organisation's agent ----------------------------------------------------------------

TEST_F(IdentityAgentDetection, OrganisationsAgentRunningFillsTheRecord) {
    installVessant();
    AgentStandIn agent(kTqKVRAgentExecutable);
    ASSERT_TRUE(agent.running());

    const Detected detected = detectWith(TqDetectKVRIdentityAgent);
    EXPECT_EQ(1, detected.result);
    EXPECT_EQ(kKVRFound, detected.out);
    EXPECT_EQ(noAgentKeys(), detected.err);
    const IARecord& record = detected.record;
    EXPECT_EQ("Vessant Identity Agent", record.productName);
    EXPECT_EQ("KVR", record.vendor);
    EXPECT_EQ(11, record.major);
    EXPECT_EQ(2, record.minor);
    EXPECT_STREQ(kTqKVRAgentExecutable, record.process.executableName);
    EXPECT_EQ(agent.processId(), record.process.processId);
    FILETIME creation{}, exit{}, kernel{}, user{};
    ASSERT_TRUE(::GetProcessTimes(agent.process(), &creation, &exit, &kernel, &user));
    EXPECT_EQ(ticks(creation), ticks(record.process.creationTime));
    EXPECT_NE(0u, record.process.account.sidStringLength);
    ExpectSpringCheck(record.springCheck, 0, 1, 0, 0);
}

TEST_F(IdentityAgentDetection, OrganisationsAgentIsFoundUnderItsOlderName) {
    install(iatest::kKVRDigitalCode, "KVR Digital Identity Agent", 10, 7);
    AgentStandIn agent(kTqKVRAgentExecutable);
    ASSERT_TRUE(agent.running());

    const Detected detected = detectWith(TqDetectKVRIdentityAgent);
    EXPECT_EQ(1, detected.result);
    EXPECT_EQ(kKVRFound, detected.out);
    EXPECT_EQ("KVR Digital Identity Agent", detected.record.productName);
    EXPECT_EQ("KVR", detected.record.vendor);
    EXPECT_EQ(10, detected.record.major);
    EXPECT_EQ(7, detected.record.minor);
}

TEST_F(IdentityAgentDetection, OrganisationsAgentInstalledButNotRunningGives0) {
    installVessant();
    const Detected detected = detectWith(TqDetectKVRIdentityAgent);
    EXPECT_EQ(0, detected.result);
    EXPECT_EQ(kKVRNotExecuting, detected.out);
    EXPECT_EQ("", detected.err);
    EXPECT_EQ("KVR", detected.record.vendor);
    EXPECT_EQ(0u, detected.record.process.processId);
}

TEST_F(IdentityAgentDetection, AgentWhoseAccountCannotBeReadIsNotThisUsersAgent) {
    installVessant();
    AgentStandIn agent(kTqKVRAgentExecutable, kLimitedQueryOnly);
    ASSERT_TRUE(agent.running());
    const Detected detected = detectWith(TqDetectKVRIdentityAgent);
    EXPECT_EQ(0, detected.result);
    EXPECT_EQ(kKVRNotExecuting, detected.out);
    EXPECT_EQ("TqGetProcessSIDInfo : OpenProcess Failed for Process ID " +
                  std::to_string(agent.processId()) + ". Error Code (0x00000005)\n",
              detected.err);
}

TEST_F(IdentityAgentDetection, NothingInstalledGives0Quietly) {
    AgentStandIn agent(kTqKVRAgentExecutable);
    ASSERT_TRUE(agent.running());
    for (auto detector : {TqDetectKVRIdentityAgent, TqDetectBTIdentityAgent}) {
        const Detected detected = detectWith(detector);
        EXPECT_EQ(0, detected.result);
        EXPECT_EQ("", detected.out);
        EXPECT_EQ("", detected.err);
        EXPECT_EQ("", detected.record.vendor);
    }
}

TEST_F(IdentityAgentDetection, UnreadableUninstallKeyFailsBothDetectors) {
    zeltest::DeleteKeyTree(HKEY_LOCAL_MACHINE, iatest::kUninstall32);
    Detected detected = detectWith(TqDetectKVRIdentityAgent);
    EXPECT_EQ(-15, detected.result);
    EXPECT_EQ("", detected.out);
    EXPECT_TRUE(endsWith(detected.err, "TqDetectKVRIdentityAgent : TqGetInstalledappVerNo failed "
                                       "to detect an Vessant/KVR Digital Identity Agent.\n"))
        << detected.err;

    detected = detectWith(TqDetectBTIdentityAgent);
    EXPECT_EQ(-15, detected.result);
    EXPECT_TRUE(
        endsWith(detected.err, "TqDetectBTIdentityAgent : TqGetInstalledappVerNo failed.\n"))
        << detected.err;
}

// --- the BT agent ----------------------------------------------------------------------------

TEST_F(IdentityAgentDetection, OlderBTAgentHasNoSpringCheck) {
    installBTOlder();
    AgentStandIn agent(kTqBTAgentExecutable);
    ASSERT_TRUE(agent.running());

    const Detected detected = detectWith(TqDetectBTIdentityAgent);
    EXPECT_EQ(1, detected.result);
    EXPECT_EQ(kBTOlder, detected.out);
    EXPECT_EQ("", detected.err);
    EXPECT_EQ("KVR Identity Agent", detected.record.productName);
    EXPECT_EQ("BT", detected.record.vendor);
    EXPECT_EQ(11, detected.record.major);
    EXPECT_EQ(0, detected.record.minor);
    EXPECT_EQ(agent.processId(), detected.record.process.processId);
    ExpectSpringCheck(detected.record.springCheck, -1, -1, -1, -1);
}

TEST_F(IdentityAgentDetection, NewerBTAgentFollowsTheCardChecker) {
    installBTNewer();
    AgentStandIn agent(kTqBTAgentExecutable);
    ASSERT_TRUE(agent.running());
    KitService checker;
    ASSERT_TRUE(checker.installed());

    // Installed, never started: stopped.
    Detected detected = detectWith(TqDetectBTIdentityAgent);
    EXPECT_EQ(1, detected.result);
    EXPECT_EQ(kBTFound, detected.out);
    EXPECT_EQ("KVR Halden Identity Agent", detected.record.productName);
    EXPECT_EQ(12, detected.record.major);
    EXPECT_EQ(4, detected.record.minor);
    ExpectSpringCheck(detected.record.springCheck, -1, 0, 1, -1);

    ASSERT_TRUE(checker.Start());
    detected = detectWith(TqDetectBTIdentityAgent);
    EXPECT_EQ(1, detected.result);
    EXPECT_EQ(kBTFound, detected.out);
    ExpectSpringCheck(detected.record.springCheck, -1, 1, 1, -1);

    ASSERT_TRUE(checker.Pause());
    detected = detectWith(TqDetectBTIdentityAgent);
    EXPECT_EQ(1, detected.result);
    EXPECT_EQ(kBTPaused, detected.out);
    ExpectSpringCheck(detected.record.springCheck, -1, -1, 1, -1);
    EXPECT_EQ("", detected.err);
}

TEST_F(IdentityAgentDetection, NewerBTAgentWithoutItsCardCheckerFails) {
    zeltest::RemoveService(zeltest::kCardCheckerServiceName);
    installBTNewer();
    AgentStandIn agent(kTqBTAgentExecutable);
    ASSERT_TRUE(agent.running());

    const Detected detected = detectWith(TqDetectBTIdentityAgent);
    EXPECT_EQ(-4, detected.result);
    EXPECT_EQ("", detected.out);
    EXPECT_EQ("TqGetServiceStatus : OpenSCManager failed. Error Code (0x00000424)\n"
              "TqDetectBTIdentityAgent : TqGetServiceStatus failed.\n",
              detected.err);
}

TEST_F(IdentityAgentDetection, BTAgentInstalledButNotRunningGives0) {
    installBTOlder();
    const Detected detected = detectWith(TqDetectBTIdentityAgent);
    EXPECT_EQ(0, detected.result);
    EXPECT_EQ(kBTNotExecuting, detected.out);
    EXPECT_EQ("BT", detected.record.vendor);
}

TEST_F(IdentityAgentDetection, NullRecordIsRefused) {
    CapturedStderr errors;
    EXPECT_EQ(-1, TqDetectKVRIdentityAgent(nullptr));
    EXPECT_EQ(-1, TqDetectBTIdentityAgent(nullptr));
    EXPECT_EQ("TqDetectKVRIdentityAgent : Invalid argument(s) supplied.\n"
              "TqDetectBTIdentityAgent : Invalid argument(s) supplied.\n",
              errors.text());
}

// --- the document ----------------------------------------------------------------------------

TEST(IdentityAgentJSON, DocumentLayoutWithCrossedVersionNames) {
    IARecord record;
    record.vendor = "KVR";
    record.major = 11;
    record.minor = 2;
    record.springCheck = springCheckBlock{1, 0, 0, 1};
    std::string json = "untouched";
    EXPECT_EQ(0, TqDetectedIAtoJSONString(&record, json));
    EXPECT_EQ("{\n"
              "\t\"ia\":{\n"
              "\t\t\"name\": \"KVR\",\n"
              "\t\t\"minVersion\": \"2\",\n"
              "\t\t\"maxVersion\": \"11\"\n"
              "\t},\n"
              "\t\"springCheck\":{\n"
              "\t\t\"status\": \"off\",\n"
              "\t\t\"locked\": \"false\",\n"
              "\t\t\"zelSet\": \"true\"\n"
              "\t},\n"
              "\t\"os\":{\n"
              "\t\t\"hasRebooted\": \"pending\"\n"
              "\t}\n"
              "}",
              json);
    ExpectParsedDocument(json, "KVR", "2", "11", "off", "false", "true", "pending");
}

TEST(IdentityAgentJSON, ResetRecordReadsUnknownEverywhere) {
    const IARecord record;
    std::string json;
    EXPECT_EQ(0, TqDetectedIAtoJSONString(&record, json));
    EXPECT_EQ(Document("unknown", "0", "0", "unknown", "unknown", "unknown", "unknown"), json);
    ExpectParsedDocument(json, "unknown", "0", "0", "unknown", "unknown", "unknown", "unknown");
}

TEST(IdentityAgentJSON, EveryCodeHasItsWord) {
    IARecord record;
    record.vendor = "BT";
    std::string json;
    record.springCheck = springCheckBlock{2, 1, 1, 0};
    ASSERT_EQ(0, TqDetectedIAtoJSONString(&record, json));
    EXPECT_EQ(Document("BT", "0", "0", "on", "true", "false", "true"), json);
    // There is no "false" for a restart, and any other number is unknown.
    record.springCheck = springCheckBlock{0, 2, 2, 7};
    ASSERT_EQ(0, TqDetectedIAtoJSONString(&record, json));
    EXPECT_EQ(Document("BT", "0", "0", "unknown", "unknown", "unknown", "unknown"), json);
    record.springCheck = springCheckBlock{3, -5, -1, -1};
    ASSERT_EQ(0, TqDetectedIAtoJSONString(&record, json));
    EXPECT_EQ(Document("BT", "0", "0", "unknown", "unknown", "unknown", "unknown"), json);
}

TEST(IdentityAgentJSON, VersionsAreUnsignedDecimal) {
    IARecord record;
    record.vendor = "KVR";
    record.major = -2;
    record.minor = -1;
    std::string json;
    ASSERT_EQ(0, TqDetectedIAtoJSONString(&record, json));
    EXPECT_EQ(
        Document("KVR", "4294967295", "4294967294", "unknown", "unknown", "unknown", "unknown"),
        json);
}

TEST(IdentityAgentJSON, NullRecordGives23) {
    std::string json = "untouched";
    CapturedStderr errors;
    EXPECT_EQ(23, TqDetectedIAtoJSONString(nullptr, json));
    EXPECT_EQ("TqDetectedIAtoJSONString Exception Occurred - Invalid argument(s) supplied.\n",
              errors.text());
    EXPECT_EQ("untouched", json);
}

// --- the operation: calling order and the document of each state -----------------------------

TEST_F(IdentityAgentDocument, NothingInstalledReadsUnknown) {
    zeltest::ScratchLogFile log;
    const Answer answer = detectIdentityAgent(log.path());
    expectDocument(answer, 0, "unknown", "0", "0", "unknown", "unknown", "unknown", "unknown");
    EXPECT_EQ("", answer.out);
    EXPECT_EQ("", answer.err);
    EXPECT_EQ((std::vector<std::string>{"[INFO] TqZelDLLPlatform::detectIdentityAgent : Entered",
                                        "[INFO] TqZelDLLPlatform::detectIdentityAgent : Leaving"}),
              log.bodies());
}

TEST_F(IdentityAgentDocument, NoAgentKeysAnywhere) {
    installVessant();
    AgentStandIn agent(kTqKVRAgentExecutable);
    ASSERT_TRUE(agent.running());
    const Answer answer = detectIdentityAgent();
    expectDocument(answer, 1, "KVR", "2", "11", "on", "false", "false", "unknown");
    EXPECT_EQ(kKVRFound, answer.out);
    EXPECT_EQ(noAgentKeys(), answer.err);
}

TEST_F(IdentityAgentDocument, UserSwitchedOffWithoutRecord) {
    installVessant();
    AgentStandIn agent(kTqKVRAgentExecutable);
    ASSERT_TRUE(agent.running());
    setCardRemovalCheck(HKEY_CURRENT_USER, kTqIAUserKey, "false");
    const Answer answer = detectIdentityAgent();
    expectDocument(answer, 1, "KVR", "2", "11", "off", "false", "false", "unknown");
}

TEST_F(IdentityAgentDocument, SwitchedOffIsPendingUntilTheAgentRestarts) {
    installVessant();
    auto agent = std::make_unique<AgentStandIn>(kTqKVRAgentExecutable, nullptr,
                                                zeltest::CallSite::current());
    ASSERT_TRUE(agent->running());
    CapturedStderr ignoredErrors;
    ASSERT_EQ(0, TqSetKVRIASpringCheck(false));
    ignoredErrors.end();

    Answer answer = detectIdentityAgent();
    expectDocument(answer, 1, "KVR", "2", "11", "off", "false", "true", "pending");
    EXPECT_EQ(kKVRFound, answer.out);
    EXPECT_EQ(MissingKey(kTqIAMachineKey32) + MissingKey(kTqIAPolicyKey), answer.err);

    ASSERT_TRUE(agent->Stop());
    agent = std::make_unique<AgentStandIn>(kTqKVRAgentExecutable, nullptr,
                                           zeltest::CallSite::current());
    ASSERT_TRUE(agent->running());
    answer = detectIdentityAgent();
    expectDocument(answer, 1, "KVR", "2", "11", "off", "false", "true", "true");
}

TEST_F(IdentityAgentDocument, PolicyOneIsOnAndLocked) {
    installVessant();
    AgentStandIn agent(kTqKVRAgentExecutable);
    ASSERT_TRUE(agent.running());
    setCardRemovalCheck(HKEY_LOCAL_MACHINE, kTqIAPolicyKey, "1");
    const Answer answer = detectIdentityAgent();
    expectDocument(answer, 1, "KVR", "2", "11", "on", "true", "false", "unknown");
}

TEST_F(IdentityAgentDocument, ShortRecordStillGivesADocument) {
    installVessant();
    AgentStandIn agent(kTqKVRAgentExecutable);
    ASSERT_TRUE(agent.running());
    setCardRemovalCheck(HKEY_CURRENT_USER, kTqIAUserKey, "false");
    zeltest::WriteValue(HKEY_CURRENT_USER, kTqIAUserKey, kTqZelCheckValue, REG_BINARY,
                        std::vector<BYTE>(12, 0x42));
    const Answer answer = detectIdentityAgent();
    expectDocument(answer, 1, "KVR", "2", "11", "off", "false", "false", "unknown");
    EXPECT_EQ(kKVRFound, answer.out);
    EXPECT_EQ(MissingKey(kTqIAMachineKey32) + MissingKey(kTqIAPolicyKey) +
                  "TqGetZelKVRIAInformation : Stored REG_BINARY data is of invalid size\n",
              answer.err);
}

TEST_F(IdentityAgentDocument, OrganisationsAgentUnderItsOlderName) {
    install(iatest::kKVRDigitalCode, "KVR Digital Identity Agent", 10, 7);
    AgentStandIn agent(kTqKVRAgentExecutable);
    ASSERT_TRUE(agent.running());
    const Answer answer = detectIdentityAgent();
    expectDocument(answer, 1, "KVR", "7", "10", "on", "false", "false", "unknown");
}

TEST_F(IdentityAgentDocument, OlderBTAgentReadsUnknownSpringCheck) {
    installBTOlder();
    AgentStandIn agent(kTqBTAgentExecutable);
    ASSERT_TRUE(agent.running());
    const Answer answer = detectIdentityAgent();
    expectDocument(answer, 1, "BT", "0", "11", "unknown", "unknown", "unknown", "unknown");
    EXPECT_EQ(kBTOlder, answer.out);
    EXPECT_EQ("", answer.err);
}

TEST_F(IdentityAgentDocument, BTAgentNotRunningLeavesAResetRecord) {
    installBTOlder();
    const Answer answer = detectIdentityAgent();
    expectDocument(answer, 0, "unknown", "0", "0", "unknown", "unknown", "unknown", "unknown");
    EXPECT_EQ(kBTNotExecuting, answer.out);
}

TEST_F(IdentityAgentDocument, NewerBTAgentWithCardCheckerRunning) {
    installBTNewer();
    AgentStandIn agent(kTqBTAgentExecutable);
    ASSERT_TRUE(agent.running());
    KitService checker;
    ASSERT_TRUE(checker.Start());
    const Answer answer = detectIdentityAgent();
    expectDocument(answer, 1, "BT", "4", "12", "on", "true", "unknown", "unknown");
    EXPECT_EQ(kBTFound, answer.out);
}

TEST_F(IdentityAgentDocument, NewerBTAgentWithCardCheckerStopped) {
    installBTNewer();
    AgentStandIn agent(kTqBTAgentExecutable);
    ASSERT_TRUE(agent.running());
    KitService checker;
    ASSERT_TRUE(checker.Start());
    ASSERT_TRUE(checker.Stop());
    const Answer answer = detectIdentityAgent();
    expectDocument(answer, 1, "BT", "4", "12", "off", "true", "unknown", "unknown");
    EXPECT_EQ(kBTFound, answer.out);
}

TEST_F(IdentityAgentDocument, NewerBTAgentWithCardCheckerPaused) {
    installBTNewer();
    AgentStandIn agent(kTqBTAgentExecutable);
    ASSERT_TRUE(agent.running());
    KitService checker;
    ASSERT_TRUE(checker.Start());
    ASSERT_TRUE(checker.Pause());
    const Answer answer = detectIdentityAgent();
    expectDocument(answer, 1, "BT", "4", "12", "unknown", "true", "unknown", "unknown");
    EXPECT_EQ(kBTPaused, answer.out);
}

TEST_F(IdentityAgentDocument, OrganisationsAgentWinsOverTheBTAgent) {
    installVessant();
    installBTNewer();
    AgentStandIn kvr(kTqKVRAgentExecutable);
    AgentStandIn bt(kTqBTAgentExecutable);
    ASSERT_TRUE(kvr.running());
    ASSERT_TRUE(bt.running());
    KitService checker;
    ASSERT_TRUE(checker.Start());
    const Answer answer = detectIdentityAgent();
    expectDocument(answer, 1, "KVR", "2", "11", "on", "false", "false", "unknown");
    // The BT agent is not even asked.
    EXPECT_EQ(kKVRFound, answer.out);
}

TEST_F(IdentityAgentDocument, BTAgentAnswersWhenTheOrganisationsIsNotRunning) {
    installVessant();
    installBTOlder();
    AgentStandIn bt(kTqBTAgentExecutable);
    ASSERT_TRUE(bt.running());
    const Answer answer = detectIdentityAgent();
    expectDocument(answer, 1, "BT", "0", "11", "unknown", "unknown", "unknown", "unknown");
    EXPECT_EQ(kKVRNotExecuting + kBTOlder, answer.out);
}

// One failed detector is no failure of the operation: the other one's answer stands.
TEST_F(IdentityAgentDocument, OneFailedDetectorStillGivesTheDocument) {
    zeltest::RemoveService(zeltest::kCardCheckerServiceName);
    installBTNewer();
    AgentStandIn bt(kTqBTAgentExecutable);
    ASSERT_TRUE(bt.running());
    const Answer answer = detectIdentityAgent();
    expectDocument(answer, 0, "unknown", "0", "0", "unknown", "unknown", "unknown", "unknown");
    EXPECT_EQ("TqGetServiceStatus : OpenSCManager failed. Error Code (0x00000424)\n"
              "TqDetectBTIdentityAgent : TqGetServiceStatus failed.\n",
              answer.err);
}

TEST_F(IdentityAgentDocument, BothDetectorsFailedIsAFailureWithTheDocument) {
    zeltest::DeleteKeyTree(HKEY_LOCAL_MACHINE, iatest::kUninstall32);
    zeltest::ScratchLogFile log;
    const Answer answer = detectIdentityAgent(log.path());
    expectDocument(answer, -15, "unknown", "0", "0", "unknown", "unknown", "unknown", "unknown");
    EXPECT_EQ((std::vector<std::string>{"[INFO] TqZelDLLPlatform::detectIdentityAgent : Entered",
                                        "[INFO] TqZelDLLPlatform::detectIdentityAgent : Leaving"}),
              log.bodies());
}

} // namespace
