#include "TqIdentityAgent.h"

#include "host/TqRegistrySearch.h"
#include "base/TqFailureGuard.h"
#include "base/TqResultCodes.h"

#include <cstring>
#include <iostream>
#include <sstream>
#include <stdexcept>
#include <utility>

namespace {

constexpr const char* kKVRName = "TqDetectKVRIdentityAgent";
constexpr const char* kBTName = "TqDetectBTIdentityAgent";
constexpr const char* kJSONName = "TqDetectedIAtoJSONString";

constexpr const char* kInvalidArguments = "Invalid argument(s) supplied.";

// The organisation's agent was renamed; the current name is asked first.
constexpr const char* kKVRDisplayNames[] = {"Vessant Identity Agent", "KVR Digital Identity Agent"};
// A hit on the second name is the newer BT agent, whose card checker is its spring check.
constexpr const char* kBTOlderDisplayName = "KVR Identity Agent";
constexpr const char* kBTNewerDisplayName = "KVR Halden Identity Agent";

// A new candidate: nothing of an earlier one may leak into its record.
void startCandidate(IARecord& record, const char* displayName, const char* executable) {
    record.productName = displayName;
    record.vendor.clear();
    record.major = 0;
    record.minor = 0;
    record.process = processRecord{};
    std::strncpy(record.process.executableName, executable,
                 sizeof record.process.executableName - 1);
}

int lookUpInstalled(IARecord& record) {
    std::string keyPath;
    return TqGetInstalledAppVerNo(nullptr, record.productName.c_str(), nullptr, &record.major,
                                  &record.minor, &keyPath);
}

// Runs a detector. An exception is reported on standard error and answered with the negative
// code set so far, else -23.
template <typename Body> int runDetector(const char* function, Body&& body) noexcept {
    bool reported = false;
    return TqGuard<int>(
        std::forward<Body>(body),
        [&](const TqCaught& caught) {
            if (caught.standard()) {
                std::cerr << function << " : " << caught.text << std::endl;
            } else {
                std::cerr << function << " : Unknown exception occurred - " << std::endl;
            }
            reported = true;
        },
        [&](const TqCaught& caught, int resultSoFar) noexcept {
            // When writing the diagnostic itself failed, the code still reaches the caller.
            return reported && caught.standard() && resultSoFar < 0 ? resultSoFar
                                                                    : -tq::kExceptionOccurred;
        });
}

void progress(const char* function, const char* text) {
    std::cout << function << " : " << text << std::endl;
}

// The word of a spring-check code: 0 and 1 have their own, any other number is "unknown".
const char* wordOf(std::int32_t code, const char* zero, const char* one) {
    return code == 0 ? zero : code == 1 ? one : "unknown";
}

// There is no "false": without a record nobody can tell whether the agent restarted.
const char* rebootText(std::int32_t hasRebooted) {
    switch (hasRebooted) {
    case 1:
        return "pending";
    case 2:
        return "true";
    default:
        return "unknown";
    }
}

// The newer BT agent's spring check is its card checker service, installed for the whole
// machine: users cannot change it. A paused or pending service leaves it unknown.
void readCardCheckerState(springCheckBlock& check, int serviceState) {
    check.locked = 1;
    if (serviceState == SERVICE_RUNNING || serviceState == SERVICE_STOPPED) {
        check.status = serviceState == SERVICE_RUNNING ? 1 : 0;
        progress(kBTName, "Successfully detected BT IA.");
    } else {
        check.status = -1;
        progress(kBTName, "Service in paused or pending state. Default to 'unknown'.");
    }
}

std::string detectionDocument(const IARecord& agent) {
    const springCheckBlock& check = agent.springCheck;
    // minVersion carries the minor number and maxVersion the major one: the client reads them
    // under these names, so the crossing stays.
    std::ostringstream document;
    document << "{\n\t\"ia\":{\n\t\t\"name\": "
             << "\"" << (agent.vendor.empty() ? std::string("unknown") : agent.vendor)
             << "\",\n\t\t\"minVersion\": "
             << "\"" << static_cast<std::uint32_t>(agent.minor) << "\",\n\t\t\"maxVersion\": \""
             << static_cast<std::uint32_t>(agent.major)
             << "\"\n\t},\n\t\"springCheck\":{\n\t\t\"status\": \""
             << wordOf(check.status, "off", "on") << "\",\n\t\t\"locked\": \""
             << wordOf(check.locked, "false", "true") << "\","
             << "\n\t\t\"zelSet\": \"" << wordOf(check.zelSet, "false", "true")
             << "\"\n\t},\n\t\"os\":{\n\t\t\"hasRebooted\": \"" << rebootText(check.hasRebooted)
             << "\"\n\t}\n}";
    return document.str();
}

} // namespace

int TqDetectKVRIdentityAgent(IARecord* record) {
    return runDetector(kKVRName, [&](int& result) {
        if (record == nullptr) {
            result = -tq::kInvalidArguments;
            throw TqFailure(kInvalidArguments);
        }
        IARecord& agent = *record;
        for (const char* displayName : kKVRDisplayNames) {
            startCandidate(agent, displayName, kTqKVRAgentExecutable);
            result = lookUpInstalled(agent);
            if (result != 1) {
                continue;
            }
            agent.vendor = "KVR";
            if (TqIsProcessExecuting(kTqKVRAgentExecutable, true, &agent.process) != 1) {
                progress(kKVRName, "KVR Identity Agent not executing.");
                result = 0;
                return;
            }
            result = TqGetProcessDateInfo(&agent.process, true);
            if (result != 0) {
                throw TqFailure("TqGetProcessDateInfo failed.");
            }
            result = TqDetectKVRIdentityAgentSpringCheck(&agent.springCheck, &agent.process);
            if (result < 0) {
                throw TqFailure("TqDetectKVRIdentityAgentSpringCheck failed.");
            }
            progress(kKVRName, "Successfully detected KVR IA.");
            result = 1;
            return;
        }
        if (result < 0) {
            throw TqFailure(
                "TqGetInstalledappVerNo failed to detect an Vessant/KVR Digital Identity Agent.");
        }
        result = 0;
    });
}

int TqDetectBTIdentityAgent(IARecord* record) {
    return runDetector(kBTName, [&](int& result) {
        if (record == nullptr) {
            result = -tq::kInvalidArguments;
            throw TqFailure(kInvalidArguments);
        }
        IARecord& agent = *record;
        agent.springCheck = springCheckBlock{};
        startCandidate(agent, kBTOlderDisplayName, kTqBTAgentExecutable);
        result = lookUpInstalled(agent);
        const bool newer = result != 1;
        if (newer) {
            agent.springCheck = springCheckBlock{};
            startCandidate(agent, kBTNewerDisplayName, kTqBTAgentExecutable);
            result = lookUpInstalled(agent);
            if (result < 0) {
                throw TqFailure("TqGetInstalledappVerNo failed.");
            }
            if (result != 1) {
                result = 0;
                return;
            }
        }
        agent.vendor = "BT";
        if (TqIsProcessExecuting(kTqBTAgentExecutable, true, &agent.process) != 1) {
            progress(kBTName, "BT Identity Agent not executing.");
            result = 0;
            return;
        }
        if (!newer) {
            agent.springCheck.status = -1;
            agent.springCheck.locked = -1;
            progress(kBTName, "BT IA v11 Does not support CSP based Spring Check.");
            result = 1;
            return;
        }
        result = TqGetServiceStatus(kTqBTCardCheckerService);
        if (result < 0) {
            throw TqFailure("TqGetServiceStatus failed.");
        }
        readCardCheckerState(agent.springCheck, result);
        result = 1;
    });
}

int TqDetectedIAtoJSONString(const IARecord* record, std::string& json) {
    return TqGuard<int>(
        [&](int&) {
            if (record == nullptr) {
                throw TqFailure(kInvalidArguments);
            }
            json = detectionDocument(*record);
        },
        [](const TqCaught& caught) {
            if (caught.standard()) {
                std::cerr << kJSONName << " Exception Occurred - " << caught.text << std::endl;
            } else {
                std::cerr << kJSONName << " : Unknown exception occurred." << std::endl;
            }
        },
        [](const TqCaught&, int) noexcept { return tq::kExceptionOccurred; });
}
