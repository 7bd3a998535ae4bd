// The test kit's virtual card: each of its DLLs is loaded the way Windows loads the real one
// and answers as the card-state file says.
#include "card/TqCardModule.h"

#include "support/TestSupport.h"
#include "support/VirtualCard.h"

#include <gtest/gtest.h>
#include <wincrypt.h>

#include <cstring>
#include <string>
#include <vector>

namespace {

using zelkit::CardState;
using zelkit::Container;
using zelkit::KeyKind;
using zelkit::Shown;

constexpr const char* kEnrollmentKey = "SOFTWARE\\Oberthur Technologies\\Minidriver\\PIVMinidriver";

std::string moduleFile(HMODULE module) {
    char path[MAX_PATH * 2] = {};
    const DWORD length = ::GetModuleFileNameA(module, path, sizeof path);
    return std::string(path, length);
}

std::string lower(std::string text) {
    for (char& c : text) {
        c = static_cast<char>(::tolower(static_cast<unsigned char>(c)));
    }
    return text;
}

std::string systemFile(const char* name) {
    char folder[MAX_PATH + 1] = {};
    const UINT length = ::GetSystemDirectoryA(folder, sizeof folder);
    return std::string(folder, length) + "\\" + name;
}

void selectApplet(DWORD enableKvrEnrollment) {
    zeltest::WriteDword(HKEY_CURRENT_USER, kEnrollmentKey, "EnableKVREnrollment",
                        enableKvrEnrollment);
}

// ---------------------------------------------------------------------------------------------
// winscard.dll

class KitWinscard : public ::testing::Test {
protected:
    void SetUp() override {
        ASSERT_EQ(SCARD_S_SUCCESS,
                  ::SCardEstablishContext(SCARD_SCOPE_USER, nullptr, nullptr, &context));
    }
    void TearDown() override {
        if (context != 0) {
            ::SCardReleaseContext(context);
        }
    }
    SCARDCONTEXT context = 0;
    zeltest::VirtualCard card{zeltest::Relaxed(zeltest::OberthurCardState())};
};

// From System32, where Windows keeps the real one: no program folder holds a winscard.dll.
TEST_F(KitWinscard, IsTheKitsDllFromTheSystemFolderNotWines) {
    const HMODULE module = ::GetModuleHandleA("winscard.dll");
    ASSERT_NE(nullptr, module);
    char folder[MAX_PATH + 1] = {};
    const UINT length = ::GetSystemDirectoryA(folder, sizeof folder);
    EXPECT_EQ(lower(std::string(folder, length) + "\\winscard.dll"), lower(moduleFile(module)));
    EXPECT_EQ(INVALID_FILE_ATTRIBUTES,
              ::GetFileAttributesA(zeltest::BuiltFile("winscard.dll").c_str()));
    EXPECT_NE(nullptr, ::GetProcAddress(module, "ZelKitWinscardMarker"));
}

TEST_F(KitWinscard, ConnectAndStatusGiveTheReaderAndAtrOfTheState) {
    SCARDHANDLE handle = 0;
    DWORD protocol = 0;
    ASSERT_EQ(SCARD_S_SUCCESS,
              ::SCardConnectA(context, zeltest::kKitReader, SCARD_SHARE_SHARED,
                              SCARD_PROTOCOL_T0 | SCARD_PROTOCOL_T1, &handle, &protocol));
    EXPECT_EQ(static_cast<DWORD>(SCARD_PROTOCOL_T1), protocol);
    BYTE atr[32];
    std::memset(atr, 0xCD, sizeof atr);
    DWORD atrLength = sizeof atr;
    DWORD state = 0xDEADBEEF;
    DWORD activeProtocol = 0xDEADBEEF;
    ASSERT_EQ(SCARD_S_SUCCESS,
              ::SCardStatusA(handle, nullptr, nullptr, &state, &activeProtocol, atr, &atrLength));
    const std::vector<BYTE> expected = zeltest::Relaxed(zeltest::OberthurCardState()).atr;
    ASSERT_EQ(expected.size(), atrLength);
    EXPECT_EQ(expected, std::vector<BYTE>(atr, atr + atrLength));
    EXPECT_EQ(0xCD, atr[atrLength]); // nothing written past the ATR
    EXPECT_EQ(static_cast<DWORD>(SCARD_SPECIFIC), state);
    EXPECT_EQ(static_cast<DWORD>(SCARD_PROTOCOL_T1), activeProtocol);
    EXPECT_EQ(SCARD_S_SUCCESS, ::SCardDisconnect(handle, SCARD_LEAVE_CARD));
    EXPECT_EQ((std::vector<std::string>{"SCardConnectA ZelKit Reader 0", "SCardDisconnect 0"}),
              zeltest::ReadCardState().events);
}

TEST_F(KitWinscard, StatusRefusesAnAtrBufferThatIsTooSmall) {
    SCARDHANDLE handle = 0;
    DWORD protocol = 0;
    ASSERT_EQ(SCARD_S_SUCCESS, ::SCardConnectA(context, zeltest::kKitReader, SCARD_SHARE_SHARED,
                                               SCARD_PROTOCOL_T1, &handle, &protocol));
    BYTE atr[4] = {};
    DWORD atrLength = sizeof atr;
    EXPECT_EQ(SCARD_E_INSUFFICIENT_BUFFER,
              ::SCardStatusA(handle, nullptr, nullptr, nullptr, nullptr, atr, &atrLength));
    EXPECT_EQ(22u, atrLength);
    ::SCardDisconnect(handle, SCARD_LEAVE_CARD);
}

TEST_F(KitWinscard, OtherReaderIsUnknownAndAnEmptyReaderHasNoCard) {
    SCARDHANDLE handle = 0;
    DWORD protocol = 0;
    EXPECT_EQ(SCARD_E_UNKNOWN_READER, ::SCardConnectA(context, "Other Reader", SCARD_SHARE_SHARED,
                                                      SCARD_PROTOCOL_T1, &handle, &protocol));
    CardState empty = zeltest::Relaxed(zeltest::OberthurCardState());
    empty.inserted = false;
    zeltest::WriteCardState(empty);
    EXPECT_EQ(SCARD_E_NO_SMARTCARD,
              ::SCardConnectA(context, zeltest::kKitReader, SCARD_SHARE_SHARED, SCARD_PROTOCOL_T1,
                              &handle, &protocol));
    zeltest::RemoveCardState();
    EXPECT_EQ(SCARD_E_UNKNOWN_READER,
              ::SCardConnectA(context, zeltest::kKitReader, SCARD_SHARE_SHARED, SCARD_PROTOCOL_T1,
                              &handle, &protocol));
}

TEST_F(KitWinscard, TransactionsAndHandlesFollowTheirLifetime) {
    SCARDHANDLE handle = 0;
    DWORD protocol = 0;
    ASSERT_EQ(SCARD_S_SUCCESS, ::SCardConnectA(context, zeltest::kKitReader, SCARD_SHARE_SHARED,
                                               SCARD_PROTOCOL_T1, &handle, &protocol));
    EXPECT_EQ(SCARD_E_NOT_TRANSACTED, ::SCardEndTransaction(handle, SCARD_LEAVE_CARD));
    EXPECT_EQ(SCARD_S_SUCCESS, ::SCardBeginTransaction(handle));
    EXPECT_EQ(SCARD_S_SUCCESS, ::SCardEndTransaction(handle, SCARD_RESET_CARD));
    EXPECT_EQ(SCARD_S_SUCCESS, ::SCardDisconnect(handle, SCARD_RESET_CARD));
    EXPECT_EQ(ERROR_INVALID_HANDLE, ::SCardDisconnect(handle, SCARD_RESET_CARD));
    EXPECT_EQ(ERROR_INVALID_HANDLE, ::SCardBeginTransaction(handle));
    EXPECT_EQ(SCARD_S_SUCCESS, ::SCardReleaseContext(context));
    EXPECT_EQ(ERROR_INVALID_HANDLE, ::SCardReleaseContext(context));
    EXPECT_EQ(ERROR_INVALID_HANDLE,
              ::SCardConnectA(context, zeltest::kKitReader, SCARD_SHARE_SHARED, SCARD_PROTOCOL_T1,
                              &handle, &protocol));
    context = 0;
    EXPECT_EQ((std::vector<std::string>{"SCardConnectA ZelKit Reader 0", "SCardEndTransaction 0",
                                        "SCardBeginTransaction", "SCardEndTransaction 1",
                                        "SCardDisconnect 1", "SCardReleaseContext"}),
              zeltest::ReadCardState().events);
}

TEST_F(KitWinscard, CardTypeProviderNamesComeFromTheCalaisRegistry) {
    char name[256] = {};
    DWORD length = sizeof name;
    ASSERT_EQ(SCARD_S_SUCCESS,
              ::SCardGetCardTypeProviderNameA(context, zeltest::kKitCardName,
                                              SCARD_PROVIDER_CARD_MODULE, name, &length));
    EXPECT_STREQ("zelkitmd.dll", name);
    EXPECT_EQ(13u, length); // with the NUL, as winscard counts
    length = sizeof name;
    ASSERT_EQ(SCARD_S_SUCCESS, ::SCardGetCardTypeProviderNameA(context, zeltest::kKitCardName,
                                                               SCARD_PROVIDER_CSP, name, &length));
    EXPECT_STREQ("Microsoft Base Smart Card Crypto Provider", name);
    // A different registry entry gives a different answer: nothing is built in.
    zeltest::WriteString(HKEY_LOCAL_MACHINE, zeltest::CalaisCardKey(zeltest::kKitCardName),
                         "80000001", "othermd.dll");
    length = sizeof name;
    ASSERT_EQ(SCARD_S_SUCCESS,
              ::SCardGetCardTypeProviderNameA(context, zeltest::kKitCardName,
                                              SCARD_PROVIDER_CARD_MODULE, name, &length));
    EXPECT_STREQ("othermd.dll", name);
}

TEST_F(KitWinscard, UnknownCardAndShortBufferFailLikeWindows) {
    char name[4] = {};
    DWORD length = sizeof name;
    EXPECT_EQ(SCARD_E_UNKNOWN_CARD,
              ::SCardGetCardTypeProviderNameA(context, "No Such Card", SCARD_PROVIDER_CARD_MODULE,
                                              name, &length));
    EXPECT_EQ(0u, length);
    length = sizeof name;
    EXPECT_EQ(SCARD_E_INSUFFICIENT_BUFFER,
              ::SCardGetCardTypeProviderNameA(context, zeltest::kKitCardName,
                                              SCARD_PROVIDER_CARD_MODULE, name, &length));
    EXPECT_EQ(13u, length);
    zeltest::UnregisterKitMinidriver();
    length = sizeof name;
    EXPECT_EQ(SCARD_E_UNKNOWN_CARD,
              ::SCardGetCardTypeProviderNameA(context, zeltest::kKitCardName,
                                              SCARD_PROVIDER_CARD_MODULE, name, &length));
}

TEST_F(KitWinscard, HandleOwnersLeaveTheCardAndReleaseTheContext) {
    {
        TqUniqueSCardContext owned;
        ASSERT_EQ(SCARD_S_SUCCESS,
                  ::SCardEstablishContext(SCARD_SCOPE_USER, nullptr, nullptr, owned.put()));
        TqUniqueSCardHandle card;
        DWORD protocol = 0;
        ASSERT_EQ(SCARD_S_SUCCESS,
                  ::SCardConnectA(owned.get(), zeltest::kKitReader, SCARD_SHARE_SHARED,
                                  SCARD_PROTOCOL_T1, card.put(), &protocol));
    }
    EXPECT_EQ((std::vector<std::string>{"SCardConnectA ZelKit Reader 0", "SCardDisconnect 0",
                                        "SCardReleaseContext"}),
              zeltest::ReadCardState().events);
}

// ---------------------------------------------------------------------------------------------
// The card minidriver

// What the host side of the minidriver interface saw.
struct HostCallbacks {
    static int allocations;
    static int frees;
    static int lookups;
    static int additions;
    static bool cacheHit;
    static LPVOID WINAPI alloc(SIZE_T size) {
        ++allocations;
        return ::HeapAlloc(::GetProcessHeap(), HEAP_ZERO_MEMORY, size);
    }
    static LPVOID WINAPI realloc(LPVOID address, SIZE_T size) {
        return ::HeapReAlloc(::GetProcessHeap(), HEAP_ZERO_MEMORY, address, size);
    }
    static void WINAPI free(LPVOID address) {
        ++frees;
        ::HeapFree(::GetProcessHeap(), 0, address);
    }
    static DWORD WINAPI add(PVOID, LPWSTR, DWORD, PBYTE, DWORD) {
        ++additions;
        return 0;
    }
    static DWORD WINAPI lookup(PVOID, LPWSTR tag, DWORD, PBYTE* data, PDWORD size) {
        ++lookups;
        if (!cacheHit || std::wcscmp(tag, L"cardcf") != 0) {
            return ERROR_NOT_FOUND;
        }
        *data = static_cast<PBYTE>(alloc(2));
        (*data)[0] = 0xCA;
        (*data)[1] = 0xFE;
        *size = 2;
        return 0;
    }
    static DWORD WINAPI remove(PVOID, LPWSTR, DWORD) { return 0; }
};
int HostCallbacks::allocations = 0;
int HostCallbacks::frees = 0;
int HostCallbacks::lookups = 0;
int HostCallbacks::additions = 0;
bool HostCallbacks::cacheHit = false;

class KitMinidriver : public ::testing::Test {
protected:
    void SetUp() override {
        HostCallbacks::allocations = 0;
        HostCallbacks::frees = 0;
        HostCallbacks::lookups = 0;
        HostCallbacks::additions = 0;
        HostCallbacks::cacheHit = false;
        ASSERT_EQ(SCARD_S_SUCCESS,
                  ::SCardEstablishContext(SCARD_SCOPE_USER, nullptr, nullptr, context.put()));
        DWORD protocol = 0;
        ASSERT_EQ(SCARD_S_SUCCESS,
                  ::SCardConnectA(context.get(), zeltest::kKitReader, SCARD_SHARE_SHARED,
                                  SCARD_PROTOCOL_T1, card.put(), &protocol));
        atr = zeltest::Relaxed(zeltest::OberthurCardState()).atr;
        module.reset(::LoadLibraryA(zeltest::kKitMinidriverFile));
        ASSERT_TRUE(module) << ::GetLastError();
        acquire = reinterpret_cast<PFN_CARD_ACQUIRE_CONTEXT>(
            reinterpret_cast<void*>(::GetProcAddress(module.get(), "CardAcquireContext")));
        ASSERT_NE(nullptr, acquire);
    }

    // A version-7 table followed by guard bytes, filled as a host fills it.
    struct GuardedCardData {
        CARD_DATA data;
        unsigned char guard[64];
    };
    GuardedCardData prepared() {
        GuardedCardData table;
        std::memset(&table, 0, sizeof table);
        std::memset(table.guard, 0xA5, sizeof table.guard);
        table.data.dwVersion = CARD_DATA_VERSION_SEVEN;
        table.data.pbAtr = atr.data();
        table.data.cbAtr = static_cast<DWORD>(atr.size());
        table.data.pwszCardName = cardName;
        table.data.pfnCspAlloc = &HostCallbacks::alloc;
        table.data.pfnCspReAlloc = &HostCallbacks::realloc;
        table.data.pfnCspFree = &HostCallbacks::free;
        table.data.pfnCspCacheAddFile = &HostCallbacks::add;
        table.data.pfnCspCacheLookupFile = &HostCallbacks::lookup;
        table.data.pfnCspCacheDeleteFile = &HostCallbacks::remove;
        table.data.hSCardCtx = context.get();
        table.data.hScard = card.get();
        return table;
    }

    zeltest::VirtualCard virtualCard{zeltest::Relaxed(zeltest::OberthurCardState())};
    TqUniqueSCardContext context;
    TqUniqueSCardHandle card; // declared after the context: closed before it
    std::vector<BYTE> atr;
    wchar_t cardName[33] = L"Oberthur Technologies KVR Device";
    TqUniqueModule module;
    PFN_CARD_ACQUIRE_CONTEXT acquire = nullptr;
    char root[1] = "";
    char cacheFile[7] = "cardcf";
};

TEST_F(KitMinidriver, IsLoadedFromSystem32UnderItsRegisteredName) {
    EXPECT_EQ(lower(systemFile(zeltest::kKitMinidriverFile)), lower(moduleFile(module.get())));
}

TEST_F(KitMinidriver, AcquireFillsTheWholeVersion7TableAndNothingBeyond) {
    GuardedCardData table = prepared();
    ASSERT_EQ(0u, acquire(&table.data, 0));
    EXPECT_EQ(7u, table.data.dwVersion);
    EXPECT_NE(nullptr, table.data.pvVendorSpecific);
    EXPECT_NE(nullptr, table.data.pfnCardDeleteContext);
    EXPECT_NE(nullptr, table.data.pfnCardAuthenticatePin);
    EXPECT_NE(nullptr, table.data.pfnCardReadFile);
    EXPECT_NE(nullptr, table.data.pfnCardWriteFile);
    EXPECT_NE(nullptr, table.data.pfnCardGetChallengeEx);    // version 6
    EXPECT_NE(nullptr, table.data.pfnCardCreateContainerEx); // the last member, version 7
    for (unsigned char byte : table.guard) {
        ASSERT_EQ(0xA5, byte);
    }
    EXPECT_EQ(1, HostCallbacks::allocations); // its context, from the host's allocator
    EXPECT_EQ(0u, table.data.pfnCardDeleteContext(&table.data));
    EXPECT_EQ(1, HostCallbacks::frees);
    EXPECT_EQ(
        (std::vector<std::string>{"SCardConnectA ZelKit Reader 0", "SCardBeginTransaction",
                                  "CardAcquireContext version 7 Oberthur Technologies KVR Device",
                                  "CardDeleteContext"}),
        zeltest::ReadCardState().events);
}

TEST_F(KitMinidriver, AcquireRefusesAnotherCardsAtrAndAnOldTable) {
    GuardedCardData table = prepared();
    atr[1] ^= 0xFF;
    EXPECT_EQ(static_cast<DWORD>(SCARD_E_UNKNOWN_CARD), acquire(&table.data, 0));
    table = prepared();
    table.data.dwVersion = 3;
    EXPECT_EQ(static_cast<DWORD>(ERROR_REVISION_MISMATCH), acquire(&table.data, 0));
    EXPECT_EQ(static_cast<DWORD>(SCARD_E_INVALID_PARAMETER), acquire(nullptr, 0));
}

TEST_F(KitMinidriver, EveryPinPresentationIsCounted) {
    GuardedCardData table = prepared();
    ASSERT_EQ(0u, acquire(&table.data, 0));
    wchar_t user[] = L"user";
    BYTE wrong[] = {'9', '9', '9', '9'};
    BYTE right[] = {'1', '2', '3', '4'};
    DWORD attempts = 0xDEADBEEF;
    EXPECT_EQ(static_cast<DWORD>(SCARD_W_WRONG_CHV),
              table.data.pfnCardAuthenticatePin(&table.data, user, wrong, 4, &attempts));
    EXPECT_EQ(2u, attempts);
    EXPECT_EQ(1u, zeltest::ReadCardState().pinPresentations);
    EXPECT_EQ(0u, table.data.pfnCardAuthenticatePin(&table.data, user, right, 4, nullptr));
    EXPECT_EQ(0u, table.data.pfnCardAuthenticatePin(&table.data, user, right, 4, nullptr));
    EXPECT_EQ(3u, zeltest::ReadCardState().pinPresentations);
    table.data.pfnCardDeleteContext(&table.data);
}

TEST_F(KitMinidriver, CacheMissReadsCardcfFromTheCardIntoHostMemory) {
    GuardedCardData table = prepared();
    ASSERT_EQ(0u, acquire(&table.data, 0));
    PBYTE data = nullptr;
    DWORD size = 0;
    ASSERT_EQ(0u, table.data.pfnCardReadFile(&table.data, root, cacheFile, 0, &data, &size));
    EXPECT_EQ(std::vector<BYTE>({1, 2, 3, 4, 5, 6, 7, 8}), std::vector<BYTE>(data, data + size));
    EXPECT_EQ(1, HostCallbacks::lookups);
    EXPECT_EQ(1, HostCallbacks::additions);
    EXPECT_EQ(2, HostCallbacks::allocations);
    EXPECT_EQ(1u, zeltest::ReadCardState().cardReads);
    table.data.pfnCspFree(data);
    table.data.pfnCardDeleteContext(&table.data);
}

TEST_F(KitMinidriver, CacheHitIsServedWithoutReadingTheCard) {
    HostCallbacks::cacheHit = true;
    GuardedCardData table = prepared();
    ASSERT_EQ(0u, acquire(&table.data, 0));
    PBYTE data = nullptr;
    DWORD size = 0;
    ASSERT_EQ(0u, table.data.pfnCardReadFile(&table.data, nullptr, cacheFile, 0, &data, &size));
    EXPECT_EQ(std::vector<BYTE>({0xCA, 0xFE}), std::vector<BYTE>(data, data + size));
    EXPECT_EQ(0u, zeltest::ReadCardState().cardReads);
    table.data.pfnCspFree(data);
    table.data.pfnCardDeleteContext(&table.data);
}

TEST_F(KitMinidriver, WritingCardcfNeedsThePinAndCountsAsACacheBump) {
    GuardedCardData table = prepared();
    ASSERT_EQ(0u, acquire(&table.data, 0));
    BYTE bumped[] = {2, 3, 4, 0, 6, 0, 8, 0};
    EXPECT_EQ(static_cast<DWORD>(SCARD_W_SECURITY_VIOLATION),
              table.data.pfnCardWriteFile(&table.data, root, cacheFile, 0, bumped, 8));
    EXPECT_EQ(0u, zeltest::ReadCardState().cacheBumps);
    wchar_t user[] = L"user";
    BYTE pin[] = {'1', '2', '3', '4'};
    ASSERT_EQ(0u, table.data.pfnCardAuthenticatePin(&table.data, user, pin, 4, nullptr));
    EXPECT_EQ(0u, table.data.pfnCardWriteFile(&table.data, root, cacheFile, 0, bumped, 8));
    const CardState state = zeltest::ReadCardState();
    EXPECT_EQ(std::vector<unsigned char>(bumped, bumped + 8), state.cardcf);
    EXPECT_EQ(1u, state.cacheBumps);
    EXPECT_EQ("CardWriteFile cardcf 0203040006000800", state.events.back());
    char otherFile[] = "cmapfile";
    EXPECT_EQ(static_cast<DWORD>(SCARD_E_FILE_NOT_FOUND),
              table.data.pfnCardWriteFile(&table.data, root, otherFile, 0, bumped, 8));
    table.data.pfnCardDeleteContext(&table.data);
}

// ---------------------------------------------------------------------------------------------
// The CSP

CardState cardWithContainers() {
    CardState state = zeltest::Relaxed(zeltest::OberthurCardState());
    state.containers = {
        {"agile", "ORBEN_CCCA agile", KeyKind::kSignature, true, Shown::kAlways},
        {"agile", "ORBEN_AUTH agile", KeyKind::kExchange, false, Shown::kAlways},
        {"compatibility", "Default Key Container", KeyKind::kNone, false, Shown::kAlways},
        {"compatibility", "ORBEN_CCCA compat", KeyKind::kSignature, false, Shown::kAlways},
    };
    return state;
}

class KitCsp : public ::testing::Test {
protected:
    std::vector<std::string> enumerate() {
        std::vector<std::string> names;
        TqUniqueCryptProv provider;
        const std::string path = std::string("\\\\.\\") + zeltest::kKitReader + "\\";
        if (!::CryptAcquireContextA(provider.put(), path.c_str(), zeltest::kBaseCspName,
                                    PROV_RSA_FULL, CRYPT_VERIFYCONTEXT | CRYPT_SILENT)) {
            ADD_FAILURE() << "CryptAcquireContext failed: " << std::hex << ::GetLastError();
            return names;
        }
        BYTE name[1024];
        DWORD length = sizeof name;
        DWORD flags = CRYPT_FIRST;
        while (::CryptGetProvParam(provider.get(), PP_ENUMCONTAINERS, name, &length, flags)) {
            names.emplace_back(reinterpret_cast<const char*>(name), length != 0 ? length - 1 : 0);
            length = sizeof name;
            flags = CRYPT_NEXT;
        }
        EXPECT_EQ(static_cast<DWORD>(ERROR_NO_MORE_ITEMS), ::GetLastError());
        return names;
    }
    TqUniqueCryptProv open(const std::string& container) {
        TqUniqueCryptProv provider;
        const std::string path = std::string("\\\\.\\") + zeltest::kKitReader + "\\" + container;
        if (!::CryptAcquireContextA(provider.put(), path.c_str(), zeltest::kBaseCspName,
                                    PROV_RSA_FULL, CRYPT_SILENT)) {
            lastError = ::GetLastError();
        }
        return provider;
    }
    DWORD lastError = 0;
};

TEST_F(KitCsp, IsTheKitDllLoadedByCryptoApiUnderTheBaseCspName) {
    zeltest::VirtualCard card(cardWithContainers());
    EXPECT_EQ(nullptr, ::GetModuleHandleA("kit_csp.dll"));
    TqUniqueCryptProv provider;
    ASSERT_TRUE(::CryptAcquireContextA(provider.put(), "\\\\.\\ZelKit Reader 0\\",
                                       zeltest::kBaseCspName, PROV_RSA_FULL,
                                       CRYPT_VERIFYCONTEXT | CRYPT_SILENT))
        << std::hex << ::GetLastError();
    const HMODULE module = ::GetModuleHandleA("kit_csp.dll");
    ASSERT_NE(nullptr, module);
    EXPECT_EQ(lower(zeltest::BuiltFile("kit_csp.dll")), lower(moduleFile(module)));
    char name[128] = {};
    DWORD length = sizeof name;
    ASSERT_TRUE(
        ::CryptGetProvParam(provider.get(), PP_NAME, reinterpret_cast<BYTE*>(name), &length, 0));
    EXPECT_STREQ("Microsoft Base Smart Card Crypto Provider", name);
}

TEST_F(KitCsp, WithoutRegistrationTheProviderIsUnknown) {
    zeltest::VirtualCard card(cardWithContainers());
    zeltest::UnregisterKitCsp();
    TqUniqueCryptProv provider;
    EXPECT_FALSE(::CryptAcquireContextA(provider.put(), "\\\\.\\ZelKit Reader 0\\",
                                        zeltest::kBaseCspName, PROV_RSA_FULL,
                                        CRYPT_VERIFYCONTEXT | CRYPT_SILENT));
    EXPECT_EQ(static_cast<DWORD>(NTE_KEYSET_NOT_DEF), ::GetLastError());
}

TEST_F(KitCsp, EnumeratesTheContainersOfTheAppletTheSettingSelects) {
    zeltest::VirtualCard card(cardWithContainers());
    EXPECT_EQ((std::vector<std::string>{"ORBEN_CCCA agile", "ORBEN_AUTH agile"}), enumerate());
    selectApplet(1);
    EXPECT_EQ((std::vector<std::string>{"Default Key Container", "ORBEN_CCCA compat"}),
              enumerate());
    selectApplet(0);
    EXPECT_EQ((std::vector<std::string>{"ORBEN_CCCA agile", "ORBEN_AUTH agile"}), enumerate());
}

TEST_F(KitCsp, UserKeysAndCertificatesFollowTheContainers) {
    zeltest::VirtualCard card(cardWithContainers());
    {
        TqUniqueCryptProv signing = open("ORBEN_CCCA agile");
        ASSERT_TRUE(signing) << std::hex << lastError;
        TqUniqueCryptKey key;
        EXPECT_FALSE(::CryptGetUserKey(signing.get(), AT_KEYEXCHANGE, key.put()));
        EXPECT_EQ(static_cast<DWORD>(NTE_NO_KEY), ::GetLastError());
        ASSERT_TRUE(::CryptGetUserKey(signing.get(), AT_SIGNATURE, key.put()));
        DWORD size = 0;
        EXPECT_TRUE(::CryptGetKeyParam(key.get(), KP_CERTIFICATE, nullptr, &size, 0));
        EXPECT_EQ(std::string("ZelKit certificate of ORBEN_CCCA agile").size(), size);
    }
    {
        TqUniqueCryptProv exchange = open("ORBEN_AUTH agile");
        ASSERT_TRUE(exchange) << std::hex << lastError;
        TqUniqueCryptKey key;
        ASSERT_TRUE(::CryptGetUserKey(exchange.get(), AT_KEYEXCHANGE, key.put()));
        DWORD size = 0;
        EXPECT_FALSE(::CryptGetKeyParam(key.get(), KP_CERTIFICATE, nullptr, &size, 0));
        EXPECT_EQ(static_cast<DWORD>(SCARD_E_NO_SUCH_CERTIFICATE), ::GetLastError());
    }
}

TEST_F(KitCsp, ContainerOfTheOtherAppletOrReaderCannotBeOpened) {
    zeltest::VirtualCard card(cardWithContainers());
    EXPECT_FALSE(open("ORBEN_CCCA compat"));
    EXPECT_EQ(static_cast<DWORD>(NTE_BAD_KEYSET), lastError);
    selectApplet(1);
    EXPECT_TRUE(open("ORBEN_CCCA compat"));
    TqUniqueCryptProv provider;
    EXPECT_FALSE(::CryptAcquireContextA(provider.put(), "\\\\.\\Other Reader\\",
                                        zeltest::kBaseCspName, PROV_RSA_FULL,
                                        CRYPT_VERIFYCONTEXT | CRYPT_SILENT));
    EXPECT_EQ(static_cast<DWORD>(SCARD_E_UNKNOWN_READER), ::GetLastError());
}

TEST_F(KitCsp, EmptyNameOpensTheAppletsFirstContainer) {
    zeltest::VirtualCard card(cardWithContainers());
    TqUniqueCryptProv provider = open("");
    ASSERT_TRUE(provider) << std::hex << lastError;
    char name[128] = {};
    DWORD length = sizeof name;
    ASSERT_TRUE(::CryptGetProvParam(provider.get(), PP_CONTAINER, reinterpret_cast<BYTE*>(name),
                                    &length, 0));
    EXPECT_STREQ("ORBEN_CCCA agile", name);
}

TEST_F(KitCsp, ContainersChangeOnceTheCacheHasBeenBumpedOftenEnough) {
    CardState state = zeltest::Relaxed(zeltest::OberthurCardState());
    state.refreshAfterBumps = 2;
    state.containers = {
        {"agile", "stale", KeyKind::kSignature, false, Shown::kBeforeRefresh},
        {"agile", "kept", KeyKind::kExchange, true, Shown::kAlways},
        {"agile", "fresh", KeyKind::kSignature, true, Shown::kAfterRefresh},
    };
    zeltest::VirtualCard card(state);
    EXPECT_EQ((std::vector<std::string>{"stale", "kept"}), enumerate());
    state.cacheBumps = 1;
    zeltest::WriteCardState(state);
    EXPECT_EQ((std::vector<std::string>{"stale", "kept"}), enumerate());
    state.cacheBumps = 2;
    zeltest::WriteCardState(state);
    EXPECT_EQ((std::vector<std::string>{"kept", "fresh"}), enumerate());
}

TEST_F(KitCsp, EmptyContainerNameIsEnumeratedWithLengthZero) {
    CardState state = zeltest::Relaxed(zeltest::OberthurCardState());
    state.containers = {{"agile", "", KeyKind::kSignature, false, Shown::kAlways},
                        {"agile", "after", KeyKind::kExchange, false, Shown::kAlways}};
    zeltest::VirtualCard card(state);
    EXPECT_EQ((std::vector<std::string>{"", "after"}), enumerate());
}

TEST(KitCardState, TextFormatRoundTrips) {
    CardState state = cardWithContainers();
    state.inserted = false;
    state.refreshAfterBumps = 3;
    state.cacheBumps = 2;
    state.pinPresentations = 5;
    state.cardReads = 7;
    state.events = {"one", "two"};
    const std::string text = zelkit::FormatCardState(state);
    EXPECT_EQ(text, zelkit::FormatCardState(zelkit::ParseCardState(text)));
    EXPECT_NE(std::string::npos,
              text.find("container=compatibility|ORBEN_CCCA compat|signature|none|always\n"));
    EXPECT_NE(std::string::npos, text.find("cardcf=0102030405060708\n"));
}

} // namespace
