// The kit's "Microsoft Base Smart Card Crypto Provider": a CryptoAPI CSP that shows the key
// containers of the virtual card's applet that EnableKVREnrollment selects. It reads the card
// when a context is acquired, like a CSP that has just talked to the card.
//
// Containers are named "\\.\<reader>\<name>"; an empty name is the applet's first container
// (its default). A container whose name is empty in the card state is enumerated with a data
// length of 0, as a corrupt card entry reads.
#include "KitCardState.h"

#include <windows.h>
#include <wincrypt.h>

#include <cstring>
#include <string>
#include <vector>

namespace {

constexpr DWORD kNotImplemented = static_cast<DWORD>(E_NOTIMPL);

struct Provider {
    std::string reader;
    std::vector<zelkit::Container> containers; // what the applet showed at acquire time
    int open = -1;                             // the container of this context, or none
    size_t nextEnumerated = 0;
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
    zelkit::CardState state;
    if (!zelkit::LoadCardState(state) || (!reader.empty() && reader != state.reader)) {
        return fail(static_cast<DWORD>(SCARD_E_UNKNOWN_READER));
    }
    if (!state.inserted) {
        return fail(static_cast<DWORD>(SCARD_E_NO_SMARTCARD));
    }
    auto provider = new Provider;
    provider->reader = state.reader;
    provider->containers = state.visible(zelkit::SelectedApplet());
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
    return TRUE;
}

__declspec(dllexport) BOOL WINAPI CPReleaseContext(HCRYPTPROV handle, DWORD) {
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
        if ((flags & CRYPT_FIRST) != 0) {
            provider->nextEnumerated = 0;
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
    case PP_NAME: {
        static const char kName[] = "Microsoft Base Smart Card Crypto Provider";
        return copyOut(kName, sizeof kName, data, length);
    }
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
