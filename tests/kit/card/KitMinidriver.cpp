// The kit's card minidriver for "Oberthur Technologies KVR Device": PIN check and the "cardcf"
// file of the virtual card, with memory and the file cache through the caller's callbacks,
// as the minidriver interface requires.
#include "KitCardState.h"
#include "card/TqCardModule.h"

#include <cstdio>
#include <cstring>
#include <cwchar>
#include <new>
#include <string>
#include <vector>

namespace {

struct Session {
    bool userAuthenticated = false;
};

Session* sessionOf(PCARD_DATA card) {
    return card != nullptr ? static_cast<Session*>(card->pvVendorSpecific) : nullptr;
}

bool isCacheFile(LPSTR directory, LPSTR file) {
    const bool root = directory == nullptr || directory[0] == '\0';
    return root && file != nullptr && std::strcmp(file, szCACHE_FILE) == 0;
}

std::string hex(const BYTE* data, DWORD size) {
    static const char digits[] = "0123456789ABCDEF";
    std::string text;
    for (DWORD at = 0; at < size; ++at) {
        text += digits[data[at] >> 4];
        text += digits[data[at] & 0xF];
    }
    return text;
}

std::string quoted(const char* text) {
    return text != nullptr ? "\"" + std::string(text) + "\"" : "null";
}

std::string narrow(const wchar_t* text) {
    if (text == nullptr) {
        return "null";
    }
    std::string out = "\"";
    for (; *text != L'\0'; ++text) {
        out += *text < 0x80 ? static_cast<char>(*text) : '?';
    }
    return out + "\"";
}

std::string bufferName(const void* buffer) {
    char text[48];
    std::snprintf(text, sizeof text, "CardReadFile buffer %p", buffer);
    return text;
}

// The host's own free callback. The kit puts a wrapper in its place, so that a read buffer
// given back through the table leaves the ledger; one freed any other way stays on it.
PFN_CSP_FREE gHostFree = nullptr;

void WINAPI ledgerFree(LPVOID memory) {
    // The table's free also serves blocks the kit did not hand out (the session's, a test's own).
    zelkit::RecordGivenBack("pfnCspFree", bufferName(memory), true);
    gHostFree(memory);
}

// Where the library's copy of the PIN was when it was presented, and the PIN. Once the call is
// over, the copy must hold the PIN no more. The copy's block is freed by then: its first 16
// bytes may hold the heap's own pointers and small parts of it may already serve other blocks,
// so the bytes beyond the first 16 are compared one by one, and a copy of which more than half
// still match holds the PIN. Tests that check the wipe present a long PIN.
constexpr size_t kHeapListBytes = 16;
const BYTE* gPinCopy = nullptr;
std::string gPresentedPin;

// 0: no PIN presented since the last check; 1: the copy was wiped; 2: it still holds the PIN.
int checkPinCopy() {
    if (gPinCopy == nullptr) {
        return 0;
    }
    const BYTE* copy = gPinCopy;
    gPinCopy = nullptr;
    if (gPresentedPin.size() <= kHeapListBytes) {
        return 1;
    }
    size_t matching = 0;
    for (size_t at = kHeapListBytes; at < gPresentedPin.size(); ++at) {
        matching += copy[at] == static_cast<BYTE>(gPresentedPin[at]);
    }
    const bool held = matching * 2 > gPresentedPin.size() - kHeapListBytes;
    if (held) {
        zelkit::RecordViolation("CardAuthenticatePin: the library's copy of the PIN still holds "
                                "the PIN after the call");
    }
    return held ? 2 : 1;
}

DWORD WINAPI unsupported() {
    return SCARD_E_UNSUPPORTED_FEATURE;
}

DWORD WINAPI deleteContext(PCARD_DATA card) {
    Session* session = sessionOf(card);
    if (session == nullptr) {
        return SCARD_E_INVALID_PARAMETER;
    }
    gHostFree(session); // the kit's own block, not on the ledger
    card->pvVendorSpecific = nullptr;
    zelkit::RecordEvent("CardDeleteContext");
    return SCARD_S_SUCCESS;
}

DWORD WINAPI authenticatePin(PCARD_DATA card, LPWSTR user, PBYTE pin, DWORD pinLength,
                             PDWORD attemptsRemaining) {
    Session* session = sessionOf(card);
    if (session == nullptr || user == nullptr || pin == nullptr ||
        std::wcscmp(user, wszCARD_USER_USER) != 0) {
        zelkit::Expect("CardAuthenticatePin", "pwszUserId", "\"user\"", narrow(user));
        return SCARD_E_INVALID_PARAMETER;
    }
    // The PIN's bytes without a terminating NUL.
    zelkit::Expect("CardAuthenticatePin", "cbPin", "the PIN's length without a NUL, more than 0",
                   pinLength > 0 && std::memchr(pin, 0, pinLength) == nullptr
                       ? "the PIN's length without a NUL, more than 0"
                       : std::to_string(pinLength) + " bytes holding a NUL or none");
    gPinCopy = pin;
    gPresentedPin.assign(reinterpret_cast<const char*>(pin), pinLength);
    if (const unsigned long failure = zelkit::InjectedFailure("CardAuthenticatePin")) {
        zelkit::UpdateCardState([&](zelkit::CardState& state) { ++state.pinPresentations; });
        return failure;
    }
    bool correct = false;
    zelkit::UpdateCardState([&](zelkit::CardState& state) {
        ++state.pinPresentations;
        correct = state.pin == std::string(reinterpret_cast<const char*>(pin), pinLength);
        state.events.push_back(correct ? "CardAuthenticatePin accepted"
                                       : "CardAuthenticatePin refused");
    });
    if (!correct) {
        if (attemptsRemaining != nullptr) {
            *attemptsRemaining = 2;
        }
        return SCARD_W_WRONG_CHV;
    }
    session->userAuthenticated = true;
    return SCARD_S_SUCCESS;
}

DWORD WINAPI deauthenticate(PCARD_DATA card, LPWSTR, DWORD) {
    Session* session = sessionOf(card);
    if (session == nullptr) {
        return SCARD_E_INVALID_PARAMETER;
    }
    session->userAuthenticated = false;
    return SCARD_S_SUCCESS;
}

// What the library must pass to read or write the cache file: the root directory as an empty
// string, the file "cardcf", no flags.
void expectCacheFileArguments(const char* call, LPSTR directory, LPSTR file, DWORD flags) {
    zelkit::Expect(call, "pszDirectoryName", "\"\"", quoted(directory));
    zelkit::Expect(call, "pszFileName", "\"cardcf\"", quoted(file));
    zelkit::Expect(call, "dwFlags", "0", std::to_string(flags));
}

DWORD WINAPI readFile(PCARD_DATA card, LPSTR directory, LPSTR file, DWORD flags, PBYTE* data,
                      PDWORD size) {
    checkPinCopy();
    expectCacheFileArguments("CardReadFile", directory, file, flags);
    if (sessionOf(card) == nullptr || data == nullptr || size == nullptr || flags != 0) {
        return SCARD_E_INVALID_PARAMETER;
    }
    if (const unsigned long failure = zelkit::InjectedFailure("CardReadFile")) {
        return failure;
    }
    if (!isCacheFile(directory, file)) {
        return SCARD_E_FILE_NOT_FOUND;
    }
    wchar_t tag[] = L"cardcf";
    DWORD lookup = ERROR_NOT_FOUND;
    if (card->pfnCspCacheLookupFile != nullptr) {
        lookup = card->pfnCspCacheLookupFile(card->pvCacheContext, tag, 0, data, size);
        zelkit::RecordEvent("CspCacheLookupFile cardcf answered " + std::to_string(lookup));
        zelkit::Expect("pfnCspCacheLookupFile", "its answer", "1168 (ERROR_NOT_FOUND)",
                       lookup == ERROR_NOT_FOUND ? "1168 (ERROR_NOT_FOUND)"
                                                 : std::to_string(lookup));
    }
    if (lookup == SCARD_S_SUCCESS) {
        zelkit::RecordEvent("CardReadFile cardcf from the cache");
        return SCARD_S_SUCCESS;
    }
    zelkit::CardState state;
    if (!zelkit::LoadCardState(state)) {
        return SCARD_E_INVALID_HANDLE;
    }
    if (!state.inserted) {
        return SCARD_W_REMOVED_CARD;
    }
    const DWORD length = static_cast<DWORD>(state.cardcf.size());
    *data = static_cast<PBYTE>(card->pfnCspAlloc(length != 0 ? length : 1));
    if (*data == nullptr) {
        return SCARD_E_NO_MEMORY;
    }
    std::memcpy(*data, state.cardcf.data(), length);
    *size = length;
    if (state.strict) {
        state.outstanding.push_back(bufferName(*data));
    }
    ++state.cardReads;
    state.events.push_back("CardReadFile cardcf from the card");
    zelkit::SaveCardState(state);
    if (card->pfnCspCacheAddFile != nullptr) {
        card->pfnCspCacheAddFile(card->pvCacheContext, tag, 0, *data, length);
    }
    return SCARD_S_SUCCESS;
}

DWORD WINAPI writeFile(PCARD_DATA card, LPSTR directory, LPSTR file, DWORD flags, PBYTE data,
                       DWORD size) {
    checkPinCopy();
    expectCacheFileArguments("CardWriteFile", directory, file, flags);
    zelkit::Expect("CardWriteFile", "cbData", "8", std::to_string(size));
    Session* session = sessionOf(card);
    if (session == nullptr || data == nullptr || flags != 0) {
        return SCARD_E_INVALID_PARAMETER;
    }
    if (const unsigned long failure = zelkit::InjectedFailure("CardWriteFile")) {
        return failure;
    }
    if (!isCacheFile(directory, file)) {
        return SCARD_E_FILE_NOT_FOUND;
    }
    if (!session->userAuthenticated) {
        return SCARD_W_SECURITY_VIOLATION;
    }
    zelkit::CardState state;
    if (!zelkit::LoadCardState(state)) {
        return SCARD_E_INVALID_HANDLE;
    }
    if (!state.inserted) {
        return SCARD_W_REMOVED_CARD;
    }
    if (state.readOnly) {
        return SCARD_E_READ_ONLY_CARD;
    }
    zelkit::UpdateCardState([&](zelkit::CardState& state) {
        state.cardcf.assign(data, data + size);
        ++state.cacheBumps;
        state.events.push_back("CardWriteFile cardcf " + hex(data, size));
    });
    return SCARD_S_SUCCESS;
}

} // namespace

// For the tests: whether the PIN copy of the last presentation was wiped (see checkPinCopy).
extern "C" __declspec(dllexport) int ZelKitCheckPinCopy() {
    return checkPinCopy();
}

extern "C" __declspec(dllexport) DWORD WINAPI CardAcquireContext(PCARD_DATA card, DWORD flags) {
    zelkit::Expect("CardAcquireContext", "dwFlags", "0", std::to_string(flags));
    if (card == nullptr || flags != 0) {
        return SCARD_E_INVALID_PARAMETER;
    }
    zelkit::Expect("CardAcquireContext", "dwVersion", "7", std::to_string(card->dwVersion));
    zelkit::Expect("CardAcquireContext", "pwszCardName", "\"Oberthur Technologies KVR Device\"",
                   narrow(card->pwszCardName));
    if (card->dwVersion < CARD_DATA_VERSION_FOUR) {
        return ERROR_REVISION_MISMATCH;
    }
    if (card->pfnCspAlloc == nullptr || card->pfnCspReAlloc == nullptr ||
        card->pfnCspFree == nullptr || card->pbAtr == nullptr || card->cbAtr == 0 ||
        card->hSCardCtx == 0 || card->hScard == 0) {
        return SCARD_E_INVALID_PARAMETER;
    }
    zelkit::CardState state;
    if (!zelkit::LoadCardState(state) ||
        std::vector<unsigned char>(card->pbAtr, card->pbAtr + card->cbAtr) != state.atr) {
        return SCARD_E_UNKNOWN_CARD;
    }
    if (state.acquireContextError != 0) {
        zelkit::RecordEvent("CardAcquireContext refused");
        return static_cast<DWORD>(state.acquireContextError);
    }
    // The card's transaction lasts as long as this context, as the caller ends it.
    const LONG began = ::SCardBeginTransaction(card->hScard);
    if (began != SCARD_S_SUCCESS) {
        return static_cast<DWORD>(began);
    }
    auto* session = static_cast<Session*>(card->pfnCspAlloc(sizeof(Session)));
    if (session == nullptr) {
        return SCARD_E_NO_MEMORY;
    }
    new (session) Session;
    card->pvVendorSpecific = session;
    if (card->dwVersion > CARD_DATA_CURRENT_VERSION) {
        card->dwVersion = CARD_DATA_CURRENT_VERSION;
    }

    gHostFree = card->pfnCspFree;
    card->pfnCspFree = &ledgerFree;
    card->pfnCardDeleteContext = &deleteContext;
    card->pfnCardAuthenticatePin = &authenticatePin;
    card->pfnCardDeauthenticate = &deauthenticate;
    card->pfnCardReadFile = &readFile;
    card->pfnCardWriteFile = &writeFile;
    for (PFN_CARD_UNCALLED* entry :
         {&card->pfnCardQueryCapabilities, &card->pfnCardDeleteContainer,
          &card->pfnCardCreateContainer, &card->pfnCardGetContainerInfo, &card->pfnCardGetChallenge,
          &card->pfnCardAuthenticateChallenge, &card->pfnCardUnblockPin,
          &card->pfnCardChangeAuthenticator, &card->pfnCardCreateDirectory,
          &card->pfnCardDeleteDirectory, &card->pfnCardCreateFile, &card->pfnCardDeleteFile,
          &card->pfnCardEnumFiles, &card->pfnCardGetFileInfo, &card->pfnCardQueryFreeSpace,
          &card->pfnCardQueryKeySizes, &card->pfnCardSignData, &card->pfnCardRSADecrypt,
          &card->pfnCardConstructDHAgreement}) {
        *entry = &unsupported;
    }
    if (card->dwVersion >= CARD_DATA_VERSION_FIVE) {
        card->pfnCardDeriveKey = &unsupported;
        card->pfnCardDestroyDHAgreement = &unsupported;
    }
    if (card->dwVersion >= CARD_DATA_VERSION_SIX) {
        for (PFN_CARD_UNCALLED* entry :
             {&card->pfnCardGetChallengeEx, &card->pfnCardAuthenticateEx,
              &card->pfnCardChangeAuthenticatorEx, &card->pfnCardDeauthenticateEx,
              &card->pfnCardGetContainerProperty, &card->pfnCardSetContainerProperty,
              &card->pfnCardGetProperty, &card->pfnCardSetProperty}) {
            *entry = &unsupported;
        }
    }
    if (card->dwVersion >= CARD_DATA_VERSION_SEVEN) {
        for (PFN_CARD_UNCALLED* entry :
             {&card->pfnMDImportSessionKey, &card->pfnMDEncryptData, &card->pfnCardImportSessionKey,
              &card->pfnCardGetSharedKeyHandle, &card->pfnCardGetAlgorithmProperty,
              &card->pfnCardGetKeyProperty, &card->pfnCardSetKeyProperty, &card->pfnCardDestroyKey,
              &card->pfnCardProcessEncryptedData, &card->pfnCardCreateContainerEx}) {
            *entry = &unsupported;
        }
    }
    char name[128] = {};
    if (card->pwszCardName != nullptr) {
        ::WideCharToMultiByte(CP_ACP, 0, card->pwszCardName, -1, name, sizeof name - 1, nullptr,
                              nullptr);
    }
    zelkit::RecordEvent("CardAcquireContext version " + std::to_string(card->dwVersion) + " " +
                        name);
    return SCARD_S_SUCCESS;
}
