#include "RegistryCallCounter.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <strings.h>

namespace {

RegCallCounts counts;
bool recordingOpens = false;
std::vector<RecordedOpen> recordedOpens;

void recordOpen(HKEY root, LPCSTR path, REGSAM access, LSTATUS status) {
    if (recordingOpens && root == HKEY_LOCAL_MACHINE) {
        recordedOpens.push_back({path != nullptr ? path : "", access, status});
    }
}

// For RegOpenKeyExA's arguments: root, path, options, access, key.
void recordOpen(HKEY root, LPCSTR path, DWORD, REGSAM access, PHKEY, LSTATUS status) {
    recordOpen(root, path, access, status);
}

// One wrapper per replaced function: it counts the call and calls the function it replaced.
template <RegCall Call, typename Function> struct CountingHook;

template <RegCall Call, typename Result, typename... Arguments>
struct CountingHook<Call, Result (*)(Arguments...)> {
    static inline Result (*original)(Arguments...) = nullptr;

    static Result call(Arguments... arguments) {
        ++counts.calls[static_cast<std::size_t>(Call)];
        const Result result = original(arguments...);
        if constexpr (Call == RegCall::OpenKeyExA) {
            recordOpen(arguments..., result);
        }
        return result;
    }
};

struct HookEntry {
    const char* name;
    RegCall call;
    void* wrapper;
    void** original;
};

template <RegCall Call, typename Function> HookEntry hookFor(const char* name, Function) {
    using Hook = CountingHook<Call, Function>;
    return {name, Call, reinterpret_cast<void*>(&Hook::call),
            reinterpret_cast<void**>(&Hook::original)};
}

using HookTable = HookEntry[kRegCallKinds];

// In the order of RegCall.
const HookTable& hooks() {
    static const HookTable table = {
        hookFor<RegCall::OpenKeyExA>("RegOpenKeyExA", &::RegOpenKeyExA),
        hookFor<RegCall::OpenKeyExW>("RegOpenKeyExW", &::RegOpenKeyExW),
        hookFor<RegCall::OpenKeyA>("RegOpenKeyA", &::RegOpenKeyA),
        hookFor<RegCall::OpenCurrentUser>("RegOpenCurrentUser", &::RegOpenCurrentUser),
        hookFor<RegCall::CreateKeyExA>("RegCreateKeyExA", &::RegCreateKeyExA),
        hookFor<RegCall::QueryInfoKeyA>("RegQueryInfoKeyA", &::RegQueryInfoKeyA),
        hookFor<RegCall::EnumKeyExA>("RegEnumKeyExA", &::RegEnumKeyExA),
        hookFor<RegCall::EnumKeyA>("RegEnumKeyA", &::RegEnumKeyA),
        hookFor<RegCall::EnumValueA>("RegEnumValueA", &::RegEnumValueA),
        hookFor<RegCall::QueryValueExA>("RegQueryValueExA", &::RegQueryValueExA),
        hookFor<RegCall::QueryValueExW>("RegQueryValueExW", &::RegQueryValueExW),
        hookFor<RegCall::GetValueA>("RegGetValueA", &::RegGetValueA),
        hookFor<RegCall::SetValueExA>("RegSetValueExA", &::RegSetValueExA),
        hookFor<RegCall::DeleteKeyExA>("RegDeleteKeyExA", &::RegDeleteKeyExA),
        hookFor<RegCall::DeleteTreeA>("RegDeleteTreeA", &::RegDeleteTreeA),
        hookFor<RegCall::DeleteValueA>("RegDeleteValueA", &::RegDeleteValueA),
        hookFor<RegCall::GetKeySecurity>("RegGetKeySecurity", &::RegGetKeySecurity),
        hookFor<RegCall::SetKeySecurity>("RegSetKeySecurity", &::RegSetKeySecurity),
        hookFor<RegCall::FlushKey>("RegFlushKey", &::RegFlushKey),
        hookFor<RegCall::CloseKey>("RegCloseKey", &::RegCloseKey),
    };
    return table;
}

const HookEntry* findHook(const char* name) {
    for (const HookEntry& hook : hooks()) {
        if (std::strcmp(hook.name, name) == 0) {
            return &hook;
        }
    }
    return nullptr;
}

[[noreturn]] void refuse(const char* what, const char* name) {
    std::fprintf(stderr, "zel_registry_bench: %s: %s\n", what, name);
    std::exit(1);
}

void replaceSlot(IMAGE_THUNK_DATA64& slot, const HookEntry& hook) {
    DWORD oldProtection = 0;
    if (!::VirtualProtect(&slot, sizeof slot, PAGE_READWRITE, &oldProtection)) {
        refuse("VirtualProtect failed on the import entry of", hook.name);
    }
    *hook.original = reinterpret_cast<void*>(slot.u1.Function);
    slot.u1.Function = reinterpret_cast<ULONGLONG>(hook.wrapper);
    ::VirtualProtect(&slot, sizeof slot, oldProtection, &oldProtection);
}

} // namespace

std::uint64_t RegCallCounts::total() const {
    std::uint64_t sum = 0;
    for (const std::uint64_t count : calls) {
        sum += count;
    }
    return sum;
}

std::vector<std::string> CountRegistryCallsOf(HMODULE module) {
    auto* const base = reinterpret_cast<BYTE*>(module);
    const auto* dos = reinterpret_cast<const IMAGE_DOS_HEADER*>(base);
    const auto* nt = reinterpret_cast<const IMAGE_NT_HEADERS64*>(base + dos->e_lfanew);
    const IMAGE_DATA_DIRECTORY& imports =
        nt->OptionalHeader.DataDirectory[IMAGE_DIRECTORY_ENTRY_IMPORT];
    std::vector<std::string> replaced;
    auto* descriptor = reinterpret_cast<IMAGE_IMPORT_DESCRIPTOR*>(base + imports.VirtualAddress);
    for (; imports.VirtualAddress != 0 && descriptor->Name != 0; ++descriptor) {
        const char* dll = reinterpret_cast<const char*>(base + descriptor->Name);
        const bool advapi = ::strcasecmp(dll, "advapi32.dll") == 0;
        if (descriptor->OriginalFirstThunk == 0) {
            refuse("no import name table (bound imports) for", dll);
        }
        auto* names = reinterpret_cast<IMAGE_THUNK_DATA64*>(base + descriptor->OriginalFirstThunk);
        auto* slots = reinterpret_cast<IMAGE_THUNK_DATA64*>(base + descriptor->FirstThunk);
        for (; names->u1.AddressOfData != 0; ++names, ++slots) {
            if (IMAGE_SNAP_BY_ORDINAL64(names->u1.Ordinal)) {
                if (advapi) {
                    refuse("an advapi32 import by ordinal cannot be told apart", dll);
                }
                continue;
            }
            const auto* byName =
                reinterpret_cast<const IMAGE_IMPORT_BY_NAME*>(base + names->u1.AddressOfData);
            const char* name = reinterpret_cast<const char*>(byName->Name);
            if (std::strncmp(name, "Reg", 3) != 0) {
                continue;
            }
            if (!advapi) {
                refuse("a registry function imported from a DLL other than advapi32", dll);
            }
            const HookEntry* hook = findHook(name);
            if (hook == nullptr) {
                refuse("no counting wrapper for the imported registry function", name);
            }
            replaceSlot(*slots, *hook);
            replaced.emplace_back(name);
        }
    }
    return replaced;
}

const char* RegCallName(RegCall call) {
    return hooks()[static_cast<std::size_t>(call)].name;
}

void ResetRegCallCounts() {
    counts = RegCallCounts{};
}

RegCallCounts CurrentRegCallCounts() {
    return counts;
}

void RecordMachineOpens(bool recording) {
    recordingOpens = recording;
}

std::vector<RecordedOpen> TakeRecordedOpens() {
    std::vector<RecordedOpen> taken;
    taken.swap(recordedOpens);
    return taken;
}
