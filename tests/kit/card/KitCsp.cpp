// The kit's "Microsoft Base Smart Card Crypto Provider": a CryptoAPI CSP that shows the key
// containers of the virtual card's applet that EnableKVREnrollment selects. It reads the card
// when a context is acquired, like a CSP that has just talked to the card.
//
// Containers are named "\\.\<reader>\<name>"; an empty name is the applet's first container
// (its default). A container whose name is empty in the card state is enumerated with a data
// length of 0, as a corrupt card entry reads.
//
// Built twice: as the base provider, and (ZELKIT_OTHER_CSP) as "ZelKit Other Smart Card Crypto
// Provider", which shows the same card but must never be asked to open a container: the library
// opens every container through the base provider, whichever provider enumerated them.
#include "KitCardState.h"
#include "base/TqUniqueResource.h"

#include <windows.h>
#include <sddl.h>
#include <wincrypt.h>

#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

namespace {

constexpr DWORD kNotImplemented = static_cast<DWORD>(E_NOTIMPL);

#ifdef ZELKIT_OTHER_CSP
constexpr const char* kProviderName = "ZelKit Other Smart Card Crypto Provider";
#else
constexpr const char* kProviderName = "Microsoft Base Smart Card Crypto Provider";
#endif

std::string handleName(const char* kind, const void* handle) {
    char text[96];
    std::snprintf(text, sizeof text, "%s %s %p", kProviderName, kind, handle);
    return text;
}

std::string flagsText(DWORD flags) {
    return "0x" + zelkit::HexCode(flags);
}

struct Provider {
    std::string reader;
    std::vector<zelkit::Container> containers; // what the applet showed at acquire time
    int open = -1;                             // the container of this context, or none
    size_t nextEnumerated = 0;
    bool enumerating = false; // a CRYPT_FIRST came
    bool denyEnrollmentKeyAtRelease = false;
};

struct Key {
    DWORD keySpec = 0;
    std::string certificate; // empty: none
};

BOOL fail(DWORD error) {
    ::SetLastError(error);
    return FALSE;
}

Provider* providerOf(HCRYPTPROV handle) {
    return reinterpret_cast<Provider*>(handle);
}

// "\\.\Reader\Name" into reader and name; a name without the reader prefix keeps the reader
// empty (the card's only reader).
void splitContainer(const char* text, std::string& reader, std::string& name) {
    const std::string path = text != nullptr ? text : "";
    if (path.rfind("\\\\.\\", 0) != 0) {
        name = path;
        return;
    }
    const size_t slash = path.find('\\', 4);
    reader = path.substr(4, slash == std::string::npos ? std::string::npos : slash - 4);
    name = slash == std::string::npos ? std::string() : path.substr(slash + 1);
}

BOOL copyOut(const void* data, DWORD size, LPBYTE buffer, LPDWORD length) {
    if (length == nullptr) {
        return fail(ERROR_INVALID_PARAMETER);
    }
    if (buffer == nullptr) {
        *length = size;
        return TRUE;
    }
    if (*length < size) {
        *length = size;
        return fail(ERROR_MORE_DATA);
    }
    std::memcpy(buffer, data, size);
    *length = size;
    return TRUE;
}

// Denies everyone every access to the PIV minidriver's enrollment key, as a locked-down profile
// would, so that switching the applet back fails. The test puts the old security back.
void denyEnrollmentKey() {
    zelkit::UpdateCardState([](zelkit::CardState& state) { state.denyEnrollmentKeyAt.clear(); });
    TqUniqueRegKey key;
    if (::RegOpenKeyExA(HKEY_CURRENT_USER,
                        "SOFTWARE\\Oberthur Technologies\\Minidriver\\PIVMinidriver", 0, WRITE_DAC,
                        key.put()) != ERROR_SUCCESS) {
        zelkit::RecordViolation("kit: the enrollment key could not be opened to deny access");
        return;
    }
    PSECURITY_DESCRIPTOR denyAll = nullptr;
    if (::ConvertStringSecurityDescriptorToSecurityDescriptorA("D:(D;;KA;;;WD)", SDDL_REVISION_1,
                                                               &denyAll, nullptr)) {
        const TqUniqueLocalMemory descriptor(denyAll);
        ::RegSetKeySecurity(key.get(), DACL_SECURITY_INFORMATION, denyAll);
    }
}

} // namespace

extern "C" {

__declspec(dllexport) BOOL WINAPI
    CPAcquireContext(HCRYPTPROV* handle, LPCSTR container, DWORD flags, void*) {
    if (handle == nullptr) {
        return fail(ERROR_INVALID_PARAMETER);
    }
    if ((flags & (CRYPT_NEWKEYSET | CRYPT_DELETEKEYSET)) != 0) {
        return fail(static_cast<DWORD>(NTE_BAD_FLAGS));
    }
    std::string reader;
    std::string name;
    splitContainer(container, reader, name);
    const bool verifyOnly = (flags & CRYPT_VERIFYCONTEXT) == CRYPT_VERIFYCONTEXT;
    if (verifyOnly) {
        // Enumeration: the reader's default container, no user interface.
        zelkit::Expect("CPAcquireContext", "dwFlags (enumeration)",
                       flagsText(CRYPT_VERIFYCONTEXT | CRYPT_SILENT), flagsText(flags));
        zelkit::Expect("CPAcquireContext", "pszContainer (enumeration)", "\\\\.\\<reader>\\",
                       container != nullptr && !reader.empty() && name.empty() &&
                               std::string(container).back() == '\\'
                           ? "\\\\.\\<reader>\\"
                           : (container != nullptr ? container : "null"));
    } else {
        zelkit::Expect("CPAcquireContext", "dwFlags (container)", flagsText(CRYPT_SILENT),
                       flagsText(flags));
#ifdef ZELKIT_OTHER_CSP
        zelkit::RecordViolation(std::string("CPAcquireContext: container ") +
                                (container != nullptr ? container : "null") + " opened through " +
                                kProviderName +
                                "; containers are opened with the Microsoft Base Smart Card "
                                "Crypto Provider");
#endif
    }
    zelkit::CardState state;
    if (!zelkit::LoadCardState(state) || (!reader.empty() && reader != state.reader)) {
        return fail(static_cast<DWORD>(SCARD_E_UNKNOWN_READER));
    }
    if (!state.inserted) {
        return fail(static_cast<DWORD>(SCARD_E_NO_SMARTCARD));
    }
    auto provider = new Provider;
    provider->reader = state.reader;
    const std::string applet = zelkit::SelectedApplet();
    provider->containers = state.visible(applet);
    // Once this enumeration is over (its context released), the key is denied.
    provider->denyEnrollmentKeyAtRelease =
        verifyOnly && !state.denyEnrollmentKeyAt.empty() && state.denyEnrollmentKeyAt == applet;
    if ((flags & CRYPT_VERIFYCONTEXT) != CRYPT_VERIFYCONTEXT) {
        for (size_t index = 0; index < provider->containers.size(); ++index) {
            if (name.empty() || provider->containers[index].name == name) {
                provider->open = static_cast<int>(index);
                break;
            }
        }
        if (provider->open < 0) {
            delete provider;
            return fail(static_cast<DWORD>(NTE_BAD_KEYSET));
        }
    }
    *handle = reinterpret_cast<HCRYPTPROV>(provider);
    zelkit::RecordHandedOut(handleName("context", provider));
#ifdef ZELKIT_OTHER_CSP
    zelkit::RecordEvent(std::string("CPAcquireContext ") + kProviderName + " " + flagsText(flags) +
                        " " + (container != nullptr ? container : "null"));
#endif
    return TRUE;
}

__declspec(dllexport) BOOL WINAPI CPReleaseContext(HCRYPTPROV handle, DWORD) {
    zelkit::RecordGivenBack("CryptReleaseContext", handleName("context", providerOf(handle)));
    if (providerOf(handle) != nullptr && providerOf(handle)->denyEnrollmentKeyAtRelease) {
        denyEnrollmentKey();
    }
    delete providerOf(handle);
    return TRUE;
}

__declspec(dllexport) BOOL WINAPI
    CPGetProvParam(HCRYPTPROV handle, DWORD parameter, LPBYTE data, LPDWORD length, DWORD flags) {
    Provider* provider = providerOf(handle);
    if (provider == nullptr) {
        return fail(static_cast<DWORD>(NTE_BAD_UID));
    }
    switch (parameter) {
    case PP_ENUMCONTAINERS: {
        if (data != nullptr && length != nullptr) {
            zelkit::Expect("CPGetProvParam", "*pdwDataLen (PP_ENUMCONTAINERS)", "1024",
                           std::to_string(*length));
        }
        // CRYPT_FIRST starts the list; every later name is asked for with CRYPT_NEXT.
        zelkit::Expect("CPGetProvParam", "dwFlags (PP_ENUMCONTAINERS)",
                       flagsText(provider->enumerating ? CRYPT_NEXT : CRYPT_FIRST),
                       flagsText(flags));
        const bool first = (flags & CRYPT_FIRST) != 0;
        if (const unsigned long failure =
                zelkit::InjectedFailure(first ? "CPGetProvParam.first" : "CPGetProvParam.next")) {
            return fail(failure);
        }
        if (first) {
            provider->nextEnumerated = 0;
            provider->enumerating = true;
        }
        if (provider->nextEnumerated >= provider->containers.size()) {
            return fail(ERROR_NO_MORE_ITEMS);
        }
        const std::string& name = provider->containers[provider->nextEnumerated].name;
        const DWORD size = name.empty() ? 0 : static_cast<DWORD>(name.size() + 1);
        const BOOL copied = copyOut(name.c_str(), size, data, length);
        if (copied && data != nullptr) {
            ++provider->nextEnumerated;
        }
        return copied;
    }
    case PP_CONTAINER: {
        if (provider->open < 0) {
            return fail(static_cast<DWORD>(NTE_BAD_KEYSET));
        }
        const std::string& name = provider->containers[provider->open].name;
        return copyOut(name.c_str(), static_cast<DWORD>(name.size() + 1), data, length);
    }
    case PP_NAME:
        return copyOut(kProviderName, static_cast<DWORD>(std::strlen(kProviderName) + 1), data,
                       length);
    default:
        return fail(static_cast<DWORD>(NTE_BAD_TYPE));
    }
}

__declspec(dllexport) BOOL WINAPI
    CPGetUserKey(HCRYPTPROV handle, DWORD keySpec, HCRYPTKEY* keyHandle) {
    Provider* provider = providerOf(handle);
    if (provider == nullptr || keyHandle == nullptr) {
        return fail(ERROR_INVALID_PARAMETER);
    }
    if (provider->open < 0) {
        return fail(static_cast<DWORD>(NTE_NO_KEY));
    }
    const zelkit::Container& container = provider->containers[provider->open];
    const bool matches =
        (keySpec == AT_SIGNATURE && container.key == zelkit::KeyKind::kSignature) ||
        (keySpec == AT_KEYEXCHANGE && container.key == zelkit::KeyKind::kExchange);
    if (!matches) {
        return fail(static_cast<DWORD>(NTE_NO_KEY));
    }
    auto key = new Key;
    key->keySpec = keySpec;
    if (container.certificate) {
        key->certificate = "ZelKit certificate of " + container.name;
    }
    *keyHandle = reinterpret_cast<HCRYPTKEY>(key);
    zelkit::RecordHandedOut(handleName("key", key));
    return TRUE;
}

__declspec(dllexport) BOOL WINAPI CPGetKeyParam(HCRYPTPROV, HCRYPTKEY keyHandle, DWORD parameter,
                                                LPBYTE data, LPDWORD length, DWORD) {
    const Key* key = reinterpret_cast<const Key*>(keyHandle);
    if (key == nullptr) {
        return fail(static_cast<DWORD>(NTE_BAD_KEY));
    }
    if (parameter == KP_CERTIFICATE) {
        if (key->certificate.empty()) {
            return fail(static_cast<DWORD>(SCARD_E_NO_SUCH_CERTIFICATE));
        }
        return copyOut(key->certificate.data(), static_cast<DWORD>(key->certificate.size()), data,
                       length);
    }
    if (parameter == KP_ALGID) {
        const ALG_ID algorithm = key->keySpec == AT_SIGNATURE ? CALG_RSA_SIGN : CALG_RSA_KEYX;
        return copyOut(&algorithm, sizeof algorithm, data, length);
    }
    return fail(static_cast<DWORD>(NTE_BAD_TYPE));
}

__declspec(dllexport) BOOL WINAPI CPDestroyKey(HCRYPTPROV, HCRYPTKEY keyHandle) {
    zelkit::RecordGivenBack("CryptDestroyKey",
                            handleName("key", reinterpret_cast<const void*>(keyHandle)));
    delete reinterpret_cast<Key*>(keyHandle);
    return TRUE;
}

// The rest of the CSP interface: present because CryptoAPI loads only a complete provider.
__declspec(dllexport) BOOL WINAPI CPGenKey(HCRYPTPROV, ALG_ID, DWORD, HCRYPTKEY*) {
    return fail(kNotImplemented);
}
__declspec(dllexport) BOOL WINAPI CPDeriveKey(HCRYPTPROV, ALG_ID, HCRYPTHASH, DWORD, HCRYPTKEY*) {
    return fail(kNotImplemented);
}
__declspec(dllexport) BOOL WINAPI CPSetKeyParam(HCRYPTPROV, HCRYPTKEY, DWORD, const BYTE*, DWORD) {
    return fail(kNotImplemented);
}
__declspec(dllexport) BOOL WINAPI CPSetProvParam(HCRYPTPROV, DWORD, const BYTE*, DWORD) {
    return fail(kNotImplemented);
}
__declspec(dllexport) BOOL WINAPI
    CPSetHashParam(HCRYPTPROV, HCRYPTHASH, DWORD, const BYTE*, DWORD) {
    return fail(kNotImplemented);
}
__declspec(dllexport) BOOL WINAPI
    CPGetHashParam(HCRYPTPROV, HCRYPTHASH, DWORD, LPBYTE, LPDWORD, DWORD) {
    return fail(kNotImplemented);
}
__declspec(dllexport) BOOL WINAPI
    CPExportKey(HCRYPTPROV, HCRYPTKEY, HCRYPTKEY, DWORD, DWORD, LPBYTE, LPDWORD) {
    return fail(kNotImplemented);
}
__declspec(dllexport) BOOL WINAPI
    CPImportKey(HCRYPTPROV, const BYTE*, DWORD, HCRYPTKEY, DWORD, HCRYPTKEY*) {
    return fail(kNotImplemented);
}
__declspec(dllexport) BOOL WINAPI
    CPEncrypt(HCRYPTPROV, HCRYPTKEY, HCRYPTHASH, BOOL, DWORD, LPBYTE, LPDWORD, DWORD) {
    return fail(kNotImplemented);
}
__declspec(dllexport) BOOL WINAPI
    CPDecrypt(HCRYPTPROV, HCRYPTKEY, HCRYPTHASH, BOOL, DWORD, LPBYTE, LPDWORD) {
    return fail(kNotImplemented);
}
__declspec(dllexport) BOOL WINAPI CPCreateHash(HCRYPTPROV, ALG_ID, HCRYPTKEY, DWORD, HCRYPTHASH*) {
    return fail(kNotImplemented);
}
__declspec(dllexport) BOOL WINAPI CPHashData(HCRYPTPROV, HCRYPTHASH, const BYTE*, DWORD, DWORD) {
    return fail(kNotImplemented);
}
__declspec(dllexport) BOOL WINAPI CPHashSessionKey(HCRYPTPROV, HCRYPTHASH, HCRYPTKEY, DWORD) {
    return fail(kNotImplemented);
}
__declspec(dllexport) BOOL WINAPI
    CPSignHash(HCRYPTPROV, HCRYPTHASH, DWORD, LPCWSTR, DWORD, LPBYTE, LPDWORD) {
    return fail(kNotImplemented);
}
__declspec(dllexport) BOOL WINAPI CPDestroyHash(HCRYPTPROV, HCRYPTHASH) {
    return fail(kNotImplemented);
}
__declspec(dllexport) BOOL WINAPI
    CPVerifySignature(HCRYPTPROV, HCRYPTHASH, const BYTE*, DWORD, HCRYPTKEY, LPCWSTR, DWORD) {
    return fail(kNotImplemented);
}
__declspec(dllexport) BOOL WINAPI CPGenRandom(HCRYPTPROV, DWORD, LPBYTE) {
    return fail(kNotImplemented);
}
__declspec(dllexport) BOOL WINAPI
    CPDuplicateHash(HCRYPTPROV, HCRYPTHASH, LPDWORD, DWORD, HCRYPTHASH*) {
    return fail(kNotImplemented);
}
__declspec(dllexport) BOOL WINAPI
    CPDuplicateKey(HCRYPTPROV, HCRYPTKEY, LPDWORD, DWORD, HCRYPTKEY*) {
    return fail(kNotImplemented);
}

} // extern "C"
