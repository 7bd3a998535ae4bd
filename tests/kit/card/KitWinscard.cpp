// The kit's smart-card resource manager: Wine's winscard.dll fails every call, so tests load
// this one instead (WINEDLLOVERRIDES=winscard=n, from the test program's folder). One reader,
// and the card in it, come from the card-state file; the card-type database is the real
// registry, as on Windows.
#define WINSCARDAPI __declspec(dllexport)

#include "KitCardState.h"
#include "base/TqUniqueResource.h"

#include <windows.h>
#include <winscard.h>

#include <cstdio>
#include <cstring>
#include <map>
#include <set>
#include <string>

namespace {

// mingw-w64's winscard.h lacks the provider kinds newer than the CSP.
#ifndef SCARD_PROVIDER_KSP
#define SCARD_PROVIDER_KSP 3
#endif
#ifndef SCARD_PROVIDER_CARD_MODULE
#define SCARD_PROVIDER_CARD_MODULE 0x80000001
#endif

struct Connection {
    SCARDCONTEXT context = 0;
    bool inTransaction = false;
    bool transacted = false; // a minidriver context began a transaction on it
};

// Handles are plain numbers, as the service's are; the process is single-threaded in tests.
ULONG_PTR gNextHandle = 0x2000;
std::set<SCARDCONTEXT> gContexts;
std::map<SCARDHANDLE, Connection> gConnections;

bool validContext(SCARDCONTEXT context) {
    return gContexts.count(context) != 0;
}

Connection* findConnection(SCARDHANDLE card) {
    const auto found = gConnections.find(card);
    return found != gConnections.end() ? &found->second : nullptr;
}

std::string bufferName(const void* buffer) {
    char text[48];
    std::snprintf(text, sizeof text, "SCardFreeMemory buffer %p", buffer);
    return text;
}

std::string number(DWORD value) {
    return "0x" + zelkit::HexCode(value);
}

// Copies text (with its NUL, or a multi-string's two) to the caller the winscard way: size
// query, caller's buffer, or a buffer the service allocates (freed by SCardFreeMemory).
LONG handOut(const std::string& text, size_t totalLength, LPSTR buffer, LPDWORD length) {
    if (length == nullptr) {
        return SCARD_E_INVALID_PARAMETER;
    }
    if (buffer == nullptr) {
        *length = static_cast<DWORD>(totalLength);
        return SCARD_S_SUCCESS;
    }
    if (*length == SCARD_AUTOALLOCATE) {
        char* allocated =
            static_cast<char*>(::HeapAlloc(::GetProcessHeap(), HEAP_ZERO_MEMORY, totalLength));
        if (allocated == nullptr) {
            return SCARD_E_NO_MEMORY;
        }
        std::memcpy(allocated, text.c_str(), text.size());
        zelkit::RecordHandedOut(bufferName(allocated));
        *reinterpret_cast<LPSTR*>(buffer) = allocated;
        *length = static_cast<DWORD>(totalLength);
        return SCARD_S_SUCCESS;
    }
    if (*length < totalLength) {
        *length = static_cast<DWORD>(totalLength);
        return SCARD_E_INSUFFICIENT_BUFFER;
    }
    std::memset(buffer, 0, totalLength);
    std::memcpy(buffer, text.c_str(), text.size());
    *length = static_cast<DWORD>(totalLength);
    return SCARD_S_SUCCESS;
}

const char* providerValueName(DWORD providerId) {
    switch (providerId) {
    case SCARD_PROVIDER_CSP:
        return "Crypto Provider";
    case SCARD_PROVIDER_KSP:
        return "Smart Card Key Storage Provider";
    case SCARD_PROVIDER_CARD_MODULE:
        return "80000001";
    default:
        return nullptr;
    }
}

} // namespace

extern "C" {

// Lets a test tell this DLL from Wine's own.
__declspec(dllexport) int ZelKitWinscardMarker() {
    return 1;
}

__declspec(dllexport) LONG WINAPI
    SCardEstablishContext(DWORD scope, LPCVOID, LPCVOID, SCARDCONTEXT* context) {
    if (context == nullptr) {
        return SCARD_E_INVALID_PARAMETER;
    }
    if (scope > SCARD_SCOPE_SYSTEM) {
        return SCARD_E_INVALID_VALUE;
    }
    zelkit::Expect("SCardEstablishContext", "dwScope", "SCARD_SCOPE_USER",
                   scope == SCARD_SCOPE_USER ? "SCARD_SCOPE_USER" : number(scope));
    if (const unsigned long failure = zelkit::InjectedFailure("SCardEstablishContext")) {
        return static_cast<LONG>(failure);
    }
    *context = gNextHandle++;
    gContexts.insert(*context);
    return SCARD_S_SUCCESS;
}

__declspec(dllexport) LONG WINAPI SCardIsValidContext(SCARDCONTEXT context) {
    return validContext(context) ? SCARD_S_SUCCESS : ERROR_INVALID_HANDLE;
}

__declspec(dllexport) LONG WINAPI SCardReleaseContext(SCARDCONTEXT context) {
    if (gContexts.erase(context) == 0) {
        return ERROR_INVALID_HANDLE;
    }
    zelkit::RecordEvent("SCardReleaseContext");
    return SCARD_S_SUCCESS;
}

__declspec(dllexport) LONG WINAPI
    SCardListReadersA(SCARDCONTEXT context, LPCSTR, LPSTR readers, LPDWORD length) {
    if (context != 0 && !validContext(context)) {
        return ERROR_INVALID_HANDLE;
    }
    zelkit::CardState state;
    if (!zelkit::LoadCardState(state)) {
        return SCARD_E_NO_READERS_AVAILABLE;
    }
    return handOut(state.reader, state.reader.size() + 2, readers, length);
}

__declspec(dllexport) LONG WINAPI
    SCardConnectA(SCARDCONTEXT context, LPCSTR reader, DWORD shareMode, DWORD protocols,
                  SCARDHANDLE* card, LPDWORD activeProtocol) {
    if (!validContext(context)) {
        return ERROR_INVALID_HANDLE;
    }
    if (reader == nullptr || card == nullptr || activeProtocol == nullptr) {
        return SCARD_E_INVALID_PARAMETER;
    }
    if (shareMode < SCARD_SHARE_EXCLUSIVE || shareMode > SCARD_SHARE_DIRECT) {
        return SCARD_E_INVALID_VALUE;
    }
    zelkit::Expect("SCardConnectA", "dwShareMode", "SCARD_SHARE_SHARED",
                   shareMode == SCARD_SHARE_SHARED ? "SCARD_SHARE_SHARED" : number(shareMode));
    // The card speaks T=1; a shared connection offers both protocols and lets the card choose.
    if (!zelkit::Expect("SCardConnectA", "dwPreferredProtocols",
                        number(SCARD_PROTOCOL_T0 | SCARD_PROTOCOL_T1), number(protocols))) {
        return SCARD_E_PROTO_MISMATCH;
    }
    if (const unsigned long failure = zelkit::InjectedFailure("SCardConnectA")) {
        return static_cast<LONG>(failure);
    }
    zelkit::CardState state;
    if (!zelkit::LoadCardState(state) || state.reader != reader) {
        return SCARD_E_UNKNOWN_READER;
    }
    if (!state.inserted) {
        return SCARD_E_NO_SMARTCARD;
    }
    *card = gNextHandle++;
    gConnections[*card] = Connection{context, false};
    *activeProtocol = SCARD_PROTOCOL_T1;
    zelkit::RecordEvent(std::string("SCardConnectA ") + reader);
    return SCARD_S_SUCCESS;
}

__declspec(dllexport) LONG WINAPI SCardDisconnect(SCARDHANDLE card, DWORD disposition) {
    const Connection* connection = findConnection(card);
    if (connection == nullptr) {
        return ERROR_INVALID_HANDLE;
    }
    // A card the minidriver worked with is reset, so that no PIN stays verified on it.
    if (connection->transacted) {
        zelkit::Expect("SCardDisconnect", "dwDisposition", number(SCARD_RESET_CARD),
                       number(disposition));
    }
    gConnections.erase(card);
    zelkit::RecordEvent("SCardDisconnect " + std::to_string(disposition));
    return SCARD_S_SUCCESS;
}

__declspec(dllexport) LONG WINAPI
    SCardStatusA(SCARDHANDLE card, LPSTR readerNames, LPDWORD readerLength, LPDWORD state,
                 LPDWORD protocol, LPBYTE atr, LPDWORD atrLength) {
    if (findConnection(card) == nullptr) {
        return ERROR_INVALID_HANDLE;
    }
    // The library asks for the ATR alone, into a buffer of 32 bytes.
    zelkit::Expect("SCardStatusA", "mszReaderNames and pcchReaderLen", "null",
                   readerNames == nullptr && readerLength == nullptr ? "null" : "set");
    zelkit::Expect("SCardStatusA", "*pcbAtrLen", "32",
                   atrLength != nullptr ? std::to_string(*atrLength) : "null");
    if (const unsigned long failure = zelkit::InjectedFailure("SCardStatusA")) {
        return static_cast<LONG>(failure);
    }
    zelkit::CardState cardState;
    if (!zelkit::LoadCardState(cardState) || !cardState.inserted) {
        return SCARD_W_REMOVED_CARD; // since the connect
    }
    if (readerLength != nullptr) {
        const LONG named =
            handOut(cardState.reader, cardState.reader.size() + 2, readerNames, readerLength);
        if (named != SCARD_S_SUCCESS) {
            return named;
        }
    }
    if (state != nullptr) {
        *state = SCARD_SPECIFIC;
    }
    if (protocol != nullptr) {
        *protocol = SCARD_PROTOCOL_T1;
    }
    if (atrLength != nullptr) {
        const DWORD size = static_cast<DWORD>(cardState.atr.size());
        if (atr != nullptr && *atrLength < size) {
            *atrLength = size;
            return SCARD_E_INSUFFICIENT_BUFFER;
        }
        if (atr != nullptr) {
            std::memcpy(atr, cardState.atr.data(), size);
        }
        *atrLength = size;
    }
    return SCARD_S_SUCCESS;
}

__declspec(dllexport) LONG WINAPI SCardBeginTransaction(SCARDHANDLE card) {
    Connection* connection = findConnection(card);
    if (connection == nullptr) {
        return ERROR_INVALID_HANDLE;
    }
    connection->inTransaction = true;
    connection->transacted = true;
    zelkit::RecordEvent("SCardBeginTransaction");
    return SCARD_S_SUCCESS;
}

__declspec(dllexport) LONG WINAPI SCardEndTransaction(SCARDHANDLE card, DWORD disposition) {
    Connection* connection = findConnection(card);
    if (connection == nullptr) {
        return ERROR_INVALID_HANDLE;
    }
    zelkit::RecordEvent("SCardEndTransaction " + std::to_string(disposition));
    zelkit::Expect("SCardEndTransaction", "dwDisposition", number(SCARD_RESET_CARD),
                   number(disposition));
    if (!connection->inTransaction) {
        return SCARD_E_NOT_TRANSACTED;
    }
    connection->inTransaction = false;
    return SCARD_S_SUCCESS;
}

// As on Windows: the card's entry under the Calais smart-card database names its providers.
__declspec(dllexport) LONG WINAPI
    SCardGetCardTypeProviderNameA(SCARDCONTEXT context, LPCSTR cardName, DWORD providerId,
                                  LPSTR provider, LPDWORD length) {
    if (!validContext(context)) {
        return ERROR_INVALID_HANDLE;
    }
    if (cardName == nullptr || length == nullptr) {
        return SCARD_E_INVALID_PARAMETER;
    }
    zelkit::Expect("SCardGetCardTypeProviderNameA", "szCardName",
                   "Oberthur Technologies KVR Device", cardName);
    zelkit::Expect("SCardGetCardTypeProviderNameA", "dwProviderId",
                   number(SCARD_PROVIDER_CARD_MODULE), number(providerId));
    zelkit::Expect("SCardGetCardTypeProviderNameA", "*pcchProvider", "256",
                   std::to_string(*length));
    const char* valueName = providerValueName(providerId);
    if (valueName == nullptr) {
        *length = 0;
        return SCARD_E_INVALID_VALUE;
    }
    TqUniqueRegKey key;
    const std::string path =
        std::string("SOFTWARE\\Microsoft\\Cryptography\\Calais\\SmartCards\\") + cardName;
    if (::RegOpenKeyExA(HKEY_LOCAL_MACHINE, path.c_str(), 0, KEY_READ, key.put()) !=
        ERROR_SUCCESS) {
        *length = 0;
        return SCARD_E_UNKNOWN_CARD;
    }
    char value[512] = {};
    DWORD size = sizeof value - 1;
    DWORD type = 0;
    if (::RegQueryValueExA(key.get(), valueName, nullptr, &type, reinterpret_cast<BYTE*>(value),
                           &size) != ERROR_SUCCESS ||
        type != REG_SZ) {
        *length = 0;
        return ERROR_FILE_NOT_FOUND;
    }
    const std::string text(value);
    return handOut(text, text.size() + 1, provider, length);
}

__declspec(dllexport) LONG WINAPI SCardFreeMemory(SCARDCONTEXT, LPCVOID memory) {
    if (memory != nullptr) {
        zelkit::RecordGivenBack("SCardFreeMemory", bufferName(memory));
        ::HeapFree(::GetProcessHeap(), 0, const_cast<LPVOID>(memory));
    }
    return SCARD_S_SUCCESS;
}

} // extern "C"
