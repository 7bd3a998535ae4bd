// Real processes and a real service of the Wine prefix for the process, service and Identity
// Agent tests: the test kit's agent stand-in running under an agent's executable name, and the
// kit's service installed under a service name of the test's choice.
#pragma once

#include <windows.h>

#include "base/TqUniqueResource.h"
#include "support/CallerTrace.h"

#include <string>

namespace zeltest {

// A copy of the kit's agent stand-in (zel_kit_agent.exe), renamed to executableName in a
// scratch folder of its own and started from there. It runs until Stop() or destruction; the
// copy and its folder are removed at destruction.
class AgentStandIn {
public:
    // processSddl, when given, becomes the security descriptor of the new process object
    // ("D:(D;;0x1fffff;;;WD)" lets nobody open it, for example).
    explicit AgentStandIn(const std::string& executableName, const char* processSddl = nullptr,
                          CallSite caller = CallSite::current());
    ~AgentStandIn();
    AgentStandIn(const AgentStandIn&) = delete;
    AgentStandIn& operator=(const AgentStandIn&) = delete;

    // True once the program is up and waiting.
    bool running() const { return running_; }
    DWORD processId() const { return processId_; }
    // A handle with every right, as CreateProcess hands it to the parent.
    HANDLE process() const { return process_.get(); }
    const std::string& imagePath() const { return imagePath_; }

    // Signals the program to end and waits for it (terminates it after 10 s). True when it
    // ended with exit code 0.
    bool Stop(CallSite caller = CallSite::current());

private:
    CallSite made_; // the test's line that made it, which its clean-up also reports
    std::string folder_;
    std::string imagePath_;
    TqUniqueHandle stopEvent_;
    TqUniqueHandle process_;
    DWORD processId_ = 0;
    bool running_ = false;
};

// The card checker's service name of the BT Identity Agent.
inline constexpr const char* kCardCheckerServiceName = "KVR Card Checker";

// The kit's service (zel_kit_service.exe) installed as a demand-start service under name; a
// leftover service of that name is removed first. Stopped and deleted at destruction.
class KitService {
public:
    explicit KitService(const std::string& name = kCardCheckerServiceName,
                        CallSite caller = CallSite::current());
    ~KitService();
    KitService(const KitService&) = delete;
    KitService& operator=(const KitService&) = delete;

    bool installed() const { return service_.valid(); }

    // Each drives the service and waits (up to 10 s) until it reports the state; true when it
    // did. Failures are also reported to the running test.
    bool Start(CallSite caller = CallSite::current());
    bool Pause(CallSite caller = CallSite::current());
    bool Continue(CallSite caller = CallSite::current());
    bool Stop(CallSite caller = CallSite::current());

    // The current state, or 0 when it cannot be queried.
    DWORD state() const;

private:
    bool control(DWORD code, DWORD expectedState);
    bool waitForState(DWORD expectedState) const;

    CallSite made_; // the test's line that made it, which its clean-up also reports
    std::string name_;
    TqUniqueServiceHandle manager_;
    TqUniqueServiceHandle service_;
};

// Stops and deletes a service of that name if one exists, and waits until it is gone.
void RemoveService(const std::string& name, CallSite caller = CallSite::current());

} // namespace zeltest
