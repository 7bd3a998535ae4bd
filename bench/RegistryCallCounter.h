// Counts the registry calls a loaded module makes: its advapi32 import entries are pointed at
// counting wrappers that call on to the functions they replaced.
#pragma once

#include <windows.h>

#include <array>
#include <cstdint>
#include <string>
#include <vector>

enum class RegCall : std::size_t {
    OpenKeyExA,
    OpenKeyExW,
    OpenKeyA,
    OpenCurrentUser,
    CreateKeyExA,
    QueryInfoKeyA,
    EnumKeyExA,
    EnumKeyA,
    EnumValueA,
    QueryValueExA,
    QueryValueExW,
    GetValueA,
    SetValueExA,
    DeleteKeyExA,
    DeleteTreeA,
    DeleteValueA,
    GetKeySecurity,
    SetKeySecurity,
    FlushKey,
    CloseKey,
    kCount
};

constexpr std::size_t kRegCallKinds = static_cast<std::size_t>(RegCall::kCount);

// Calls per function since the last reset.
struct RegCallCounts {
    std::array<std::uint64_t, kRegCallKinds> calls{};
    std::uint64_t total() const;
};

// A key opened from HKEY_LOCAL_MACHINE while recording: its path as given and the view asked for.
struct RecordedOpen {
    std::string path;
    REGSAM access = 0;
    LSTATUS status = ERROR_SUCCESS;
};

// Points every Reg* import of module from advapi32.dll at its counting wrapper. Ends the
// program, saying why, when an imported Reg* function has no wrapper or comes from another DLL.
// Returns the names of the functions replaced.
std::vector<std::string> CountRegistryCallsOf(HMODULE module);

const char* RegCallName(RegCall call);
void ResetRegCallCounts();
RegCallCounts CurrentRegCallCounts();

// While recording, every open relative to HKEY_LOCAL_MACHINE is written down.
void RecordMachineOpens(bool recording);
std::vector<RecordedOpen> TakeRecordedOpens();
