// The few PKCS#11 (v2.x) declarations the applet switch needs. Cryptoki on Windows packs its
// structures to one byte; the vendor's module is built that way, so these must be too.
// Free of <windows.h>.
#pragma once

#include <cstddef>
#include <cstdint>

using CK_BYTE = unsigned char;
using CK_ULONG = std::uint32_t; // Windows' unsigned long, also when this builds elsewhere
using CK_RV = CK_ULONG;
using CK_FLAGS = CK_ULONG;
using CK_VOID_PTR = void*;

inline constexpr CK_RV CKR_OK = 0x000;
inline constexpr CK_RV CKR_ARGUMENTS_BAD = 0x007;
inline constexpr CK_RV CKR_CRYPTOKI_NOT_INITIALIZED = 0x190;
inline constexpr CK_RV CKR_CRYPTOKI_ALREADY_INITIALIZED = 0x191;
inline constexpr CK_RV CKR_VENDOR_DEFINED = 0x80000000;

#pragma pack(push, 1)

struct CK_VERSION {
    CK_BYTE major;
    CK_BYTE minor;
};

using CK_CREATEMUTEX = CK_RV (*)(void** ppMutex);
using CK_DESTROYMUTEX = CK_RV (*)(void* pMutex);
using CK_LOCKMUTEX = CK_RV (*)(void* pMutex);
using CK_UNLOCKMUTEX = CK_RV (*)(void* pMutex);

struct CK_C_INITIALIZE_ARGS {
    CK_CREATEMUTEX CreateMutex;
    CK_DESTROYMUTEX DestroyMutex;
    CK_LOCKMUTEX LockMutex;
    CK_UNLOCKMUTEX UnlockMutex;
    CK_FLAGS flags;
    CK_VOID_PTR pReserved;
};

struct CK_FUNCTION_LIST;
using CK_C_Initialize = CK_RV (*)(CK_VOID_PTR pInitArgs);
using CK_C_Finalize = CK_RV (*)(CK_VOID_PTR pReserved);
using CK_C_GetInfo = CK_RV (*)(void* pInfo);
using CK_C_GetFunctionList = CK_RV (*)(CK_FUNCTION_LIST** ppFunctionList);
// The entries this library never calls; only their places in the list matter.
using CK_C_Unused = CK_RV (*)();

inline constexpr std::size_t kPKCS11FunctionCount = 68; // C_Initialize to C_WaitForSlotEvent

struct CK_FUNCTION_LIST {
    CK_VERSION version;
    CK_C_Initialize C_Initialize;
    CK_C_Finalize C_Finalize;
    CK_C_GetInfo C_GetInfo;
    CK_C_GetFunctionList C_GetFunctionList;
    CK_C_Unused otherFunctions[kPKCS11FunctionCount - 4]; // C_GetSlotList to C_WaitForSlotEvent
};

#pragma pack(pop)

using CK_FUNCTION_LIST_PTR = CK_FUNCTION_LIST*;

static_assert(sizeof(CK_VERSION) == 2);
static_assert(sizeof(CK_C_INITIALIZE_ARGS) == 44);
static_assert(offsetof(CK_C_INITIALIZE_ARGS, flags) == 32);
static_assert(offsetof(CK_C_INITIALIZE_ARGS, pReserved) == 36);
static_assert(offsetof(CK_FUNCTION_LIST, C_Initialize) == 2);
static_assert(offsetof(CK_FUNCTION_LIST, C_Finalize) == 10);
static_assert(offsetof(CK_FUNCTION_LIST, C_GetFunctionList) == 26);
static_assert(sizeof(CK_FUNCTION_LIST) == 2 + kPKCS11FunctionCount * sizeof(void*));
