// The smart-card minidriver interface, version 7: the complete CARD_DATA table, the cache file
// and the entry point. mingw-w64's cardmod.h stops at an older, shorter CARD_DATA; handing that
// to a minidriver that is told dwVersion 7 lets it write past the end of the structure.
#pragma once

#include <windows.h>
#include <winscard.h>

#include <cstddef>

inline constexpr DWORD CARD_DATA_VERSION_FOUR = 4;
inline constexpr DWORD CARD_DATA_VERSION_FIVE = 5;
inline constexpr DWORD CARD_DATA_VERSION_SIX = 6;
inline constexpr DWORD CARD_DATA_VERSION_SEVEN = 7;
inline constexpr DWORD CARD_DATA_CURRENT_VERSION = CARD_DATA_VERSION_SEVEN;

// mingw-w64's winscard.h lacks the provider kind that names a card's minidriver.
#ifndef SCARD_PROVIDER_CARD_MODULE
#define SCARD_PROVIDER_CARD_MODULE 0x80000001
#endif

// The cache file in the card's root directory and the user the PIN belongs to.
inline constexpr const char* szCACHE_FILE = "cardcf";
inline constexpr const wchar_t* wszCARD_USER_USER = L"user";

// "cardcf": a card-wide freshness record. Bumping a counter tells every host that its cached
// copy of that part of the card is stale.
#pragma pack(push, 1)
struct CARD_CACHE_FILE_FORMAT {
    BYTE bVersion;
    BYTE bPinsFreshness;
    WORD wContainersFreshness;
    WORD wFilesFreshness;
};
#pragma pack(pop)
static_assert(sizeof(CARD_CACHE_FILE_FORMAT) == 6);
static_assert(offsetof(CARD_CACHE_FILE_FORMAT, wContainersFreshness) == 2);
static_assert(offsetof(CARD_CACHE_FILE_FORMAT, wFilesFreshness) == 4);

struct CARD_DATA;
using PCARD_DATA = CARD_DATA*;

// Callbacks the host hands to the minidriver.
using PFN_CSP_ALLOC = LPVOID(WINAPI*)(SIZE_T Size);
using PFN_CSP_REALLOC = LPVOID(WINAPI*)(LPVOID Address, SIZE_T Size);
using PFN_CSP_FREE = void(WINAPI*)(LPVOID Address);
using PFN_CSP_CACHE_ADD_FILE = DWORD(WINAPI*)(PVOID pvCacheContext, LPWSTR wszTag, DWORD dwFlags,
                                              PBYTE pbData, DWORD cbData);
using PFN_CSP_CACHE_LOOKUP_FILE = DWORD(WINAPI*)(PVOID pvCacheContext, LPWSTR wszTag, DWORD dwFlags,
                                                 PBYTE* ppbData, PDWORD pcbData);
using PFN_CSP_CACHE_DELETE_FILE = DWORD(WINAPI*)(PVOID pvCacheContext, LPWSTR wszTag,
                                                 DWORD dwFlags);

// Entry points of the minidriver that this library calls.
using PFN_CARD_ACQUIRE_CONTEXT = DWORD(WINAPI*)(PCARD_DATA pCardData, DWORD dwFlags);
using PFN_CARD_DELETE_CONTEXT = DWORD(WINAPI*)(PCARD_DATA pCardData);
using PFN_CARD_AUTHENTICATE_PIN = DWORD(WINAPI*)(PCARD_DATA pCardData, LPWSTR pwszUserId,
                                                 PBYTE pbPin, DWORD cbPin,
                                                 PDWORD pcAttemptsRemaining);
using PFN_CARD_DEAUTHENTICATE = DWORD(WINAPI*)(PCARD_DATA pCardData, LPWSTR pwszUserId,
                                               DWORD dwFlags);
using PFN_CARD_READ_FILE = DWORD(WINAPI*)(PCARD_DATA pCardData, LPSTR pszDirectoryName,
                                          LPSTR pszFileName, DWORD dwFlags, PBYTE* ppbData,
                                          PDWORD pcbData);
using PFN_CARD_WRITE_FILE = DWORD(WINAPI*)(PCARD_DATA pCardData, LPSTR pszDirectoryName,
                                           LPSTR pszFileName, DWORD dwFlags, PBYTE pbData,
                                           DWORD cbData);

// The entries this library never calls: each keeps its place and name in the table, but not
// its parameter list.
using PFN_CARD_UNCALLED = DWORD(WINAPI*)();

struct CARD_DATA {
    DWORD dwVersion;
    PBYTE pbAtr;
    DWORD cbAtr;
    LPWSTR pwszCardName;
    PFN_CSP_ALLOC pfnCspAlloc;
    PFN_CSP_REALLOC pfnCspReAlloc;
    PFN_CSP_FREE pfnCspFree;
    PFN_CSP_CACHE_ADD_FILE pfnCspCacheAddFile;
    PFN_CSP_CACHE_LOOKUP_FILE pfnCspCacheLookupFile;
    PFN_CSP_CACHE_DELETE_FILE pfnCspCacheDeleteFile;
    PVOID pvCacheContext;
    PFN_CARD_UNCALLED pfnCspPadData;
    SCARDCONTEXT hSCardCtx;
    SCARDHANDLE hScard;
    PVOID pvVendorSpecific;
    PFN_CARD_DELETE_CONTEXT pfnCardDeleteContext;
    PFN_CARD_UNCALLED pfnCardQueryCapabilities;
    PFN_CARD_UNCALLED pfnCardDeleteContainer;
    PFN_CARD_UNCALLED pfnCardCreateContainer;
    PFN_CARD_UNCALLED pfnCardGetContainerInfo;
    PFN_CARD_AUTHENTICATE_PIN pfnCardAuthenticatePin;
    PFN_CARD_UNCALLED pfnCardGetChallenge;
    PFN_CARD_UNCALLED pfnCardAuthenticateChallenge;
    PFN_CARD_UNCALLED pfnCardUnblockPin;
    PFN_CARD_UNCALLED pfnCardChangeAuthenticator;
    PFN_CARD_DEAUTHENTICATE pfnCardDeauthenticate;
    PFN_CARD_UNCALLED pfnCardCreateDirectory;
    PFN_CARD_UNCALLED pfnCardDeleteDirectory;
    LPVOID pvUnused3;
    LPVOID pvUnused4;
    PFN_CARD_UNCALLED pfnCardCreateFile;
    PFN_CARD_READ_FILE pfnCardReadFile;
    PFN_CARD_WRITE_FILE pfnCardWriteFile;
    PFN_CARD_UNCALLED pfnCardDeleteFile;
    PFN_CARD_UNCALLED pfnCardEnumFiles;
    PFN_CARD_UNCALLED pfnCardGetFileInfo;
    PFN_CARD_UNCALLED pfnCardQueryFreeSpace;
    PFN_CARD_UNCALLED pfnCardQueryKeySizes;
    PFN_CARD_UNCALLED pfnCardSignData;
    PFN_CARD_UNCALLED pfnCardRSADecrypt;
    PFN_CARD_UNCALLED pfnCardConstructDHAgreement;
    // Version 5.
    PFN_CARD_UNCALLED pfnCardDeriveKey;
    PFN_CARD_UNCALLED pfnCardDestroyDHAgreement;
    PFN_CARD_UNCALLED pfnCspGetDHAgreement;
    // Version 6: where mingw-w64's declaration ends.
    PFN_CARD_UNCALLED pfnCardGetChallengeEx;
    PFN_CARD_UNCALLED pfnCardAuthenticateEx;
    PFN_CARD_UNCALLED pfnCardChangeAuthenticatorEx;
    PFN_CARD_UNCALLED pfnCardDeauthenticateEx;
    PFN_CARD_UNCALLED pfnCardGetContainerProperty;
    PFN_CARD_UNCALLED pfnCardSetContainerProperty;
    PFN_CARD_UNCALLED pfnCardGetProperty;
    PFN_CARD_UNCALLED pfnCardSetProperty;
    // Version 7.
    PFN_CARD_UNCALLED pfnCspUnpadData;
    PFN_CARD_UNCALLED pfnMDImportSessionKey;
    PFN_CARD_UNCALLED pfnMDEncryptData;
    PFN_CARD_UNCALLED pfnCardImportSessionKey;
    PFN_CARD_UNCALLED pfnCardGetSharedKeyHandle;
    PFN_CARD_UNCALLED pfnCardGetAlgorithmProperty;
    PFN_CARD_UNCALLED pfnCardGetKeyProperty;
    PFN_CARD_UNCALLED pfnCardSetKeyProperty;
    PFN_CARD_UNCALLED pfnCardDestroyKey;
    PFN_CARD_UNCALLED pfnCardProcessEncryptedData;
    PFN_CARD_UNCALLED pfnCardCreateContainerEx;
};

// The 64-bit layout of the public structure: 63 members, eight bytes each after alignment.
static_assert(offsetof(CARD_DATA, pbAtr) == 8);
static_assert(offsetof(CARD_DATA, cbAtr) == 16);
static_assert(offsetof(CARD_DATA, pwszCardName) == 24);
static_assert(offsetof(CARD_DATA, pfnCspAlloc) == 32);
static_assert(offsetof(CARD_DATA, pfnCspReAlloc) == 40);
static_assert(offsetof(CARD_DATA, pfnCspFree) == 48);
static_assert(offsetof(CARD_DATA, pfnCspCacheAddFile) == 56);
static_assert(offsetof(CARD_DATA, pfnCspCacheLookupFile) == 64);
static_assert(offsetof(CARD_DATA, pfnCspCacheDeleteFile) == 72);
static_assert(offsetof(CARD_DATA, pvCacheContext) == 80);
static_assert(offsetof(CARD_DATA, hSCardCtx) == 96);
static_assert(offsetof(CARD_DATA, hScard) == 104);
static_assert(offsetof(CARD_DATA, pvVendorSpecific) == 112);
static_assert(offsetof(CARD_DATA, pfnCardDeleteContext) == 120);
static_assert(offsetof(CARD_DATA, pfnCardAuthenticatePin) == 160);
static_assert(offsetof(CARD_DATA, pfnCardDeauthenticate) == 200);
static_assert(offsetof(CARD_DATA, pfnCardReadFile) == 248);
static_assert(offsetof(CARD_DATA, pfnCardWriteFile) == 256);
static_assert(offsetof(CARD_DATA, pfnCspGetDHAgreement) == 344);
static_assert(offsetof(CARD_DATA, pfnCardGetChallengeEx) == 352);
static_assert(offsetof(CARD_DATA, pfnCardSetProperty) == 408);
static_assert(offsetof(CARD_DATA, pfnCspUnpadData) == 416);
static_assert(offsetof(CARD_DATA, pfnCardCreateContainerEx) == 496);
static_assert(sizeof(CARD_DATA) == 504);
