// Stands in for an Identity Agent process (IdentityAgent.exe, GACService.exe): the tests copy
// it under the agent's file name. It does nothing but exist until it is told to end or is
// terminated, and it waits without using the processor.
//
// Usage: KIT_AGENT STOP_EVENT READY_EVENT [OWNER_PID]
//   STOP_EVENT   name of an event; the program ends with 0 once it is signalled.
//   READY_EVENT  name of an event the program signals once it is up and waiting.
//                Both are created when they do not exist yet, so that the program can also be
//                started by hand (the demo runs it as the sample workstation's agent).
//   OWNER_PID    id of the test process; the program also ends (with 6) when that process
//                ends, so a test that dies leaves no agent behind for the tests after it.
#include "base/TqUniqueResource.h"

#include <cstdlib>

int main(int argc, char** argv) {
    if (argc < 3) {
        return 2;
    }
    const TqUniqueHandle stop(::CreateEventA(nullptr, TRUE, FALSE, argv[1]));
    if (!stop) {
        return 3;
    }
    TqUniqueHandle owner;
    if (argc > 3) {
        const DWORD ownerId = std::strtoul(argv[3], nullptr, 10);
        owner.reset(::OpenProcess(SYNCHRONIZE, FALSE, ownerId));
        if (!owner) {
            return 4;
        }
    }
    const TqUniqueHandle ready(::CreateEventA(nullptr, TRUE, FALSE, argv[2]));
    if (!ready || !::SetEvent(ready.get())) {
        return 5;
    }
    const HANDLE waitFor[] = {stop.get(), owner.get()};
    switch (::WaitForMultipleObjects(owner ? 2 : 1, waitFor, FALSE, INFINITE)) {
    case WAIT_OBJECT_0:
        return 0;
    case WAIT_OBJECT_0 + 1:
        return 6;
    default:
        return 7;
    }
}
