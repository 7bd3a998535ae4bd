// The spring check (card-removal check) of the organisation's Identity Agent: reading how it
// stands for the detection report, and switching it off for the current user or back to the
// agent's default. Diagnostics go to standard error as "<function> : <message>".
#pragma once

#include "host/TqProcessUtils.h"

#include <cstddef>
#include <cstdint>

// Where the agent keeps its setting. The user's key is read first; a value under a later key
// overrides it and fixes the setting for the user.
inline constexpr const char* kTqIAUserKey = "SOFTWARE\\Vessant\\Identity Agent";
inline constexpr const char* kTqIAMachineKey32 = "SOFTWARE\\Wow6432Node\\Vessant\\Identity Agent";
inline constexpr const char* kTqIAPolicyKey = "SOFTWARE\\Policies\\Vessant\\Identity Agent";
inline constexpr const char* kTqCardRemovalCheckValue = "CardRemovalCheck";
inline constexpr const char* kTqZelCheckValue = "ZelCheck";

// The agent process whose executable the spring check belongs to.
inline constexpr const char* kTqKVRAgentExecutable = "IdentityAgent.exe";

// How the spring check stands. Every field is -1 (unknown) until it is read.
struct springCheckBlock {
    std::int32_t hasRebooted = -1; // 1 = pending (same agent process), 2 = true, else unknown
    std::int32_t status = -1;      // 0 = off, 1 = on
    std::int32_t locked = -1;      // 1 = fixed by a machine-wide or policy value, 0 = not
    std::int32_t zelSet = -1;      // 1 = a ZelCheck record is stored, 0 = none
};

// Size of the ZelCheck record: the process record, byte for byte.
inline constexpr std::size_t kTqZelCheckSize = sizeof(processRecord);

// Fills block from the three keys and, for a setting the user may change, from the stored
// ZelCheck compared with running (the agent process running now). Returns 0, or a positive
// code when part of it could not be read (the magnitude of the failed lookup, 23 after an
// exception); the block is usable in every case.
int TqDetectKVRIdentityAgentSpringCheck(springCheckBlock* springBlock,
                                        const processRecord* running);

// Reads the stored ZelCheck record into out. 1 = read, 0 = none stored, -12 = stored data
// shorter than a record, -1 = null out, -23 = exception. Data beyond a record is ignored.
int TqGetZelKVRIAInformation(processRecord* out);

// Stores in as the user's ZelCheck record (scrambled). 0, or a positive common code: 15, 16
// or 4 for a failed registry call, 1 for a null in, 23.
int TqSetZelKVRIAInformation(const processRecord* in);

// enable false: switches the check off for this user and records the running agent process;
// 11 when IdentityAgent.exe is not running for this user. enable true: removes the user's
// setting and record, so the agent's default applies again. 0 on success, else a positive
// common code; a failed switch-off leaves no CardRemovalCheck of its own behind.
int TqSetKVRIASpringCheck(bool enable);
