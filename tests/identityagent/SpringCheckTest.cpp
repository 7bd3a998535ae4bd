// The spring-check settings on the real registry of the Wine prefix, with the test kit's agent
// stand-in running as IdentityAgent.exe where the switch needs a running agent.
//
// Not covered here, because this host cannot produce it: switching off while IdentityAgent.exe
// runs only under another user's account. The prefix has one user, so every process a test can
// start runs under the caller's own SID. The closest real case is covered instead: an agent
// process whose account cannot be read does not count as this user's agent.
#include "identityagent/IdentityAgentFixture.h"
#include "support/CapturedStreams.h"
#include "support/KitProcesses.h"

#include <cstring>
#include <vector>

namespace {

using iatest::ExpectSpringCheck;
using iatest::IdentityAgentRegistry;
using iatest::MissingKey;
using iatest::SearchOpenFailure;
using zeltest::AgentStandIn;
using zeltest::CapturedStderr;
using zeltest::ReadValue;

// Lets a process be opened for its image name and times only, not for its token.
constexpr const char* kLimitedQueryOnly = "D:(A;;0x1000;;;WD)";

// A record of an agent process as the process utilities fill it.
processRecord agentRecord(DWORD processId, DWORD creationLow) {
    processRecord record{};
    std::strcpy(record.executableName, kTqKVRAgentExecutable);
    record.processId = processId;
    record.creationTime = FILETIME{creationLow, 0x01DB3C4Au};
    record.kernelTime = FILETIME{0x100, 0};
    record.userTime = FILETIME{0x200, 0};
    std::strcpy(record.account.accountName, "zeluser");
    record.account.accountNameLength = 7;
    return record;
}

std::vector<BYTE> bytesOf(const processRecord& record) {
    const BYTE* bytes = reinterpret_cast<const BYTE*>(&record);
    return std::vector<BYTE>(bytes, bytes + sizeof record);
}

struct SpringCheckRead {
    int result = -99;
    springCheckBlock block;
    std::string err;
};

SpringCheckRead readSpringCheck(const processRecord& running) {
    SpringCheckRead read;
    CapturedStderr errors;
    read.result = TqDetectKVRIdentityAgentSpringCheck(&read.block, &running);
    read.err = errors.text();
    return read;
}

class SpringCheck : public IdentityAgentRegistry {
protected:
    const processRecord running_ = agentRecord(4242, 0x5A5A0001u);
};

// --- reading the setting ---------------------------------------------------------------------

TEST_F(SpringCheck, NoKeyAnywhereIsOnNotLockedWithoutRecord) {
    const SpringCheckRead read = readSpringCheck(running_);
    EXPECT_EQ(0, read.result);
    // hasRebooted 0 reads "unknown" in the document: there is no "false".
    ExpectSpringCheck(read.block, 0, 1, 0, 0);
    // The search reports each missing key; the last one is the record's lookup.
    EXPECT_EQ(MissingKey(kTqIAUserKey) + MissingKey(kTqIAMachineKey32) +
                  MissingKey(kTqIAPolicyKey) + MissingKey(kTqIAUserKey),
              read.err);
}

TEST_F(SpringCheck, KeysWithoutTheValueCountAsMissing) {
    zeltest::CreateKey(HKEY_CURRENT_USER, kTqIAUserKey);
    zeltest::CreateKey(HKEY_LOCAL_MACHINE, kTqIAPolicyKey);
    const SpringCheckRead read = readSpringCheck(running_);
    EXPECT_EQ(0, read.result);
    ExpectSpringCheck(read.block, 0, 1, 0, 0);
}

TEST_F(SpringCheck, FalseUnderTheUserKeyIsOffAndNotLocked) {
    setCardRemovalCheck(HKEY_CURRENT_USER, kTqIAUserKey, "false");
    const SpringCheckRead read = readSpringCheck(running_);
    EXPECT_EQ(0, read.result);
    ExpectSpringCheck(read.block, 0, 0, 0, 0);
    EXPECT_EQ(MissingKey(kTqIAMachineKey32) + MissingKey(kTqIAPolicyKey), read.err);
}

TEST_F(SpringCheck, ZeroAndOneAndAnyLetterCaseAreUnderstood) {
    for (const char* off : {"0", "FALSE", "False", "fAlSe"}) {
        setCardRemovalCheck(HKEY_CURRENT_USER, kTqIAUserKey, off);
        EXPECT_EQ(0, readSpringCheck(running_).block.status) << off;
    }
    for (const char* on : {"1", "TRUE", "True", "tRuE"}) {
        setCardRemovalCheck(HKEY_CURRENT_USER, kTqIAUserKey, on);
        const SpringCheckRead read = readSpringCheck(running_);
        EXPECT_EQ(1, read.block.status) << on;
        EXPECT_EQ(0, read.block.locked) << on;
    }
}

TEST_F(SpringCheck, RecordOfTheStillRunningAgentIsPending) {
    setCardRemovalCheck(HKEY_CURRENT_USER, kTqIAUserKey, "false");
    ASSERT_EQ(0, TqSetZelKVRIAInformation(&running_));
    const SpringCheckRead read = readSpringCheck(running_);
    EXPECT_EQ(0, read.result);
    ExpectSpringCheck(read.block, 1, 0, 0, 1);
    EXPECT_EQ(MissingKey(kTqIAMachineKey32) + MissingKey(kTqIAPolicyKey), read.err);
}

TEST_F(SpringCheck, RecordOfAnotherProcessMeansTheAgentRestarted) {
    setCardRemovalCheck(HKEY_CURRENT_USER, kTqIAUserKey, "false");
    ASSERT_EQ(0, TqSetZelKVRIAInformation(&running_));

    processRecord newId = running_;
    newId.processId = 4243;
    processRecord newStart = running_;
    newStart.creationTime.dwLowDateTime += 1;
    processRecord newName = running_;
    std::strcpy(newName.executableName, "IdentityAgent.ex");
    for (const processRecord* now : {&newId, &newStart, &newName}) {
        const SpringCheckRead read = readSpringCheck(*now);
        EXPECT_EQ(0, read.result);
        ExpectSpringCheck(read.block, 2, 0, 0, 1);
    }
    // Times other than the start do not tell processes apart.
    processRecord busier = running_;
    busier.kernelTime.dwLowDateTime += 1000;
    busier.userTime.dwLowDateTime += 1000;
    EXPECT_EQ(1, readSpringCheck(busier).block.hasRebooted);
}

TEST_F(SpringCheck, OneUnderThePoliciesKeyIsOnAndLocked) {
    setCardRemovalCheck(HKEY_LOCAL_MACHINE, kTqIAPolicyKey, "1");
    const SpringCheckRead read = readSpringCheck(running_);
    EXPECT_EQ(0, read.result);
    ExpectSpringCheck(read.block, 0, 1, 1, 0);
    EXPECT_EQ(MissingKey(kTqIAUserKey) + MissingKey(kTqIAMachineKey32), read.err);
}

TEST_F(SpringCheck, MachineValueOverridesTheUsersAndLocksIt) {
    setCardRemovalCheck(HKEY_CURRENT_USER, kTqIAUserKey, "false");
    ASSERT_EQ(0, TqSetZelKVRIAInformation(&running_));
    setCardRemovalCheck(HKEY_LOCAL_MACHINE, kTqIAMachineKey32, "TRUE");
    const SpringCheckRead read = readSpringCheck(running_);
    EXPECT_EQ(0, read.result);
    // Locked: the stored record is not even looked at.
    ExpectSpringCheck(read.block, 0, 1, 1, 0);
}

TEST_F(SpringCheck, PolicyHasTheLastWord) {
    setCardRemovalCheck(HKEY_CURRENT_USER, kTqIAUserKey, "1");
    setCardRemovalCheck(HKEY_LOCAL_MACHINE, kTqIAMachineKey32, "1");
    setCardRemovalCheck(HKEY_LOCAL_MACHINE, kTqIAPolicyKey, "0");
    const SpringCheckRead read = readSpringCheck(running_);
    ExpectSpringCheck(read.block, 0, 0, 1, 0);
}

// The machine-wide 32-bit key is named by its Wow6432Node path: a 32-bit program's write of
// SOFTWARE\Vessant\Identity Agent lands there.
TEST_F(SpringCheck, MachineValueWrittenThroughThe32BitViewLocks) {
    zeltest::WriteString(HKEY_LOCAL_MACHINE, "SOFTWARE\\Vessant\\Identity Agent",
                         kTqCardRemovalCheckValue, "0", KEY_WOW64_32KEY);
    const SpringCheckRead read = readSpringCheck(running_);
    ExpectSpringCheck(read.block, 0, 0, 1, 0);
}

TEST_F(SpringCheck, UnknownTextIsOffButDoesNotCountAsASetting) {
    setCardRemovalCheck(HKEY_CURRENT_USER, kTqIAUserKey, "maybe");
    SpringCheckRead read = readSpringCheck(running_);
    EXPECT_EQ(0, read.result);
    ExpectSpringCheck(read.block, 0, 0, 0, 0);

    // After a counted setting an unknown text still fixes the setting, and switches it off.
    setCardRemovalCheck(HKEY_CURRENT_USER, kTqIAUserKey, "1");
    setCardRemovalCheck(HKEY_LOCAL_MACHINE, kTqIAPolicyKey, " true");
    read = readSpringCheck(running_);
    ExpectSpringCheck(read.block, 0, 0, 1, 0);
}

TEST_F(SpringCheck, AnUncountedUserValueLeavesLockedOpen) {
    // A valid value under the user key is the first one handled: it cannot lock. With the
    // other two keys unreadable, nothing decides whether the setting is locked.
    setCardRemovalCheck(HKEY_CURRENT_USER, kTqIAUserKey, "FALSE");
    zeltest::DeniedKey machine(HKEY_LOCAL_MACHINE, kTqIAMachineKey32);
    zeltest::DeniedKey policy(HKEY_LOCAL_MACHINE, kTqIAPolicyKey);
    const SpringCheckRead read = readSpringCheck(running_);
    EXPECT_EQ(16, read.result);
    ExpectSpringCheck(read.block, -1, 0, -1, -1);
    const std::string failed =
        "TqDetectKVRIdentityAgentSpringCheck : TqFindRegistryKeyAndOrValueName(1) failed. "
        "Error Code 16.\n";
    EXPECT_NE(std::string::npos, read.err.find(failed)) << read.err;
    EXPECT_NE(read.err.find(failed), read.err.rfind(failed)) << read.err;
}

TEST_F(SpringCheck, UnreadableUserKeyIsReportedAndTheOthersStillCount) {
    zeltest::DeniedKey user(HKEY_CURRENT_USER, kTqIAUserKey);
    const SpringCheckRead read = readSpringCheck(running_);
    // The record's lookup cannot read the key either and finds no record: its 0 is the result.
    EXPECT_EQ(0, read.result);
    ExpectSpringCheck(read.block, 0, 1, 0, 0);
    EXPECT_EQ(SearchOpenFailure(kTqIAUserKey, ERROR_ACCESS_DENIED) +
                  "TqDetectKVRIdentityAgentSpringCheck : TqFindRegistryKeyAndOrValueName(1) "
                  "failed. Error Code 16.\n" +
                  MissingKey(kTqIAMachineKey32) + MissingKey(kTqIAPolicyKey) +
                  SearchOpenFailure(kTqIAUserKey, ERROR_ACCESS_DENIED),
              read.err);
}

// A failed key is remembered only until the record's lookup answers: no ZelCheck (0) is the
// result then.
TEST_F(SpringCheck, DeniedMachineKeyWithoutRecordGives0) {
    zeltest::DeniedKey machine(HKEY_LOCAL_MACHINE, kTqIAMachineKey32);
    const SpringCheckRead read = readSpringCheck(running_);
    EXPECT_EQ(0, read.result);
    ExpectSpringCheck(read.block, 0, 1, 0, 0);
    EXPECT_EQ(MissingKey(kTqIAUserKey) + SearchOpenFailure(kTqIAMachineKey32, ERROR_ACCESS_DENIED) +
                  "TqDetectKVRIdentityAgentSpringCheck : TqFindRegistryKeyAndOrValueName(1) "
                  "failed. Error Code 16.\n" +
                  MissingKey(kTqIAPolicyKey) + MissingKey(kTqIAUserKey),
              read.err);
}

// A short record (-12) replaces a failure met among the keys.
TEST_F(SpringCheck, DeniedMachineKeyWithAShortRecordGives12) {
    setCardRemovalCheck(HKEY_CURRENT_USER, kTqIAUserKey, "false");
    zeltest::WriteValue(HKEY_CURRENT_USER, kTqIAUserKey, kTqZelCheckValue, REG_BINARY,
                        std::vector<BYTE>(12, 0x42));
    zeltest::DeniedKey machine(HKEY_LOCAL_MACHINE, kTqIAMachineKey32);
    const SpringCheckRead read = readSpringCheck(running_);
    EXPECT_EQ(12, read.result);
    ExpectSpringCheck(read.block, 0, 0, 0, 0);
}

TEST_F(SpringCheck, NullArgumentsGive1) {
    springCheckBlock block;
    CapturedStderr errors;
    EXPECT_EQ(1, TqDetectKVRIdentityAgentSpringCheck(nullptr, &running_));
    EXPECT_EQ(1, TqDetectKVRIdentityAgentSpringCheck(&block, nullptr));
    EXPECT_EQ("TqDetectKVRIdentityAgentSpringCheck : Invalid argument(s) supplied.\n"
              "TqDetectKVRIdentityAgentSpringCheck : Invalid argument(s) supplied.\n",
              errors.text());
    ExpectSpringCheck(block, -1, -1, -1, -1);
}

// --- the ZelCheck record ---------------------------------------------------------------------

TEST_F(SpringCheck, RecordReadsBackIdenticalAndIsStoredScrambled) {
    CapturedStderr storeErrors;
    EXPECT_EQ(0, TqSetZelKVRIAInformation(&running_));
    EXPECT_EQ("", storeErrors.text());

    const auto stored = ReadValue(HKEY_CURRENT_USER, kTqIAUserKey, kTqZelCheckValue);
    ASSERT_TRUE(stored.present);
    EXPECT_EQ(static_cast<DWORD>(REG_BINARY), stored.type);
    ASSERT_EQ(496u, stored.data.size());
    const std::vector<BYTE> plain = bytesOf(running_);
    EXPECT_NE(plain, stored.data);
    // Each byte is XORed with one of 32 key bytes, none of them zero: every byte differs, and
    // the difference repeats every 32 bytes.
    for (std::size_t i = 0; i < plain.size(); ++i) {
        EXPECT_NE(plain[i], stored.data[i]) << i;
        EXPECT_EQ(plain[i % 32] ^ stored.data[i % 32], plain[i] ^ stored.data[i]) << i;
    }

    processRecord read;
    std::memset(&read, 0xEE, sizeof read);
    CapturedStderr readErrors;
    EXPECT_EQ(1, TqGetZelKVRIAInformation(&read));
    EXPECT_EQ("", readErrors.text());
    EXPECT_EQ(0, std::memcmp(&running_, &read, sizeof read));
}

TEST_F(SpringCheck, NoRecordGives0AndLeavesTheOutput) {
    processRecord read;
    std::memset(&read, 0xEE, sizeof read);
    EXPECT_EQ(0, TqGetZelKVRIAInformation(&read));
    zeltest::CreateKey(HKEY_CURRENT_USER, kTqIAUserKey);
    EXPECT_EQ(0, TqGetZelKVRIAInformation(&read));
    EXPECT_EQ(static_cast<char>(0xEE), read.executableName[0]);
}

TEST_F(SpringCheck, ShortRecordGivesMinus12) {
    std::vector<BYTE> shortRecord = bytesOf(running_);
    shortRecord.resize(495);
    zeltest::WriteValue(HKEY_CURRENT_USER, kTqIAUserKey, kTqZelCheckValue, REG_BINARY, shortRecord);
    processRecord read{};
    CapturedStderr errors;
    EXPECT_EQ(-12, TqGetZelKVRIAInformation(&read));
    EXPECT_EQ("TqGetZelKVRIAInformation : Stored REG_BINARY data is of invalid size\n",
              errors.text());
}

TEST_F(SpringCheck, ShortRecordLeavesZelSetFalseAndRebootUnknown) {
    setCardRemovalCheck(HKEY_CURRENT_USER, kTqIAUserKey, "false");
    zeltest::WriteValue(HKEY_CURRENT_USER, kTqIAUserKey, kTqZelCheckValue, REG_BINARY,
                        std::vector<BYTE>(100, 0x41));
    const SpringCheckRead read = readSpringCheck(running_);
    EXPECT_EQ(12, read.result);
    ExpectSpringCheck(read.block, 0, 0, 0, 0);
    EXPECT_EQ(MissingKey(kTqIAMachineKey32) + MissingKey(kTqIAPolicyKey) +
                  "TqGetZelKVRIAInformation : Stored REG_BINARY data is of invalid size\n",
              read.err);
}

TEST_F(SpringCheck, LongerRecordUsesItsFirst496Bytes) {
    ASSERT_EQ(0, TqSetZelKVRIAInformation(&running_));
    auto stored = ReadValue(HKEY_CURRENT_USER, kTqIAUserKey, kTqZelCheckValue).data;
    stored.insert(stored.end(), {0x01, 0x02, 0x03, 0x04, 0x05, 0x06, 0x07});
    zeltest::WriteValue(HKEY_CURRENT_USER, kTqIAUserKey, kTqZelCheckValue, REG_BINARY, stored);
    processRecord read{};
    EXPECT_EQ(1, TqGetZelKVRIAInformation(&read));
    EXPECT_EQ(0, std::memcmp(&running_, &read, sizeof read));
}

TEST_F(SpringCheck, StoringCreatesTheUserKeyAndNullIsRefused) {
    ASSERT_FALSE(zeltest::KeyExists(HKEY_CURRENT_USER, kTqIAUserKey));
    EXPECT_EQ(0, TqSetZelKVRIAInformation(&running_));
    EXPECT_TRUE(zeltest::KeyExists(HKEY_CURRENT_USER, kTqIAUserKey));

    CapturedStderr errors;
    EXPECT_EQ(1, TqSetZelKVRIAInformation(nullptr));
    EXPECT_EQ(-1, TqGetZelKVRIAInformation(nullptr));
    EXPECT_EQ("TqSetZelKVRIAInformation : Invalid argument(s) supplied.\n"
              "TqGetZelKVRIAInformation : Invalid argument(s) supplied.\n",
              errors.text());
}

TEST_F(SpringCheck, StoringUnderAnUnreadableKeyIsAccessDenied) {
    zeltest::DeniedKey user(HKEY_CURRENT_USER, kTqIAUserKey);
    CapturedStderr errors;
    EXPECT_EQ(16, TqSetZelKVRIAInformation(&running_));
    EXPECT_EQ("TqSetZelKVRIAInformation : RegOpenKeyEx failed to open. Error Code (0x00000005) - " +
                  zeltest::SystemText(5) + "\n",
              errors.text());
}

// --- switching -------------------------------------------------------------------------------

TEST_F(SpringCheck, SwitchingOffWhileTheAgentIsNotRunningChangesNothing) {
    CapturedStderr errors;
    EXPECT_EQ(11, TqSetKVRIASpringCheck(false));
    EXPECT_EQ("TqSetKVRIASpringCheck : TqIsProcessExecuting unsuccessful. Result Code: Process not "
              "running\n",
              errors.text());
    EXPECT_FALSE(zeltest::KeyExists(HKEY_CURRENT_USER, kTqIAUserKey));

    // An existing key keeps its values as they were.
    setCardRemovalCheck(HKEY_CURRENT_USER, kTqIAUserKey, "TRUE");
    CapturedStderr ignoredErrors;
    EXPECT_EQ(11, TqSetKVRIASpringCheck(false));
    ignoredErrors.end();
    const auto value = ReadValue(HKEY_CURRENT_USER, kTqIAUserKey, kTqCardRemovalCheckValue);
    EXPECT_EQ((std::vector<BYTE>{'T', 'R', 'U', 'E', 0}), value.data);
    EXPECT_FALSE(ReadValue(HKEY_CURRENT_USER, kTqIAUserKey, kTqZelCheckValue).present);
}

TEST_F(SpringCheck, AnAgentWhoseAccountCannotBeReadIsNotThisUsersAgent) {
    AgentStandIn agent(kTqKVRAgentExecutable, kLimitedQueryOnly);
    ASSERT_TRUE(agent.running());
    CapturedStderr errors;
    EXPECT_EQ(11, TqSetKVRIASpringCheck(false));
    EXPECT_EQ("TqGetProcessSIDInfo : OpenProcess Failed for Process ID " +
                  std::to_string(agent.processId()) +
                  ". Error Code (0x00000005)\n"
                  "TqSetKVRIASpringCheck : TqIsProcessExecuting unsuccessful. Result Code: "
                  "Process not running\n",
              errors.text());
    EXPECT_FALSE(zeltest::KeyExists(HKEY_CURRENT_USER, kTqIAUserKey));
}

TEST_F(SpringCheck, SwitchingOffWritesFalseAndTheRunningAgentsRecord) {
    AgentStandIn agent(kTqKVRAgentExecutable);
    ASSERT_TRUE(agent.running());
    CapturedStderr errors;
    EXPECT_EQ(0, TqSetKVRIASpringCheck(false));
    EXPECT_EQ("", errors.text());

    const auto value = ReadValue(HKEY_CURRENT_USER, kTqIAUserKey, kTqCardRemovalCheckValue);
    ASSERT_TRUE(value.present);
    EXPECT_EQ(static_cast<DWORD>(REG_SZ), value.type);
    // The count is five, from NUL-terminated text: the registry stores that NUL as well.
    EXPECT_EQ((std::vector<BYTE>{'F', 'a', 'l', 's', 'e', 0}), value.data);

    processRecord stored{};
    ASSERT_EQ(1, TqGetZelKVRIAInformation(&stored));
    processRecord now{};
    ASSERT_EQ(1, TqIsProcessExecuting(kTqKVRAgentExecutable, true, &now));
    EXPECT_STREQ(kTqKVRAgentExecutable, stored.executableName);
    EXPECT_EQ(agent.processId(), stored.processId);
    EXPECT_EQ(0, std::memcmp(&now.creationTime, &stored.creationTime, sizeof(FILETIME)));
    EXPECT_EQ(0, std::memcmp(&now.account, &stored.account, sizeof now.account));
    EXPECT_NE(0u, stored.account.sidStringLength);

    // The detection now reads it as switched off, waiting for the agent to restart.
    const SpringCheckRead read = readSpringCheck(now);
    EXPECT_EQ(0, read.result);
    ExpectSpringCheck(read.block, 1, 0, 0, 1);
}

TEST_F(SpringCheck, EnablingWhenNothingExistsWritesNothing) {
    CapturedStderr errors;
    EXPECT_EQ(0, TqSetKVRIASpringCheck(true));
    EXPECT_EQ("", errors.text());
    EXPECT_FALSE(zeltest::KeyExists(HKEY_CURRENT_USER, kTqIAUserKey));

    zeltest::WriteString(HKEY_CURRENT_USER, kTqIAUserKey, "OtherSetting", "kept");
    EXPECT_EQ(0, TqSetKVRIASpringCheck(true));
    EXPECT_EQ("kept", std::string(reinterpret_cast<const char*>(
                          ReadValue(HKEY_CURRENT_USER, kTqIAUserKey, "OtherSetting").data.data())));
    EXPECT_FALSE(ReadValue(HKEY_CURRENT_USER, kTqIAUserKey, kTqCardRemovalCheckValue).present);
}

TEST_F(SpringCheck, EnablingRemovesTheUsersValueAndRecordOnly) {
    AgentStandIn agent(kTqKVRAgentExecutable);
    ASSERT_TRUE(agent.running());
    ASSERT_EQ(0, TqSetKVRIASpringCheck(false));
    zeltest::WriteString(HKEY_CURRENT_USER, kTqIAUserKey, "OtherSetting", "kept");
    setCardRemovalCheck(HKEY_LOCAL_MACHINE, kTqIAPolicyKey, "1");

    CapturedStderr errors;
    EXPECT_EQ(0, TqSetKVRIASpringCheck(true));
    EXPECT_EQ("", errors.text());
    EXPECT_FALSE(ReadValue(HKEY_CURRENT_USER, kTqIAUserKey, kTqCardRemovalCheckValue).present);
    EXPECT_FALSE(ReadValue(HKEY_CURRENT_USER, kTqIAUserKey, kTqZelCheckValue).present);
    EXPECT_TRUE(ReadValue(HKEY_CURRENT_USER, kTqIAUserKey, "OtherSetting").present);
    // Machine-wide values are never written.
    EXPECT_TRUE(ReadValue(HKEY_LOCAL_MACHINE, kTqIAPolicyKey, kTqCardRemovalCheckValue).present);
}

TEST_F(SpringCheck, EnablingRemovesAValueWithoutRecordAndARecordWithoutValue) {
    setCardRemovalCheck(HKEY_CURRENT_USER, kTqIAUserKey, "false");
    EXPECT_EQ(0, TqSetKVRIASpringCheck(true));
    EXPECT_FALSE(ReadValue(HKEY_CURRENT_USER, kTqIAUserKey, kTqCardRemovalCheckValue).present);

    ASSERT_EQ(0, TqSetZelKVRIAInformation(&running_));
    EXPECT_EQ(0, TqSetKVRIASpringCheck(true));
    EXPECT_FALSE(ReadValue(HKEY_CURRENT_USER, kTqIAUserKey, kTqZelCheckValue).present);
}

TEST_F(SpringCheck, SwitchingUnderAnUnreadableKeyIsAccessDenied) {
    zeltest::CreateKey(HKEY_CURRENT_USER, kTqIAUserKey);
    zeltest::DeniedKey user(HKEY_CURRENT_USER, kTqIAUserKey);
    const std::string failed =
        "TqSetKVRIASpringCheck : RegOpenKeyEx failed to open. Error Code (0x00000005) - " +
        zeltest::SystemText(5) + "\n";
    CapturedStderr errors;
    EXPECT_EQ(16, TqSetKVRIASpringCheck(true));
    EXPECT_EQ(16, TqSetKVRIASpringCheck(false));
    EXPECT_EQ(failed + failed, errors.text());
}

// The ZelCheck write made to fail through the library's seam: the "False" written just before
// it must not outlive the call.
LSTATUS refuseZelCheck(HKEY, const BYTE*, DWORD) {
    return ERROR_ACCESS_DENIED;
}
LSTATUS breakZelCheck(HKEY, const BYTE*, DWORD) {
    return ERROR_INVALID_PARAMETER;
}

TEST_F(SpringCheck, FailedRecordWriteTakesTheSwitchBack) {
    AgentStandIn agent(kTqKVRAgentExecutable);
    ASSERT_TRUE(agent.running());
    gTqZelCheckWriteHook = refuseZelCheck;

    CapturedStderr refusedWriteErrors;
    EXPECT_EQ(16, TqSetKVRIASpringCheck(false));
    EXPECT_EQ("TqSetZelKVRIAInformation : RegSetValueEx Failed Error Code (0x00000005) - " +
                  zeltest::SystemText(5) +
                  "\n"
                  "TqSetKVRIASpringCheck : TqSetZelKVRIAInformation failed.\n",
              refusedWriteErrors.text());
    EXPECT_TRUE(zeltest::KeyExists(HKEY_CURRENT_USER, kTqIAUserKey));
    EXPECT_FALSE(ReadValue(HKEY_CURRENT_USER, kTqIAUserKey, kTqCardRemovalCheckValue).present);
    EXPECT_FALSE(ReadValue(HKEY_CURRENT_USER, kTqIAUserKey, kTqZelCheckValue).present);

    gTqZelCheckWriteHook = breakZelCheck;
    CapturedStderr brokenWriteErrors;
    EXPECT_EQ(4, TqSetKVRIASpringCheck(false));
    EXPECT_EQ("TqSetZelKVRIAInformation : RegSetValueEx Failed Error Code (0x00000057) - " +
                  zeltest::SystemText(87) +
                  "\n"
                  "TqSetKVRIASpringCheck : TqSetZelKVRIAInformation failed.\n",
              brokenWriteErrors.text());
    EXPECT_FALSE(ReadValue(HKEY_CURRENT_USER, kTqIAUserKey, kTqCardRemovalCheckValue).present);
}

} // namespace
