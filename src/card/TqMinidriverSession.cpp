#include "TqMinidriverSession.h"

#include "card/TqCacheFreshness.h"
#include "base/TqUniqueResource.h"
#include "logging/ZelLogger.h"
#include "base/TqErrorText.h"
#include "logging/TqWorkerFailure.h"
#include "host/TqModuleLoad.h"

#include <cstring>
#include <string>
#include <utility>
#include <vector>

namespace {

constexpr const char* kInitName = "TqInitMinidriver";
constexpr const char* kClearName = "TqOTClearSeries8SmartCardCache";
constexpr const char* kUninitName = "TqUnintMinidriver";

constexpr DWORD kAtrBufferSize = 32;
constexpr int kCardNameCapacity = 33; // wide characters, with the NUL
constexpr DWORD kProviderNameCapacity = 256;

void applyLogFile(const char* logFile) {
    if (logFile != nullptr) {
        TqLogger().SetFileName(logFile);
    }
}

// A failed step: its code becomes the worker's result, the text says which call failed.
[[noreturn]] void failStep(int& result, DWORD code, const char* prefix) {
    result = static_cast<int>(code);
    throw TqFailure(prefix + TqGetSmartCardErrorText(code));
}

// The host side of the minidriver interface. Nothing is cached on this host, so every lookup
// misses and the minidriver always reads the card itself: a stale host cache is exactly what
// this session is meant to get past.
LPVOID WINAPI cspAlloc(SIZE_T size) {
    return ::HeapAlloc(::GetProcessHeap(), HEAP_ZERO_MEMORY, size);
}
LPVOID WINAPI cspReAlloc(LPVOID address, SIZE_T size) {
    return ::HeapReAlloc(::GetProcessHeap(), HEAP_ZERO_MEMORY, address, size);
}
void WINAPI cspFree(LPVOID address) {
    if (address != nullptr) {
        ::HeapFree(::GetProcessHeap(), 0, address);
    }
}
DWORD WINAPI cspCacheAddFile(PVOID, LPWSTR, DWORD, PBYTE, DWORD) {
    return 0;
}
DWORD WINAPI cspCacheLookupFile(PVOID, LPWSTR, DWORD, PBYTE*, PDWORD) {
    return ERROR_NOT_FOUND;
}
DWORD WINAPI cspCacheDeleteFile(PVOID, LPWSTR, DWORD) {
    return 0;
}

TqUniqueHeapMemory heapCopy(const void* data, SIZE_T size, int& result) {
    TqUniqueHeapMemory copy(cspAlloc(size));
    if (!copy) {
        failStep(result, static_cast<DWORD>(SCARD_E_NO_MEMORY), "HeapAlloc failed. Error Code: ");
    }
    std::memcpy(copy.get(), data, size);
    return copy;
}

// The card's name as the minidriver expects it, or nothing when it cannot be converted.
TqUniqueHeapMemory wideCardName(int& result) {
    TqUniqueHeapMemory name(cspAlloc(kCardNameCapacity * sizeof(wchar_t)));
    if (!name) {
        failStep(result, static_cast<DWORD>(SCARD_E_NO_MEMORY), "HeapAlloc failed. Error Code: ");
    }
    if (::MultiByteToWideChar(CP_THREAD_ACP, 0, kTqOberthurCardName, -1,
                              static_cast<LPWSTR>(name.get()), kCardNameCapacity) == 0) {
        name.reset();
    }
    return name;
}

TqUniqueSCardContext establishContext(int& result) {
    TqUniqueSCardContext context;
    const LONG status = ::SCardEstablishContext(SCARD_SCOPE_USER, nullptr, nullptr, context.put());
    if (status != SCARD_S_SUCCESS) {
        failStep(result, static_cast<DWORD>(status), "SCardEstablishContext failed. Error Code: ");
    }
    return context;
}

// The file name of the minidriver registered for the card with the smart-card service.
std::string registeredMinidriver(SCARDCONTEXT context, int& result) {
    char minidriverName[kProviderNameCapacity] = {};
    DWORD nameLength = kProviderNameCapacity;
    // Only the length tells: an unknown card and a card without a minidriver both leave it 0.
    ::SCardGetCardTypeProviderNameA(context, kTqOberthurCardName, SCARD_PROVIDER_CARD_MODULE,
                                    minidriverName, &nameLength);
    if (nameLength == 0) {
        failStep(result, static_cast<DWORD>(SCARD_E_UNKNOWN_CARD),
                 "SCardGetCardTypeProviderName failed. Error Code: ");
    }
    minidriverName[kProviderNameCapacity - 1] = '\0';
    return minidriverName;
}

// The card in the reader and the ATR it answered with.
struct ConnectedCard {
    TqUniqueSCardHandle card;
    BYTE atr[kAtrBufferSize] = {};
    DWORD atrLength = kAtrBufferSize;
};

void connectCard(SCARDCONTEXT context, const char* readerName, ConnectedCard& connected,
                 int& result) {
    DWORD protocol = 0;
    LONG status =
        ::SCardConnectA(context, readerName, SCARD_SHARE_SHARED,
                        SCARD_PROTOCOL_T0 | SCARD_PROTOCOL_T1, connected.card.put(), &protocol);
    if (status != SCARD_S_SUCCESS) {
        failStep(result, static_cast<DWORD>(status), "SCardConnect failed. Error Code: ");
    }
    DWORD state = 0;
    status = ::SCardStatusA(connected.card.get(), nullptr, nullptr, &state, &protocol,
                            connected.atr, &connected.atrLength);
    if (status != SCARD_S_SUCCESS) {
        failStep(result, static_cast<DWORD>(status), "SCardStatus failed. Error Code: ");
    }
}

TqUniqueModule loadRegisteredMinidriver(const std::string& minidriverName, int& result) {
    TqUniqueModule minidriver(TqLoadNamedModule(minidriverName.c_str()));
    if (!minidriver) {
        const DWORD error = ::GetLastError();
        result = static_cast<int>(error);
        throw TqFailure("LoadLibrary failed. Error Code: " + TqGetLastErrorAsString(error));
    }
    return minidriver;
}

PFN_CARD_ACQUIRE_CONTEXT acquireContextEntry(HMODULE minidriver, int& result) {
    const auto acquire = reinterpret_cast<PFN_CARD_ACQUIRE_CONTEXT>(
        reinterpret_cast<void*>(::GetProcAddress(minidriver, "CardAcquireContext")));
    if (acquire == nullptr) {
        failStep(result, ::GetLastError(), "GetProcAddress failed. Error Code: ");
    }
    return acquire;
}

// The host's half of the table: what the minidriver is lent and the functions it calls back.
void lendHostSide(CARD_DATA& cardData, void* atr, DWORD atrLength, void* cardName,
                  SCARDCONTEXT context, SCARDHANDLE card) {
    cardData.dwVersion = CARD_DATA_CURRENT_VERSION;
    cardData.pbAtr = static_cast<PBYTE>(atr);
    cardData.cbAtr = atrLength;
    cardData.pwszCardName = static_cast<LPWSTR>(cardName);
    cardData.pfnCspAlloc = &cspAlloc;
    cardData.pfnCspReAlloc = &cspReAlloc;
    cardData.pfnCspFree = &cspFree;
    cardData.pfnCspCacheAddFile = &cspCacheAddFile;
    cardData.pfnCspCacheLookupFile = &cspCacheLookupFile;
    cardData.pfnCspCacheDeleteFile = &cspCacheDeleteFile;
    cardData.hSCardCtx = context;
    cardData.hScard = card;
}

void openSession(const char* readerName, CARD_DATA& cardData, HMODULE& module, int& result) {
    TqUniqueSCardContext context = establishContext(result);
    const std::string minidriverName = registeredMinidriver(context.get(), result);
    ConnectedCard connected;
    connectCard(context.get(), readerName, connected, result);

    // The lent buffers are declared before the module: on a failure they go after it.
    TqUniqueHeapMemory atrCopy = heapCopy(connected.atr, kAtrBufferSize, result);
    TqUniqueHeapMemory cardName = wideCardName(result);
    TqUniqueModule minidriver = loadRegisteredMinidriver(minidriverName, result);
    const PFN_CARD_ACQUIRE_CONTEXT acquire = acquireContextEntry(minidriver.get(), result);

    lendHostSide(cardData, atrCopy.get(), connected.atrLength, cardName.get(), context.get(),
                 connected.card.get());
    const DWORD acquired = acquire(&cardData, 0);
    if (acquired != 0) {
        // Nothing in the table may point at what the owners are about to release.
        std::memset(&cardData, 0, sizeof cardData);
        failStep(result, acquired, "CardAcquireContext failed. Error Code: ");
    }
    // From here TqUnintMinidriver owns all of it.
    atrCopy.release();
    cardName.release();
    context.release();
    connected.card.release();
    module = minidriver.release();
}

// The PIN as the minidriver takes it: a byte buffer of its own, wiped before it is released.
class PinBytes {
public:
    explicit PinBytes(const char* pin) : bytes_(pin, pin + std::strlen(pin)) {}
    ~PinBytes() { ::SecureZeroMemory(bytes_.data(), bytes_.size()); }
    PinBytes(const PinBytes&) = delete;
    PinBytes& operator=(const PinBytes&) = delete;

    PBYTE data() noexcept { return bytes_.data(); }
    DWORD size() const noexcept { return static_cast<DWORD>(bytes_.size()); }

private:
    std::vector<BYTE> bytes_;
};

void authenticateUser(CARD_DATA& cardData, const char* pin, int& result) {
    wchar_t user[] = L"user";
    PinBytes bytes(pin);
    DWORD attemptsRemaining = 0;
    const DWORD status = cardData.pfnCardAuthenticatePin(&cardData, user, bytes.data(),
                                                         bytes.size(), &attemptsRemaining);
    if (status != 0) {
        failStep(result, status, "CardAuthenticatePin failed. Error Code: ");
    }
}

bool usableTable(const CARD_DATA* cardData) {
    return cardData != nullptr && cardData->pfnCardAuthenticatePin != nullptr &&
           cardData->pfnCardReadFile != nullptr && cardData->pfnCardWriteFile != nullptr;
}

} // namespace

int TqInitMinidriver(const char* readerName, CARD_DATA* cardData, HMODULE* module,
                     const char* logFile) {
    return TqRunWorker(kInitName, [&](int& result) {
        applyLogFile(logFile);
        if (readerName == nullptr || readerName[0] == '\0') {
            failStep(result, static_cast<DWORD>(SCARD_E_UNKNOWN_READER),
                     "One or more calling arguments is invalid. Error Code: ");
        }
        if (cardData == nullptr || module == nullptr) {
            failStep(result, static_cast<DWORD>(SCARD_E_INVALID_PARAMETER),
                     "One or more calling arguments is invalid. Error Code: ");
        }
        std::memset(cardData, 0, sizeof *cardData);
        *module = nullptr;
        openSession(readerName, *cardData, *module, result);
    });
}

int TqOTClearSeries8SmartCardCache(const char* readerName, const char* pin, CARD_DATA* cardData,
                                   const char* logFile) {
    return TqRunWorker(kClearName, [&](int& result) {
        applyLogFile(logFile);
        if (readerName == nullptr || readerName[0] == '\0' || pin == nullptr || pin[0] == '\0' ||
            !usableTable(cardData)) {
            result = static_cast<int>(SCARD_E_INVALID_PARAMETER);
            throw TqFailure("One or more calling arguments is invalid.");
        }
        authenticateUser(*cardData, pin, result);

        char root[] = "";
        char cacheFile[] = "cardcf";
        PBYTE current = nullptr;
        DWORD currentSize = 0;
        const DWORD read =
            cardData->pfnCardReadFile(cardData, root, cacheFile, 0, &current, &currentSize);
        if (read != 0) {
            failStep(result, read, "CardReadFile failed. Error Code: ");
        }
        TqCacheFileBytes bumped =
            TqBumpCacheFreshness(current, current != nullptr ? currentSize : 0);
        if (current != nullptr && cardData->pfnCspFree != nullptr) {
            cardData->pfnCspFree(current);
        }
        const DWORD written = cardData->pfnCardWriteFile(
            cardData, root, cacheFile, 0, bumped.data(), static_cast<DWORD>(bumped.size()));
        if (written != 0) {
            failStep(result, written, "CardWriteFile failed. Error Code: ");
        }
    });
}

int TqUnintMinidriver(HMODULE module, CARD_DATA* cardData, const char* logFile) {
    return TqRunWorker(kUninitName, [&](int& result) {
        applyLogFile(logFile);
        if (cardData == nullptr) {
            constexpr DWORD kNoTable = static_cast<DWORD>(SCARD_E_COMM_DATA_LOST);
            result = static_cast<int>(kNoTable);
            TqLogger().Log(kLogError, kTqWorkerTag, kUninitName,
                           "pCardData argument is invalid. " + TqGetSmartCardErrorText(kNoTable));
            return;
        }
        // Released in reverse order: the card (its transaction ended, the card reset), the
        // context, the module, and last the buffers the minidriver may have kept pointers to.
        const TqUniqueHeapMemory atr(std::exchange(cardData->pbAtr, nullptr));
        const TqUniqueHeapMemory cardName(std::exchange(cardData->pwszCardName, nullptr));
        const TqUniqueModule minidriver(module);
        const TqUniqueSCardContext context(std::exchange(cardData->hSCardCtx, 0));
        const TqUniqueSCardSession card(std::exchange(cardData->hScard, 0));
    });
}

void TqRequireMinidriverStep(int stepCode, const char* failurePrefix, int failureCode,
                             int& result) {
    if (stepCode != 0) {
        result = failureCode;
        throw TqFailure(failurePrefix +
                        TqGetSmartCardErrorText(static_cast<std::uint32_t>(stepCode)));
    }
}
