// Process and service utilities against real processes and a real service of the Wine prefix:
// the test kit's agent stand-in runs under the agents' executable names, the kit's service is
// installed as "KVR Card Checker".
//
// Not covered here, because this host cannot produce it: an instance of the executable that
// belongs to another user. The prefix has one user only, so every process a test can start
// runs under the same SID. The closest real case is covered instead: a process of the same
// name whose token the caller may not read is skipped when sameUserOnly is set.
#include "support/Seams.h"
#include "host/TqProcessUtils.h"
#include "support/CapturedStreams.h"
#include "support/KitProcesses.h"
#include "support/TestSupport.h"

#include <gtest/gtest.h>
#include <aclapi.h>
#include <psapi.h>
#include <sddl.h>

#include <cstring>
#include <string>
#include <vector>

namespace {

using zeltest::AgentStandIn;
using zeltest::CapturedStderr;
using zeltest::KitService;

constexpr const char* kAgentName = "IdentityAgent.exe";
constexpr const char* kBTAgentName = "GACService.exe";

// Lets a process be opened for PROCESS_QUERY_LIMITED_INFORMATION only: its image name and
// times are readable, its token is not.
constexpr const char* kLimitedQueryOnly = "D:(A;;0x1000;;;WD)";
// Lets nobody open a process.
constexpr const char* kNobodyMayOpen = "D:(D;;0x1fffff;;;WD)";

constexpr unsigned char kSentinel = 0xEE;

std::uint64_t ticks(const FILETIME& time) {
    return (std::uint64_t{time.dwHighDateTime} << 32) | time.dwLowDateTime;
}

struct ProcessTimes {
    FILETIME creation{}, exit{}, kernel{}, user{};
};

ProcessTimes timesOf(HANDLE process) {
    ProcessTimes times;
    EXPECT_TRUE(
        ::GetProcessTimes(process, &times.creation, &times.exit, &times.kernel, &times.user));
    return times;
}

// The account of a process as the token lookups give it, found independently of the library.
struct Account {
    std::string name;
    std::string domain;
    std::string sid;
};

Account accountOf(HANDLE process) {
    Account account;
    TqUniqueHandle token;
    EXPECT_TRUE(::OpenProcessToken(process, TOKEN_QUERY, token.put()));
    BYTE user[256];
    DWORD size = sizeof user;
    EXPECT_TRUE(::GetTokenInformation(token.get(), TokenUser, user, size, &size));
    const PSID sid = reinterpret_cast<TOKEN_USER*>(user)->User.Sid;
    char name[256];
    char domain[256];
    DWORD nameSize = sizeof name;
    DWORD domainSize = sizeof domain;
    SID_NAME_USE use;
    EXPECT_TRUE(::LookupAccountSidA(nullptr, sid, name, &nameSize, domain, &domainSize, &use));
    account.name = name;
    account.domain = domain;
    char* text = nullptr;
    EXPECT_TRUE(::ConvertSidToStringSidA(sid, &text));
    const TqUniqueLocalMemory owner(text);
    account.sid = text != nullptr ? text : "";
    return account;
}

std::string userName() {
    char name[256];
    DWORD size = sizeof name;
    EXPECT_TRUE(::GetUserNameA(name, &size));
    return name;
}

void expectAccount(const Account& expected, const accountBlock& block,
                   zeltest::CallSite caller = zeltest::CallSite::current()) {
    const zeltest::CallerTrace trace(caller);
    EXPECT_FALSE(expected.name.empty());
    EXPECT_FALSE(expected.domain.empty());
    EXPECT_EQ(0u, expected.sid.rfind("S-1-5-", 0)) << expected.sid;
    EXPECT_EQ(expected.name, std::string(block.accountName));
    EXPECT_EQ(expected.name.size(), block.accountNameLength);
    EXPECT_EQ(expected.domain, std::string(block.domainName));
    EXPECT_EQ(expected.domain.size(), block.domainNameLength);
    EXPECT_EQ(expected.sid, std::string(block.sidString));
    EXPECT_EQ(expected.sid.size(), block.sidStringLength);
}

// Every byte after the used part of a fixed field must be zero: the block was cleared first.
template <std::size_t N>
void expectZeroAfter(const char (&field)[N], std::size_t used,
                     zeltest::CallSite caller = zeltest::CallSite::current()) {
    const zeltest::CallerTrace trace(caller);
    for (std::size_t i = used; i < N; ++i) {
        ASSERT_EQ(0, field[i]) << "byte " << i;
    }
}

bool allZero(const void* data, std::size_t size) {
    const auto* bytes = static_cast<const unsigned char*>(data);
    for (std::size_t i = 0; i < size; ++i) {
        if (bytes[i] != 0) {
            return false;
        }
    }
    return true;
}

// Which of two process ids EnumProcesses lists first (0 when it lists neither).
DWORD firstEnumerated(DWORD one, DWORD other) {
    std::vector<DWORD> ids(2048);
    DWORD bytes = 0;
    EXPECT_TRUE(
        ::EnumProcesses(ids.data(), static_cast<DWORD>(ids.size() * sizeof(DWORD)), &bytes));
    ids.resize(bytes / sizeof(DWORD));
    for (const DWORD id : ids) {
        if (id == one || id == other) {
            return id;
        }
    }
    return 0;
}

processRecord sentinelRecord() {
    processRecord record;
    std::memset(&record, kSentinel, sizeof record);
    return record;
}

// Fills the record the way the Identity Agent code does before a search by name.
processRecord recordNamed(const char* name) {
    processRecord record{};
    std::strcpy(record.executableName, name);
    return record;
}

// The id of a process that has ended and of which no handle remains, so that OpenProcess
// fails on it the way it does for a process that exits during the enumeration.
DWORD idOfEndedProcess() {
    DWORD id = 0;
    {
        AgentStandIn agent(kAgentName);
        EXPECT_TRUE(agent.running());
        id = agent.processId();
    }
    // Wine keeps the process object of an ended process openable for about half a second
    // after its last handle is closed; wait until the id is really gone.
    for (int attempt = 0; attempt < 250; ++attempt) {
        const TqUniqueHandle process(::OpenProcess(PROCESS_QUERY_LIMITED_INFORMATION, FALSE, id));
        if (!process) {
            EXPECT_EQ(static_cast<DWORD>(ERROR_INVALID_PARAMETER), ::GetLastError());
            return id;
        }
        ::Sleep(20);
    }
    ADD_FAILURE() << "process " << id << " can still be opened 5 s after it ended";
    return id;
}

// ---------------------------------------------------------------------------------------------
// TqGetProcessSIDInfo

TEST(ProcessSIDInfo, FillsTheAccountOfTheProcessUser) {
    AgentStandIn agent(kAgentName);
    ASSERT_TRUE(agent.running());
    accountBlock block;
    std::memset(&block, kSentinel, sizeof block);

    CapturedStderr errors;
    EXPECT_EQ(0, TqGetProcessSIDInfo(agent.processId(), &block));
    EXPECT_EQ("", errors.text());

    const Account expected = accountOf(agent.process());
    expectAccount(expected, block);
    EXPECT_EQ(userName(), std::string(block.accountName));
    expectZeroAfter(block.accountName, expected.name.size());
    expectZeroAfter(block.domainName, expected.domain.size());
    expectZeroAfter(block.sidString, expected.sid.size());
}

TEST(ProcessSIDInfo, ProcessWhoseTokenMayNotBeReadGivesAccessDenied) {
    AgentStandIn agent(kAgentName, kLimitedQueryOnly);
    ASSERT_TRUE(agent.running());
    accountBlock block;
    std::memset(&block, kSentinel, sizeof block);

    CapturedStderr errors;
    EXPECT_EQ(-16, TqGetProcessSIDInfo(agent.processId(), &block));
    EXPECT_EQ("TqGetProcessSIDInfo : OpenProcess Failed for Process ID " +
                  std::to_string(agent.processId()) + ". Error Code (0x00000005)\n",
              errors.text());
    EXPECT_TRUE(allZero(&block, sizeof block));
}

TEST(ProcessSIDInfo, EndedProcessIsAFailedSystemCall) {
    const DWORD id = idOfEndedProcess();
    accountBlock block;
    std::memset(&block, kSentinel, sizeof block);

    CapturedStderr errors;
    EXPECT_EQ(-4, TqGetProcessSIDInfo(id, &block));
    EXPECT_EQ("TqGetProcessSIDInfo : OpenProcess Failed for Process ID " + std::to_string(id) +
                  ". Error Code (0x00000057)\n",
              errors.text());
    EXPECT_TRUE(allZero(&block, sizeof block));
}

// The token's user is read twice, its size and then its data: a failure of either call is
// reported as step 1.
BOOL failTokenDataRead(HANDLE token, TOKEN_INFORMATION_CLASS kind, void* buffer, DWORD size,
                       DWORD* needed) {
    if (buffer == nullptr) {
        return ::GetTokenInformation(token, kind, buffer, size, needed);
    }
    ::SetLastError(ERROR_NOT_ENOUGH_MEMORY);
    return FALSE;
}

BOOL failTokenSizeRead(HANDLE, TOKEN_INFORMATION_CLASS, void*, DWORD, DWORD*) {
    ::SetLastError(ERROR_NOT_ENOUGH_MEMORY);
    return FALSE;
}

TEST(ProcessSIDInfo, FailedTokenReadIsStep1ForTheSizeAndForTheData) {
    for (const TqTokenInformationReader reader : {failTokenSizeRead, failTokenDataRead}) {
        accountBlock block;
        std::memset(&block, kSentinel, sizeof block);
        gTqTokenReadHook = reader;
        CapturedStderr errors;
        const int result = TqGetProcessSIDInfo(::GetCurrentProcessId(), &block);
        const std::string err = errors.text();
        gTqTokenReadHook = nullptr;
        EXPECT_EQ(-4, result);
        EXPECT_EQ("TqGetProcessSIDInfo : GetTokenInformation failed(1) - (0x00000008) - " +
                      zeltest::SystemText(ERROR_NOT_ENOUGH_MEMORY) + ". Error Code (0x00000008)\n",
                  err);
        EXPECT_TRUE(allZero(&block, sizeof block));
    }
}

TEST(ProcessSIDInfo, NullOutputIsRejected) {
    CapturedStderr errors;
    EXPECT_EQ(-1, TqGetProcessSIDInfo(::GetCurrentProcessId(), nullptr));
    EXPECT_EQ("TqGetProcessSIDInfo : Process Handle is invalid.\n", errors.text());
}

// ---------------------------------------------------------------------------------------------
// TqIsProcessExecuting

TEST(ProcessExecuting, LowerCaseNameFindsIdentityAgent) {
    AgentStandIn agent(kAgentName);
    ASSERT_TRUE(agent.running());
    processRecord record = sentinelRecord();

    CapturedStderr errors;
    EXPECT_EQ(1, TqIsProcessExecuting("identityagent.exe", false, &record));
    EXPECT_EQ("", errors.text());
    EXPECT_EQ(agent.processId(), record.processId);
    // The record keeps the name as the caller wrote it.
    EXPECT_STREQ("identityagent.exe", record.executableName);
}

TEST(ProcessExecuting, UpperCaseNameFindsTheBTAgent) {
    AgentStandIn agent(kBTAgentName);
    ASSERT_TRUE(agent.running());
    processRecord record{};

    CapturedStderr errors;
    EXPECT_EQ(1, TqIsProcessExecuting("GACSERVICE.EXE", true, &record));
    EXPECT_EQ("", errors.text());
    EXPECT_EQ(agent.processId(), record.processId);
    EXPECT_STREQ("GACSERVICE.EXE", record.executableName);
}

TEST(ProcessExecuting, FillsTheRecordOfTheFoundProcess) {
    AgentStandIn agent(kAgentName);
    ASSERT_TRUE(agent.running());
    processRecord record = sentinelRecord();

    CapturedStderr errors;
    EXPECT_EQ(1, TqIsProcessExecuting(kAgentName, true, &record));
    EXPECT_EQ("", errors.text());

    EXPECT_STREQ(kAgentName, record.executableName);
    expectZeroAfter(record.executableName, std::strlen(kAgentName));
    EXPECT_EQ(agent.processId(), record.processId);
    const ProcessTimes times = timesOf(agent.process());
    EXPECT_NE(0u, ticks(record.creationTime));
    EXPECT_EQ(ticks(times.creation), ticks(record.creationTime));
    EXPECT_EQ(0u, ticks(record.exitTime)); // still running
    // The stand-in sleeps, yet its kernel and user times may still grow after the record.
    EXPECT_LE(ticks(record.kernelTime), ticks(times.kernel));
    EXPECT_LE(ticks(record.userTime), ticks(times.user));
    expectAccount(accountOf(agent.process()), record.account);
    EXPECT_EQ(userName(), std::string(record.account.accountName));
}

TEST(ProcessExecuting, WithoutSameUserOnlyTheAccountStaysEmpty) {
    AgentStandIn agent(kAgentName);
    ASSERT_TRUE(agent.running());
    processRecord record = sentinelRecord();

    EXPECT_EQ(1, TqIsProcessExecuting(kAgentName, false, &record));
    EXPECT_EQ(agent.processId(), record.processId);
    EXPECT_EQ(ticks(timesOf(agent.process()).creation), ticks(record.creationTime));
    EXPECT_TRUE(allZero(&record.account, sizeof record.account));
}

TEST(ProcessExecuting, NotRunningGives0AndAnEmptyRecord) {
    processRecord record = sentinelRecord();

    CapturedStderr errors;
    EXPECT_EQ(0, TqIsProcessExecuting(kAgentName, true, &record));
    EXPECT_EQ("", errors.text());
    EXPECT_TRUE(allZero(&record, sizeof record));
}

TEST(ProcessExecuting, EndedAgentIsNoLongerFound) {
    idOfEndedProcess();
    processRecord record{};
    EXPECT_EQ(0, TqIsProcessExecuting(kAgentName, false, &record));
}

TEST(ProcessExecuting, NameMustMatchWholly) {
    AgentStandIn agent(kAgentName);
    ASSERT_TRUE(agent.running());
    processRecord record{};

    EXPECT_EQ(0, TqIsProcessExecuting("IdentityAgent", false, &record));
    EXPECT_EQ(0, TqIsProcessExecuting("IdentityAgent.exe.exe", false, &record));
    EXPECT_EQ(0, TqIsProcessExecuting("dentityAgent.exe", false, &record));
}

TEST(ProcessExecuting, FirstProcessInEnumerationOrderWins) {
    AgentStandIn first(kAgentName);
    AgentStandIn second(kAgentName);
    ASSERT_TRUE(first.running());
    ASSERT_TRUE(second.running());
    const DWORD expected = firstEnumerated(first.processId(), second.processId());
    ASSERT_NE(0u, expected);
    processRecord record{};

    EXPECT_EQ(1, TqIsProcessExecuting(kAgentName, true, &record));
    EXPECT_EQ(expected, record.processId);
}

// A process that cannot be opened at all is skipped, the way a protected process or one that
// exits during the enumeration is; the failure is reported and the search goes on.
TEST(ProcessExecuting, ProcessThatCannotBeOpenedIsSkipped) {
    AgentStandIn hidden(kAgentName, kNobodyMayOpen);
    ASSERT_TRUE(hidden.running());
    processRecord record = sentinelRecord();

    CapturedStderr hiddenOnlyErrors;
    EXPECT_EQ(0, TqIsProcessExecuting(kAgentName, false, &record));
    EXPECT_EQ("TqGetProcessImageFileName : OpenProcess failed. Error Code (0x00000005)\n",
              hiddenOnlyErrors.text());
    EXPECT_TRUE(allZero(&record, sizeof record));

    AgentStandIn visible(kAgentName);
    ASSERT_TRUE(visible.running());
    const bool hiddenComesFirst =
        firstEnumerated(hidden.processId(), visible.processId()) == hidden.processId();
    CapturedStderr bothRunningErrors;
    EXPECT_EQ(1, TqIsProcessExecuting(kAgentName, false, &record));
    EXPECT_EQ(hiddenComesFirst
                  ? "TqGetProcessImageFileName : OpenProcess failed. Error Code (0x00000005)\n"
                  : "",
              bothRunningErrors.text());
    EXPECT_EQ(visible.processId(), record.processId);
}

// Access denied on the token is the usual answer for another user's process: skipped without
// a word from the search (the SID query reports its own failure).
TEST(ProcessExecuting, SameUserOnlySkipsAProcessWhoseAccountCannotBeRead) {
    AgentStandIn agent(kAgentName, kLimitedQueryOnly);
    ASSERT_TRUE(agent.running());
    processRecord record = sentinelRecord();

    CapturedStderr sameUserErrors;
    EXPECT_EQ(0, TqIsProcessExecuting(kAgentName, true, &record));
    EXPECT_EQ("TqGetProcessSIDInfo : OpenProcess Failed for Process ID " +
                  std::to_string(agent.processId()) + ". Error Code (0x00000005)\n",
              sameUserErrors.text());
    EXPECT_TRUE(allZero(&record, sizeof record));

    // Without the account comparison the same process is found.
    CapturedStderr anyUserErrors;
    EXPECT_EQ(1, TqIsProcessExecuting(kAgentName, false, &record));
    EXPECT_EQ("", anyUserErrors.text());
    EXPECT_EQ(agent.processId(), record.processId);
}

// When the caller may not read its own account there is nothing to compare with: the search
// ends at once with "not running".
TEST(ProcessExecuting, UnreadableOwnAccountEndsTheSearchWith0) {
    AgentStandIn agent(kAgentName);
    ASSERT_TRUE(agent.running());
    PSECURITY_DESCRIPTOR descriptor = nullptr;
    ASSERT_TRUE(::ConvertStringSecurityDescriptorToSecurityDescriptorA(
        kLimitedQueryOnly, SDDL_REVISION_1, &descriptor, nullptr));
    const TqUniqueLocalMemory descriptorOwner(descriptor);
    BOOL present = FALSE;
    BOOL defaulted = FALSE;
    PACL limited = nullptr;
    ASSERT_TRUE(::GetSecurityDescriptorDacl(descriptor, &present, &limited, &defaulted));
    PACL original = nullptr;
    PSECURITY_DESCRIPTOR originalDescriptor = nullptr;
    ASSERT_EQ(ERROR_SUCCESS,
              ::GetSecurityInfo(::GetCurrentProcess(), SE_KERNEL_OBJECT, DACL_SECURITY_INFORMATION,
                                nullptr, nullptr, &original, nullptr, &originalDescriptor));
    const TqUniqueLocalMemory originalOwner(originalDescriptor);
    ASSERT_EQ(ERROR_SUCCESS,
              ::SetSecurityInfo(::GetCurrentProcess(), SE_KERNEL_OBJECT, DACL_SECURITY_INFORMATION,
                                nullptr, nullptr, limited, nullptr));
    processRecord record = sentinelRecord();

    CapturedStderr errors;
    const int found = TqIsProcessExecuting(kAgentName, true, &record);
    const std::string diagnostics = errors.text();
    ::SetSecurityInfo(::GetCurrentProcess(), SE_KERNEL_OBJECT, DACL_SECURITY_INFORMATION, nullptr,
                      nullptr, original, nullptr);

    EXPECT_EQ(0, found);
    EXPECT_EQ("TqGetProcessSIDInfo : OpenProcess Failed for Process ID " +
                  std::to_string(::GetCurrentProcessId()) + ". Error Code (0x00000005)\n",
              diagnostics);
    EXPECT_TRUE(allZero(&record, sizeof record));
}

TEST(ProcessExecuting, LongNameIsCutTo63Characters) {
    const std::string longName(70 - 4, 'L');
    AgentStandIn agent(longName + ".exe");
    ASSERT_TRUE(agent.running());
    processRecord record = sentinelRecord();

    EXPECT_EQ(1, TqIsProcessExecuting((longName + ".EXE").c_str(), false, &record));
    EXPECT_EQ(agent.processId(), record.processId);
    EXPECT_EQ(std::string(63, 'L'), std::string(record.executableName));
}

TEST(ProcessExecuting, EmptyOrMissingArgumentsAreRejected) {
    processRecord record = sentinelRecord();
    CapturedStderr errors;
    EXPECT_EQ(-1, TqIsProcessExecuting("", true, &record));
    // The record is zeroed before the name is checked.
    EXPECT_TRUE(allZero(&record, sizeof record));
    record = sentinelRecord();
    EXPECT_EQ(-1, TqIsProcessExecuting(nullptr, true, &record));
    EXPECT_TRUE(allZero(&record, sizeof record));
    EXPECT_EQ(-1, TqIsProcessExecuting(kAgentName, true, nullptr));
    EXPECT_EQ("TqIsProcessExecuting : Invalid argument(s) supplied.\n"
              "TqIsProcessExecuting : Invalid argument(s) supplied.\n"
              "TqIsProcessExecuting : Invalid argument(s) supplied.\n",
              errors.text());
}

// ---------------------------------------------------------------------------------------------
// TqGetProcessDateInfo

TEST(ProcessDateInfo, ByIdReadsTheFourTimes) {
    AgentStandIn agent(kAgentName);
    ASSERT_TRUE(agent.running());
    processRecord record = sentinelRecord();
    record.processId = agent.processId();

    CapturedStderr errors;
    EXPECT_EQ(0, TqGetProcessDateInfo(&record, true));
    EXPECT_EQ("", errors.text());
    const ProcessTimes times = timesOf(agent.process());
    EXPECT_EQ(ticks(times.creation), ticks(record.creationTime));
    EXPECT_EQ(0u, ticks(record.exitTime));
    EXPECT_LE(ticks(record.kernelTime), ticks(times.kernel));
    EXPECT_LE(ticks(record.userTime), ticks(times.user));
    // By id nothing else of the record is touched.
    EXPECT_EQ(agent.processId(), record.processId);
    EXPECT_EQ(static_cast<char>(kSentinel), record.executableName[0]);
    EXPECT_EQ(static_cast<char>(kSentinel), record.account.accountName[0]);
}

TEST(ProcessDateInfo, ByIdOfAnEndedProcessIsAFailedSystemCall) {
    processRecord record = sentinelRecord();
    record.processId = idOfEndedProcess();

    CapturedStderr errors;
    EXPECT_EQ(-4, TqGetProcessDateInfo(&record, false));
    EXPECT_EQ("TqGetProcessDateInfo : OpenProcess failed. Error Code (0x00000057)\n",
              errors.text());
    EXPECT_EQ(0u, ticks(record.creationTime));
    EXPECT_EQ(0u, ticks(record.exitTime));
    EXPECT_EQ(0u, ticks(record.kernelTime));
    EXPECT_EQ(0u, ticks(record.userTime));
}

TEST(ProcessDateInfo, ByIdOfAProcessThatCannotBeOpenedIsAccessDenied) {
    AgentStandIn agent(kAgentName, kNobodyMayOpen);
    ASSERT_TRUE(agent.running());
    processRecord record{};
    record.processId = agent.processId();

    CapturedStderr errors;
    EXPECT_EQ(-16, TqGetProcessDateInfo(&record, false));
    EXPECT_EQ("TqGetProcessDateInfo : OpenProcess failed. Error Code (0x00000005)\n",
              errors.text());
}

TEST(ProcessDateInfo, ByNameFindsTheProcessAndItsTimes) {
    AgentStandIn agent(kAgentName);
    ASSERT_TRUE(agent.running());
    processRecord record = recordNamed(kAgentName);

    CapturedStderr errors;
    EXPECT_EQ(0, TqGetProcessDateInfo(&record, true));
    EXPECT_EQ("", errors.text());
    EXPECT_EQ(agent.processId(), record.processId);
    EXPECT_STREQ(kAgentName, record.executableName);
    EXPECT_EQ(ticks(timesOf(agent.process()).creation), ticks(record.creationTime));
    expectAccount(accountOf(agent.process()), record.account);
}

TEST(ProcessDateInfo, ByNameWithoutSameUserOnlyLeavesTheAccountEmpty) {
    AgentStandIn agent(kAgentName);
    ASSERT_TRUE(agent.running());
    processRecord record = recordNamed("IDENTITYAGENT.EXE");

    EXPECT_EQ(0, TqGetProcessDateInfo(&record, false));
    EXPECT_EQ(agent.processId(), record.processId);
    EXPECT_EQ(ticks(timesOf(agent.process()).creation), ticks(record.creationTime));
    EXPECT_TRUE(allZero(&record.account, sizeof record.account));
}

TEST(ProcessDateInfo, ByNameNotRunningGives11) {
    processRecord record = recordNamed(kAgentName);

    CapturedStderr errors;
    EXPECT_EQ(11, TqGetProcessDateInfo(&record, true));
    EXPECT_EQ("TqGetProcessDateInfo : Failed to detect running executable 'IdentityAgent.exe'\n",
              errors.text());
    EXPECT_EQ(0u, record.processId);
    EXPECT_EQ(0u, ticks(record.creationTime));
}

TEST(ProcessDateInfo, NeitherIdNorNameIsRejected) {
    processRecord record{};
    std::memset(&record.creationTime, kSentinel, 4 * sizeof(FILETIME));

    CapturedStderr errors;
    EXPECT_EQ(-1, TqGetProcessDateInfo(&record, true));
    EXPECT_EQ("TqGetProcessDateInfo : Process ID and Process Name are both unset.\n",
              errors.text());
    EXPECT_TRUE(allZero(&record, sizeof record));
}

TEST(ProcessDateInfo, NullRecordIsRejected) {
    CapturedStderr errors;
    EXPECT_EQ(-1, TqGetProcessDateInfo(nullptr, true));
    EXPECT_EQ("TqGetProcessDateInfo : Invalid argument(s) supplied.\n", errors.text());
}

// ---------------------------------------------------------------------------------------------
// TqGetServiceStatus

TEST(ServiceStatus, MissingServiceReportsOpenSCManagerFailed) {
    zeltest::RemoveService(zeltest::kCardCheckerServiceName);

    CapturedStderr errors;
    EXPECT_EQ(-4, TqGetServiceStatus(zeltest::kCardCheckerServiceName));
    // 0x424: ERROR_SERVICE_DOES_NOT_EXIST; the text names the manager on purpose.
    EXPECT_EQ("TqGetServiceStatus : OpenSCManager failed. Error Code (0x00000424)\n",
              errors.text());
}

TEST(ServiceStatus, InstalledButNotStartedIsStopped) {
    KitService service;
    ASSERT_TRUE(service.installed());

    CapturedStderr errors;
    EXPECT_EQ(1, TqGetServiceStatus(zeltest::kCardCheckerServiceName));
    EXPECT_EQ("", errors.text());
}

TEST(ServiceStatus, FollowsTheServiceThroughRunningPausedAndStopped) {
    KitService service;
    ASSERT_TRUE(service.installed());

    ASSERT_TRUE(service.Start());
    CapturedStderr runningErrors;
    EXPECT_EQ(4, TqGetServiceStatus(zeltest::kCardCheckerServiceName));
    EXPECT_EQ("", runningErrors.text());

    ASSERT_TRUE(service.Pause());
    CapturedStderr pausedErrors;
    EXPECT_EQ(7, TqGetServiceStatus(zeltest::kCardCheckerServiceName));
    EXPECT_EQ("", pausedErrors.text());

    ASSERT_TRUE(service.Continue());
    EXPECT_EQ(4, TqGetServiceStatus(zeltest::kCardCheckerServiceName));

    ASSERT_TRUE(service.Stop());
    CapturedStderr stoppedErrors;
    EXPECT_EQ(1, TqGetServiceStatus(zeltest::kCardCheckerServiceName));
    EXPECT_EQ("", stoppedErrors.text());
}

TEST(ServiceStatus, ServiceNameIsNotCaseSensitive) {
    KitService service;
    ASSERT_TRUE(service.installed());
    ASSERT_TRUE(service.Start());

    EXPECT_EQ(4, TqGetServiceStatus("kvr card checker"));
}

TEST(ServiceStatus, NullNameIsRejected) {
    CapturedStderr errors;
    EXPECT_EQ(-1, TqGetServiceStatus(nullptr));
    EXPECT_EQ("TqGetServiceStatus : Invalid argument(s) supplied.\n", errors.text());
}

} // namespace
