// A Windows service of our own for the tests, installed under a name of the test's choice
// (for example "KVR Card Checker"). It accepts stop, pause and continue, and reports each new
// state to the service control manager at once, so a test can drive it through running,
// paused and stopped.
#include "base/TqUniqueResource.h"

namespace {

SERVICE_STATUS_HANDLE statusHandle = nullptr;
SERVICE_STATUS status{};
TqUniqueHandle stopRequested;

void report(DWORD state) {
    status.dwCurrentState = state;
    status.dwControlsAccepted = state == SERVICE_STOPPED || state == SERVICE_STOP_PENDING
                                    ? 0
                                    : SERVICE_ACCEPT_STOP | SERVICE_ACCEPT_PAUSE_CONTINUE;
    ::SetServiceStatus(statusHandle, &status);
}

DWORD WINAPI control(DWORD code, DWORD, void*, void*) {
    switch (code) {
    case SERVICE_CONTROL_PAUSE:
        report(SERVICE_PAUSED);
        return NO_ERROR;
    case SERVICE_CONTROL_CONTINUE:
        report(SERVICE_RUNNING);
        return NO_ERROR;
    case SERVICE_CONTROL_STOP:
        report(SERVICE_STOP_PENDING);
        ::SetEvent(stopRequested.get());
        return NO_ERROR;
    case SERVICE_CONTROL_INTERROGATE:
        report(status.dwCurrentState);
        return NO_ERROR;
    default:
        return ERROR_CALL_NOT_IMPLEMENTED;
    }
}

void WINAPI serviceMain(DWORD argc, char** argv) {
    statusHandle = ::RegisterServiceCtrlHandlerExA(argc > 0 ? argv[0] : "", control, nullptr);
    if (statusHandle == nullptr) {
        return;
    }
    status.dwServiceType = SERVICE_WIN32_OWN_PROCESS;
    report(SERVICE_RUNNING);
    ::WaitForSingleObject(stopRequested.get(), INFINITE);
    report(SERVICE_STOPPED);
}

} // namespace

int main() {
    stopRequested.reset(::CreateEventA(nullptr, TRUE, FALSE, nullptr));
    if (!stopRequested) {
        return 2;
    }
    char anyName[] = "";
    const SERVICE_TABLE_ENTRYA table[] = {{anyName, serviceMain}, {nullptr, nullptr}};
    return ::StartServiceCtrlDispatcherA(table) ? 0 : 3;
}
