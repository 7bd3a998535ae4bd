#include "support/KitProcesses.h"

#include "support/TestSupport.h"

#include <gtest/gtest.h>
#include <sddl.h>

#include <atomic>

namespace zeltest {

namespace {

constexpr DWORD kWaitMilliseconds = 10000;
constexpr DWORD kPollMilliseconds = 20;

// A name no other stand-in of this run uses, in this process or another test program.
std::string uniqueSuffix() {
    static std::atomic<unsigned> counter{0};
    return std::to_string(::GetCurrentProcessId()) + "-" + std::to_string(counter++);
}

std::string tempFolder() {
    char folder[MAX_PATH + 1];
    const DWORD length = ::GetTempPathA(sizeof folder, folder);
    return std::string(folder, length);
}

// Deleting an image right after its process ended can meet the last of its mapping.
void deleteFileSoon(const std::string& path) {
    for (DWORD waited = 0; !::DeleteFileA(path.c_str()) && waited < kWaitMilliseconds;
         waited += kPollMilliseconds) {
        if (::GetLastError() == ERROR_FILE_NOT_FOUND) {
            return;
        }
        ::Sleep(kPollMilliseconds);
    }
}

DWORD queryState(SC_HANDLE service) {
    SERVICE_STATUS_PROCESS status{};
    DWORD needed = 0;
    if (!::QueryServiceStatusEx(service, SC_STATUS_PROCESS_INFO, reinterpret_cast<BYTE*>(&status),
                                sizeof status, &needed)) {
        return 0;
    }
    return status.dwCurrentState;
}

bool waitForServiceState(SC_HANDLE service, DWORD expectedState) {
    for (DWORD waited = 0; waited < kWaitMilliseconds; waited += kPollMilliseconds) {
        if (queryState(service) == expectedState) {
            return true;
        }
        ::Sleep(kPollMilliseconds);
    }
    return queryState(service) == expectedState;
}

// A deleted service stays known until its last handle is closed.
void waitUntilServiceGone(SC_HANDLE manager, const std::string& name) {
    for (DWORD waited = 0; waited < kWaitMilliseconds; waited += kPollMilliseconds) {
        const TqUniqueServiceHandle service(
            ::OpenServiceA(manager, name.c_str(), SERVICE_QUERY_STATUS));
        if (!service && ::GetLastError() == ERROR_SERVICE_DOES_NOT_EXIST) {
            return;
        }
        ::Sleep(kPollMilliseconds);
    }
    ADD_FAILURE() << "service '" << name << "' still exists after deletion";
}

void stopAndDelete(SC_HANDLE service, const std::string& name) {
    if (queryState(service) != SERVICE_STOPPED) {
        SERVICE_STATUS status{};
        ::ControlService(service, SERVICE_CONTROL_STOP, &status);
        EXPECT_TRUE(waitForServiceState(service, SERVICE_STOPPED))
            << "service '" << name << "' did not stop";
    }
    EXPECT_TRUE(::DeleteService(service))
        << "DeleteService '" << name << "' failed: " << ::GetLastError();
}

} // namespace

AgentStandIn::AgentStandIn(const std::string& executableName, const char* processSddl,
                           CallSite caller)
    : made_(caller), folder_(tempFolder() + "zel-agent-" + uniqueSuffix()),
      imagePath_(folder_ + "\\" + executableName) {
    const CallerTrace trace(caller);
    if (!::CreateDirectoryA(folder_.c_str(), nullptr)) {
        ADD_FAILURE() << "CreateDirectory failed (" << ::GetLastError() << "): " << folder_;
        return;
    }
    if (!::CopyFileA(BuiltFile("zel_kit_agent.exe").c_str(), imagePath_.c_str(), TRUE)) {
        ADD_FAILURE() << "CopyFile failed (" << ::GetLastError() << "): " << imagePath_;
        return;
    }
    const std::string suffix = uniqueSuffix();
    const std::string stopName = "Local\\zel-agent-stop-" + suffix;
    const std::string readyName = "Local\\zel-agent-ready-" + suffix;
    stopEvent_.reset(::CreateEventA(nullptr, TRUE, FALSE, stopName.c_str()));
    const TqUniqueHandle ready(::CreateEventA(nullptr, TRUE, FALSE, readyName.c_str()));
    if (!stopEvent_ || !ready) {
        ADD_FAILURE() << "CreateEvent failed: " << ::GetLastError();
        return;
    }

    PSECURITY_DESCRIPTOR descriptor = nullptr;
    if (processSddl != nullptr && !::ConvertStringSecurityDescriptorToSecurityDescriptorA(
                                      processSddl, SDDL_REVISION_1, &descriptor, nullptr)) {
        ADD_FAILURE() << "bad security descriptor " << processSddl << ": " << ::GetLastError();
        return;
    }
    const TqUniqueLocalMemory descriptorOwner(descriptor);
    SECURITY_ATTRIBUTES attributes{sizeof attributes, descriptor, FALSE};

    std::string commandLine = "\"" + imagePath_ + "\" " + stopName + " " + readyName + " " +
                              std::to_string(::GetCurrentProcessId());
    STARTUPINFOA startup{};
    startup.cb = sizeof startup;
    PROCESS_INFORMATION created{};
    // Detached: the stand-in must not hold the test runner's output streams.
    const BOOL started = CreateTestProcess(imagePath_.c_str(), commandLine,
                                           descriptor != nullptr ? &attributes : nullptr, FALSE,
                                           DETACHED_PROCESS, folder_.c_str(), startup, created);
    if (!started) {
        ADD_FAILURE() << "CreateProcess failed (" << ::GetLastError() << "): " << commandLine;
        return;
    }
    process_.reset(created.hProcess);
    const TqUniqueHandle thread(created.hThread);
    processId_ = created.dwProcessId;

    const HANDLE waitFor[] = {ready.get(), process_.get()};
    const DWORD woken = ::WaitForMultipleObjects(2, waitFor, FALSE, kWaitMilliseconds);
    running_ = woken == WAIT_OBJECT_0;
    EXPECT_TRUE(running_) << imagePath_ << " did not come up (wait result " << woken << ")";
}

AgentStandIn::~AgentStandIn() {
    if (process_) {
        Stop(made_);
        process_.reset();
    }
    deleteFileSoon(imagePath_);
    ::RemoveDirectoryA(folder_.c_str());
}

bool AgentStandIn::Stop(CallSite caller) {
    const CallerTrace trace(caller);
    if (!process_) {
        return false;
    }
    running_ = false;
    ::SetEvent(stopEvent_.get());
    if (::WaitForSingleObject(process_.get(), kWaitMilliseconds) != WAIT_OBJECT_0) {
        ADD_FAILURE() << imagePath_ << " did not end when asked; terminating it";
        ::TerminateProcess(process_.get(), 1);
        ::WaitForSingleObject(process_.get(), kWaitMilliseconds);
    }
    DWORD exitCode = 0xDEADBEEF;
    ::GetExitCodeProcess(process_.get(), &exitCode);
    return exitCode == 0;
}

KitService::KitService(const std::string& name, CallSite caller)
    : made_(caller), name_(name),
      manager_(::OpenSCManagerA(nullptr, nullptr, SC_MANAGER_ALL_ACCESS)) {
    const CallerTrace trace(caller);
    if (!manager_) {
        ADD_FAILURE() << "OpenSCManager failed: " << ::GetLastError();
        return;
    }
    RemoveService(name_);
    const std::string binaryPath = "\"" + BuiltFile("zel_kit_service.exe") + "\"";
    service_.reset(::CreateServiceA(manager_.get(), name_.c_str(), name_.c_str(),
                                    SERVICE_ALL_ACCESS, SERVICE_WIN32_OWN_PROCESS,
                                    SERVICE_DEMAND_START, SERVICE_ERROR_NORMAL, binaryPath.c_str(),
                                    nullptr, nullptr, nullptr, nullptr, nullptr));
    if (!service_) {
        ADD_FAILURE() << "CreateService '" << name_ << "' failed: " << ::GetLastError();
    }
}

KitService::~KitService() {
    if (!service_) {
        return;
    }
    const CallerTrace trace(made_);
    stopAndDelete(service_.get(), name_);
    service_.reset();
    waitUntilServiceGone(manager_.get(), name_);
}

bool KitService::Start(CallSite caller) {
    const CallerTrace trace(caller);
    if (!::StartServiceA(service_.get(), 0, nullptr)) {
        ADD_FAILURE() << "StartService '" << name_ << "' failed: " << ::GetLastError();
        return false;
    }
    return waitForState(SERVICE_RUNNING);
}

bool KitService::Pause(CallSite caller) {
    const CallerTrace trace(caller);
    return control(SERVICE_CONTROL_PAUSE, SERVICE_PAUSED);
}

bool KitService::Continue(CallSite caller) {
    const CallerTrace trace(caller);
    return control(SERVICE_CONTROL_CONTINUE, SERVICE_RUNNING);
}

bool KitService::Stop(CallSite caller) {
    const CallerTrace trace(caller);
    return control(SERVICE_CONTROL_STOP, SERVICE_STOPPED);
}

DWORD KitService::state() const {
    return queryState(service_.get());
}

bool KitService::control(DWORD code, DWORD expectedState) {
    SERVICE_STATUS status{};
    if (!::ControlService(service_.get(), code, &status)) {
        ADD_FAILURE() << "ControlService " << code << " on '" << name_
                      << "' failed: " << ::GetLastError();
        return false;
    }
    return waitForState(expectedState);
}

bool KitService::waitForState(DWORD expectedState) const {
    const bool reached = waitForServiceState(service_.get(), expectedState);
    EXPECT_TRUE(reached) << "service '" << name_ << "' did not reach state " << expectedState
                         << " (now " << state() << ")";
    return reached;
}

void RemoveService(const std::string& name, CallSite caller) {
    const CallerTrace trace(caller);
    const TqUniqueServiceHandle manager(::OpenSCManagerA(nullptr, nullptr, SC_MANAGER_ALL_ACCESS));
    if (!manager) {
        ADD_FAILURE() << "OpenSCManager failed: " << ::GetLastError();
        return;
    }
    {
        const TqUniqueServiceHandle service(
            ::OpenServiceA(manager.get(), name.c_str(), SERVICE_ALL_ACCESS));
        if (!service) {
            return;
        }
        stopAndDelete(service.get(), name);
    }
    waitUntilServiceGone(manager.get(), name);
}

} // namespace zeltest
