// The kit's card minidriver for "Oberthur Technologies KVR Device": PIN check and the "cardcf"
// file of the virtual card, with memory and the file cache through the caller's callbacks,
// as the minidriver interface requires.
#include "KitCardState.h"
#include "card/TqCardModule.h"

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

DWORD WINAPI unsupported() {
    return SCARD_E_UNSUPPORTED_FEATURE;
}

DWORD WINAPI deleteContext(PCARD_DATA card) {
    Session* session = sessionOf(card);
    if (session == nullptr) {
        return SCARD_E_INVALID_PARAMETER;
    }
    card->pfnCspFree(session);
    card->pvVendorSpecific = nullptr;
    zelkit::RecordEvent("CardDeleteContext");
    return SCARD_S_SUCCESS;
}

DWORD WINAPI authenticatePin(PCARD_DATA card, LPWSTR user, PBYTE pin, DWORD pinLength,
                             PDWORD attemptsRemaining) {
    Session* session = sessionOf(card);
    if (session == nullptr || user == nullptr || pin == nullptr ||
        std::wcscmp(user, wszCARD_USER_USER) != 0) {
        return SCARD_E_INVALID_PARAMETER;
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

DWORD WINAPI readFile(PCARD_DATA card, LPSTR directory, LPSTR file, DWORD flags, PBYTE* data,
                      PDWORD size) {
    if (sessionOf(card) == nullptr || data == nullptr || size == nullptr || flags != 0) {
        return SCARD_E_INVALID_PARAMETER;
    }
    if (!isCacheFile(directory, file)) {
        return SCARD_E_FILE_NOT_FOUND;
    }
    wchar_t tag[] = L"cardcf";
    DWORD lookup = ERROR_NOT_FOUND;
    if (card->pfnCspCacheLookupFile != nullptr) {
        lookup = card->pfnCspCacheLookupFile(card->pvCacheContext, tag, 0, data, size);
        zelkit::RecordEvent("CspCacheLookupFile cardcf answered " + std::to_string(lookup));
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
    Session* session = sessionOf(card);
    if (session == nullptr || data == nullptr || flags != 0) {
        return SCARD_E_INVALID_PARAMETER;
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

extern "C" __declspec(dllexport) DWORD WINAPI CardAcquireContext(PCARD_DATA card, DWORD flags) {
    if (card == nullptr || flags != 0) {
        return SCARD_E_INVALID_PARAMETER;
    }
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
