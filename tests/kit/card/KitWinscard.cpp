// The kit's smart-card resource manager: Wine's winscard.dll fails every call, so tests load
// this one instead (WINEDLLOVERRIDES=winscard=n, from the test program's folder). One reader,
// and the card in it, come from the card-state file; the card-type database is the real
// registry, as on Windows.
#include "KitCardState.h"
#include "base/TqUniqueResource.h"

#include <cstring>
#include <map>
#include <set>
#include <string>

namespace {

using ScardContext = ULONG_PTR;
using ScardHandle = ULONG_PTR;

constexpr LONG kSuccess = 0;
constexpr LONG kInvalidHandle = ERROR_INVALID_HANDLE;
constexpr LONG kInvalidParameter = static_cast<LONG>(0x80100004);
constexpr LONG kInvalidValue = static_cast<LONG>(0x80100011);
constexpr LONG kInsufficientBuffer = static_cast<LONG>(0x80100008);
constexpr LONG kUnknownReader = static_cast<LONG>(0x80100009);
constexpr LONG kNoSmartcard = static_cast<LONG>(0x8010000C);
constexpr LONG kUnknownCard = static_cast<LONG>(0x8010000D);
constexpr LONG kNotTransacted = static_cast<LONG>(0x80100016);
constexpr LONG kNoReadersAvailable = static_cast<LONG>(0x8010002E);
constexpr DWORD kAutoAllocate = 0xFFFFFFFF;
constexpr DWORD kProtocolT1 = 2;
constexpr DWORD kStateSpecific = 6;

struct Connection {
    ScardContext context = 0;
    bool inTransaction = false;
};

// Handles are plain numbers, as the service's are; the process is single-threaded in tests.
ULONG_PTR gNextHandle = 0x2000;
std::set<ScardContext> gContexts;
std::map<ScardHandle, Connection> gConnections;

bool validContext(ScardContext context) {
    return gContexts.count(context) != 0;
}

Connection* findConnection(ScardHandle card) {
    const auto found = gConnections.find(card);
    return found != gConnections.end() ? &found->second : nullptr;
}

// Copies text (with its NUL, or a multi-string's two) to the caller the winscard way: size
// query, caller's buffer, or a buffer the service allocates (freed by SCardFreeMemory).
LONG handOut(const std::string& text, size_t totalLength, LPSTR buffer, LPDWORD length) {
    if (length == nullptr) {
        return kInvalidParameter;
    }
    if (buffer == nullptr) {
        *length = static_cast<DWORD>(totalLength);
        return kSuccess;
    }
    if (*length == kAutoAllocate) {
        char* allocated =
            static_cast<char*>(::HeapAlloc(::GetProcessHeap(), HEAP_ZERO_MEMORY, totalLength));
        if (allocated == nullptr) {
            return static_cast<LONG>(0x80100006);
        }
        std::memcpy(allocated, text.c_str(), text.size());
        *reinterpret_cast<LPSTR*>(buffer) = allocated;
        *length = static_cast<DWORD>(totalLength);
        return kSuccess;
    }
    if (*length < totalLength) {
        *length = static_cast<DWORD>(totalLength);
        return kInsufficientBuffer;
    }
    std::memset(buffer, 0, totalLength);
    std::memcpy(buffer, text.c_str(), text.size());
    *length = static_cast<DWORD>(totalLength);
    return kSuccess;
}

const char* providerValueName(DWORD providerId) {
    switch (providerId) {
    case 2:
        return "Crypto Provider";
    case 3:
        return "Smart Card Key Storage Provider";
    case 0x80000001:
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
    SCardEstablishContext(DWORD scope, LPCVOID, LPCVOID, ScardContext* context) {
    if (context == nullptr) {
        return kInvalidParameter;
    }
    if (scope > 2) {
        return kInvalidValue;
    }
    *context = gNextHandle++;
    gContexts.insert(*context);
    return kSuccess;
}

__declspec(dllexport) LONG WINAPI SCardIsValidContext(ScardContext context) {
    return validContext(context) ? kSuccess : kInvalidHandle;
}

__declspec(dllexport) LONG WINAPI SCardReleaseContext(ScardContext context) {
    if (gContexts.erase(context) == 0) {
        return kInvalidHandle;
    }
    zelkit::RecordEvent("SCardReleaseContext");
    return kSuccess;
}

__declspec(dllexport) LONG WINAPI
    SCardListReadersA(ScardContext context, LPCSTR, LPSTR readers, LPDWORD length) {
    if (context != 0 && !validContext(context)) {
        return kInvalidHandle;
    }
    zelkit::CardState state;
    if (!zelkit::LoadCardState(state)) {
        return kNoReadersAvailable;
    }
    return handOut(state.reader, state.reader.size() + 2, readers, length);
}

__declspec(dllexport) LONG WINAPI
    SCardConnectA(ScardContext context, LPCSTR reader, DWORD shareMode, DWORD, ScardHandle* card,
                  LPDWORD activeProtocol) {
    if (!validContext(context)) {
        return kInvalidHandle;
    }
    if (reader == nullptr || card == nullptr || activeProtocol == nullptr) {
        return kInvalidParameter;
    }
    if (shareMode < 1 || shareMode > 3) {
        return kInvalidValue;
    }
    zelkit::CardState state;
    if (!zelkit::LoadCardState(state) || state.reader != reader) {
        return kUnknownReader;
    }
    if (!state.inserted) {
        return kNoSmartcard;
    }
    *card = gNextHandle++;
    gConnections[*card] = Connection{context, false};
    *activeProtocol = kProtocolT1;
    zelkit::RecordEvent(std::string("SCardConnectA ") + reader);
    return kSuccess;
}

__declspec(dllexport) LONG WINAPI SCardDisconnect(ScardHandle card, DWORD disposition) {
    if (gConnections.erase(card) == 0) {
        return kInvalidHandle;
    }
    zelkit::RecordEvent("SCardDisconnect " + std::to_string(disposition));
    return kSuccess;
}

__declspec(dllexport) LONG WINAPI
    SCardStatusA(ScardHandle card, LPSTR readerNames, LPDWORD readerLength, LPDWORD state,
                 LPDWORD protocol, LPBYTE atr, LPDWORD atrLength) {
    if (findConnection(card) == nullptr) {
        return kInvalidHandle;
    }
    zelkit::CardState cardState;
    if (!zelkit::LoadCardState(cardState) || !cardState.inserted) {
        return static_cast<LONG>(0x80100069); // removed since the connect
    }
    if (readerLength != nullptr) {
        const LONG named =
            handOut(cardState.reader, cardState.reader.size() + 2, readerNames, readerLength);
        if (named != kSuccess) {
            return named;
        }
    }
    if (state != nullptr) {
        *state = kStateSpecific;
    }
    if (protocol != nullptr) {
        *protocol = kProtocolT1;
    }
    if (atrLength != nullptr) {
        const DWORD size = static_cast<DWORD>(cardState.atr.size());
        if (atr != nullptr && *atrLength < size) {
            *atrLength = size;
            return kInsufficientBuffer;
        }
        if (atr != nullptr) {
            std::memcpy(atr, cardState.atr.data(), size);
        }
        *atrLength = size;
    }
    return kSuccess;
}

__declspec(dllexport) LONG WINAPI SCardBeginTransaction(ScardHandle card) {
    Connection* connection = findConnection(card);
    if (connection == nullptr) {
        return kInvalidHandle;
    }
    connection->inTransaction = true;
    zelkit::RecordEvent("SCardBeginTransaction");
    return kSuccess;
}

__declspec(dllexport) LONG WINAPI SCardEndTransaction(ScardHandle card, DWORD disposition) {
    Connection* connection = findConnection(card);
    if (connection == nullptr) {
        return kInvalidHandle;
    }
    zelkit::RecordEvent("SCardEndTransaction " + std::to_string(disposition));
    if (!connection->inTransaction) {
        return kNotTransacted;
    }
    connection->inTransaction = false;
    return kSuccess;
}

// As on Windows: the card's entry under the Calais smart-card database names its providers.
__declspec(dllexport) LONG WINAPI
    SCardGetCardTypeProviderNameA(ScardContext context, LPCSTR cardName, DWORD providerId,
                                  LPSTR provider, LPDWORD length) {
    if (!validContext(context)) {
        return kInvalidHandle;
    }
    if (cardName == nullptr || length == nullptr) {
        return kInvalidParameter;
    }
    const char* valueName = providerValueName(providerId);
    if (valueName == nullptr) {
        *length = 0;
        return kInvalidValue;
    }
    TqUniqueRegKey key;
    const std::string path =
        std::string("SOFTWARE\\Microsoft\\Cryptography\\Calais\\SmartCards\\") + cardName;
    if (::RegOpenKeyExA(HKEY_LOCAL_MACHINE, path.c_str(), 0, KEY_READ, key.put()) !=
        ERROR_SUCCESS) {
        *length = 0;
        return kUnknownCard;
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

__declspec(dllexport) LONG WINAPI SCardFreeMemory(ScardContext, LPCVOID memory) {
    if (memory != nullptr) {
        ::HeapFree(::GetProcessHeap(), 0, const_cast<LPVOID>(memory));
    }
    return kSuccess;
}

} // extern "C"
