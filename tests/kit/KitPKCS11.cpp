// A stand-in for the card vendor's PKCS#11 module. It keeps Cryptoki's initialised state like a
// real module, records every C_Initialize/C_Finalize call in the registry value "Calls" of
// HKCU\Software\ZelTestKit\PKCS11, and obeys the test's settings there:
//   "C_Finalize result", "C_Initialize result" (REG_DWORD): answer this code, state unchanged;
//   "Without" (REG_SZ "C_Finalize" or "C_Initialize"): that entry of the list is null.
// Its structures are laid out by hand from the standard's byte offsets (one-byte packing), so
// the library's own declarations are checked against an independent reading.
#include "base/TqUniqueResource.h"

#include <cstdio>
#include <cstring>
#include <string>

namespace {

using Rv = unsigned long;

constexpr const char* kSettingsKey = "Software\\ZelTestKit\\PKCS11";
constexpr Rv kNotInitialized = 0x190;
constexpr Rv kAlreadyInitialized = 0x191;
constexpr size_t kFunctionCount = 68;
constexpr size_t kInitializeOffset = 2; // right behind the 2-byte CK_VERSION
constexpr size_t kFinalizeOffset = 10;
constexpr size_t kGetFunctionListOffset = 26;
constexpr size_t kReservedOffset = 36; // four 8-byte pointers, then a 4-byte CK_FLAGS
constexpr size_t kFlagsOffset = 32;

bool gInitialized = false;
unsigned char gFunctionList[2 + kFunctionCount * sizeof(void*)];

TqUniqueRegKey openSettings() {
    TqUniqueRegKey key;
    ::RegCreateKeyExA(HKEY_CURRENT_USER, kSettingsKey, 0, nullptr, 0, KEY_ALL_ACCESS, nullptr,
                      key.put(), nullptr);
    return key;
}

bool readDword(const char* name, DWORD& value) {
    const TqUniqueRegKey key = openSettings();
    DWORD size = sizeof value;
    DWORD type = 0;
    return key &&
           ::RegQueryValueExA(key.get(), name, nullptr, &type, reinterpret_cast<BYTE*>(&value),
                              &size) == ERROR_SUCCESS &&
           type == REG_DWORD;
}

std::string readString(const char* name) {
    const TqUniqueRegKey key = openSettings();
    char text[1024] = {};
    DWORD size = sizeof text - 1;
    if (key) {
        ::RegQueryValueExA(key.get(), name, nullptr, nullptr, reinterpret_cast<BYTE*>(text), &size);
    }
    return text;
}

void record(const std::string& call, Rv result) {
    char code[16];
    std::snprintf(code, sizeof code, "%08lx", result);
    const std::string calls = readString("Calls") + call + " = 0x" + code + "\n";
    const TqUniqueRegKey key = openSettings();
    if (key) {
        ::RegSetValueExA(key.get(), "Calls", 0, REG_SZ,
                         reinterpret_cast<const BYTE*>(calls.c_str()),
                         static_cast<DWORD>(calls.size() + 1));
    }
}

Rv kitInitialize(void* initArgs) {
    std::string call = "C_Initialize(NULL)";
    if (initArgs != nullptr) {
        const unsigned char* bytes = static_cast<const unsigned char*>(initArgs);
        const char* reserved = nullptr;
        unsigned long flags = 0;
        std::memcpy(&reserved, bytes + kReservedOffset, sizeof reserved);
        std::memcpy(&flags, bytes + kFlagsOffset, sizeof flags);
        bool mutexesGiven = false;
        for (size_t offset = 0; offset < kFlagsOffset; ++offset) {
            mutexesGiven = mutexesGiven || bytes[offset] != 0;
        }
        call =
            "C_Initialize(flags=" + std::to_string(flags) + (mutexesGiven ? ", mutexes" : "") +
            ", pReserved=" + (reserved != nullptr ? "\"" + std::string(reserved) + "\"" : "NULL") +
            ")";
    }
    DWORD forced = 0;
    Rv result = 0;
    if (readDword("C_Initialize result", forced)) {
        result = forced;
    } else if (gInitialized) {
        result = kAlreadyInitialized;
    } else {
        gInitialized = true;
    }
    record(call, result);
    return result;
}

Rv kitFinalize(void* reserved) {
    DWORD forced = 0;
    Rv result = 0;
    if (reserved != nullptr) {
        result = 0x7; // CKR_ARGUMENTS_BAD, as the standard asks
    } else if (readDword("C_Finalize result", forced)) {
        result = forced;
    } else if (!gInitialized) {
        result = kNotInitialized;
    } else {
        gInitialized = false;
    }
    record(reserved == nullptr ? "C_Finalize(NULL)" : "C_Finalize(non-NULL)", result);
    return result;
}

Rv kitNotSupported() {
    return 0x54; // CKR_FUNCTION_NOT_SUPPORTED
}

} // namespace

extern "C" __declspec(dllexport) Rv C_GetFunctionList(void** functionList) {
    if (functionList == nullptr) {
        return 0x7;
    }
    const std::string without = readString("Without");
    gFunctionList[0] = 2;
    gFunctionList[1] = 20;
    for (size_t index = 0; index < kFunctionCount; ++index) {
        auto entry = reinterpret_cast<void*>(&kitNotSupported);
        std::memcpy(gFunctionList + 2 + index * sizeof(void*), &entry, sizeof entry);
    }
    void* initialize =
        without == "C_Initialize" ? nullptr : reinterpret_cast<void*>(&kitInitialize);
    void* finalize = without == "C_Finalize" ? nullptr : reinterpret_cast<void*>(&kitFinalize);
    void* getList = reinterpret_cast<void*>(&C_GetFunctionList);
    std::memcpy(gFunctionList + kInitializeOffset, &initialize, sizeof initialize);
    std::memcpy(gFunctionList + kFinalizeOffset, &finalize, sizeof finalize);
    std::memcpy(gFunctionList + kGetFunctionListOffset, &getList, sizeof getList);
    *functionList = gFunctionList;
    return 0;
}
