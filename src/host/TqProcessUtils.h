// Host questions of the Identity Agent code: is an executable running (for this user), when
// did it start, in which state is a service. Diagnostics go to standard error as
// "<function> : <message>"; results are plain int codes.
#pragma once

#include <windows.h>

#include <cstddef>
#include <cstdint>
#include <string>

// The record layout is persisted (the ZelCheck value stores it byte for byte), so it is packed
// and every offset is pinned below.
#pragma pack(push, 1)

// Who runs a process: the account of its token's user.
struct accountBlock {
    char accountName[128];
    std::uint32_t accountNameLength;
    char domainName[128];
    std::uint32_t domainNameLength;
    char sidString[128];
    std::uint32_t sidStringLength;
};

// A running process: its executable name, id, times and account.
struct processRecord {
    char executableName[64];
    std::uint32_t processId;
    FILETIME creationTime;
    FILETIME exitTime;
    FILETIME kernelTime;
    FILETIME userTime;
    accountBlock account;
};

#pragma pack(pop)

static_assert(offsetof(accountBlock, accountName) == 0);
static_assert(offsetof(accountBlock, accountNameLength) == 128);
static_assert(offsetof(accountBlock, domainName) == 132);
static_assert(offsetof(accountBlock, domainNameLength) == 260);
static_assert(offsetof(accountBlock, sidString) == 264);
static_assert(offsetof(accountBlock, sidStringLength) == 392);
static_assert(sizeof(accountBlock) == 396);

static_assert(offsetof(processRecord, executableName) == 0);
static_assert(offsetof(processRecord, processId) == 64);
static_assert(offsetof(processRecord, creationTime) == 68);
static_assert(offsetof(processRecord, exitTime) == 76);
static_assert(offsetof(processRecord, kernelTime) == 84);
static_assert(offsetof(processRecord, userTime) == 92);
static_assert(offsetof(processRecord, account) == 100);
static_assert(offsetof(processRecord, account) + offsetof(accountBlock, accountNameLength) == 228);
static_assert(offsetof(processRecord, account) + offsetof(accountBlock, domainName) == 232);
static_assert(offsetof(processRecord, account) + offsetof(accountBlock, domainNameLength) == 360);
static_assert(offsetof(processRecord, account) + offsetof(accountBlock, sidString) == 364);
static_assert(offsetof(processRecord, account) + offsetof(accountBlock, sidStringLength) == 492);
static_assert(sizeof(processRecord) == 496);

// Fills out with the account of the process's user. Returns 0, or a negative common code:
// -16 when the process or its token may not be read, -15, -4 for other system failures,
// -1 for a null out, -23 for an unexpected exception.
int TqGetProcessSIDInfo(std::uint32_t processId, accountBlock* out);

// The file-name part of the process's full image path. Returns 0, or a negative common code
// (-16, -15, -4 for a failed system call, -23).
int TqGetProcessImageFileName(std::uint32_t processId, std::string& fileName);

// Looks for a running process whose image file name equals executableName, ignoring letter
// case; the first one in enumeration order wins. With sameUserOnly, only processes of the
// calling process's user count, and out also receives that account. Returns 1 (found, out
// filled, its name as the caller wrote it), 0 (not running, or the caller may not read its own
// account), or a negative common code: -1 for an empty or null argument, the SID query's code
// when the caller's account fails otherwise, -4 when processes cannot be enumerated, -23.
int TqIsProcessExecuting(const char* executableName, bool sameUserOnly, processRecord* out);

// Fills the four times of record. A record without a process id is first looked up by its
// executable name (sameUserOnly as given). Returns 0; 11 when the named executable is not
// running; the magnitude of the lookup's code when the lookup fails; -1 when neither id nor
// name is set or record is null; a negative common code when a system call fails.
int TqGetProcessDateInfo(processRecord* record, bool sameUserOnly);

// The service's current state (SERVICE_STOPPED 1 ... SERVICE_PAUSED 7), or -4 when the
// service cannot be opened or queried (-1 for a null name, -23).
int TqGetServiceStatus(const char* serviceName);
