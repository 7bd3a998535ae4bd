// Which desktop Identity Agent is installed and running, its version and how its spring check
// stands, as the detection document reports it. Two generations are known: the organisation's
// own agent (IdentityAgent.exe) and the older agent from BT (GACService.exe, with a card-checker
// service). Progress lines go to standard output, failures to standard error, both as
// "<function> : <text>".
#pragma once

#include "host/TqProcessUtils.h"
#include "identityagent/TqSpringCheck.h"

#include <cstdint>
#include <string>

// The BT agent's card checker: its state is the newer BT agent's spring check.
inline constexpr const char* kTqBTCardCheckerService = "KVR Card Checker";
inline constexpr const char* kTqBTAgentExecutable = "GACService.exe";

// What one detection found. A default-constructed record is the reset record: nothing found,
// spring check unknown.
struct IARecord {
    std::string productName; // the display name that matched
    std::string vendor;      // "KVR" or "BT"; empty when nothing was found
    std::int32_t major = 0;
    std::int32_t minor = 0;
    processRecord process{}; // the agent's process; its name is set before the search
    springCheckBlock springCheck;
};

// The organisation's agent, installed as "Vessant Identity Agent" or "KVR Digital Identity
// Agent". 1 = found and running (record filled, spring check read), 0 = not installed or not
// running, negative = error.
int TqDetectKVRIdentityAgent(IARecord* record);

// The BT agent, installed as "KVR Identity Agent" (no spring check of its own) or "KVR Halden
// Identity Agent" (spring check = the card checker service, always locked). Same codes.
int TqDetectBTIdentityAgent(IARecord* record);

// The detection document of record. 0, or 23 (positive) when it could not be built.
int TqDetectedIAtoJSONString(const IARecord* record, std::string& json);
