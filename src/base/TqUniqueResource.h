// One small owner per handle kind: each kind names its invalid value and its close function.
#pragma once

#include <windows.h>
#include <wincrypt.h>
#include <winscard.h>

#include <cstdlib>
#include <utility>

template <typename Traits> class TqUniqueResource {
public:
    using value_type = typename Traits::type;

    TqUniqueResource() noexcept = default;
    explicit TqUniqueResource(value_type value) noexcept : value_(value) {}
    TqUniqueResource(TqUniqueResource&& other) noexcept : value_(other.release()) {}
    TqUniqueResource& operator=(TqUniqueResource&& other) noexcept {
        if (this != &other) {
            reset(other.release());
        }
        return *this;
    }
    TqUniqueResource(const TqUniqueResource&) = delete;
    TqUniqueResource& operator=(const TqUniqueResource&) = delete;
    ~TqUniqueResource() { reset(); }

    value_type get() const noexcept { return value_; }
    bool valid() const noexcept { return value_ != Traits::invalid(); }
    explicit operator bool() const noexcept { return valid(); }

    // For out-parameters of the API calls that open a handle.
    value_type* put() noexcept {
        reset();
        return &value_;
    }

    value_type release() noexcept { return std::exchange(value_, Traits::invalid()); }

    void reset(value_type value = Traits::invalid()) noexcept {
        const value_type old = std::exchange(value_, value);
        if (old != Traits::invalid()) {
            Traits::close(old);
        }
    }

private:
    value_type value_ = Traits::invalid();
};

struct TqRegKeyTraits {
    using type = HKEY;
    static type invalid() noexcept { return nullptr; }
    static void close(type key) noexcept { ::RegCloseKey(key); }
};

struct TqKernelHandleTraits {
    using type = HANDLE;
    static type invalid() noexcept { return nullptr; }
    static void close(type handle) noexcept { ::CloseHandle(handle); }
};

// CreateFile reports failure with INVALID_HANDLE_VALUE instead of null.
struct TqFileHandleTraits {
    using type = HANDLE;
    static type invalid() noexcept { return INVALID_HANDLE_VALUE; }
    static void close(type handle) noexcept { ::CloseHandle(handle); }
};

// FindFirstFile reports failure with INVALID_HANDLE_VALUE and is closed with FindClose.
struct TqFindHandleTraits {
    using type = HANDLE;
    static type invalid() noexcept { return INVALID_HANDLE_VALUE; }
    static void close(type search) noexcept { ::FindClose(search); }
};

struct TqModuleTraits {
    using type = HMODULE;
    static type invalid() noexcept { return nullptr; }
    static void close(type module) noexcept { ::FreeLibrary(module); }
};

struct TqLocalMemoryTraits {
    using type = HLOCAL;
    static type invalid() noexcept { return nullptr; }
    static void close(type memory) noexcept { ::LocalFree(memory); }
};

struct TqServiceHandleTraits {
    using type = SC_HANDLE;
    static type invalid() noexcept { return nullptr; }
    static void close(type service) noexcept { ::CloseServiceHandle(service); }
};

struct TqCryptProvTraits {
    using type = HCRYPTPROV;
    static type invalid() noexcept { return 0; }
    static void close(type provider) noexcept { ::CryptReleaseContext(provider, 0); }
};

struct TqCryptKeyTraits {
    using type = HCRYPTKEY;
    static type invalid() noexcept { return 0; }
    static void close(type key) noexcept { ::CryptDestroyKey(key); }
};

struct TqSCardContextTraits {
    using type = SCARDCONTEXT;
    static type invalid() noexcept { return 0; }
    static void close(type context) noexcept { ::SCardReleaseContext(context); }
};

// A card handle left without a word on the card's state: the card stays as it is.
struct TqSCardHandleTraits {
    using type = SCARDHANDLE;
    static type invalid() noexcept { return 0; }
    static void close(type card) noexcept { ::SCardDisconnect(card, SCARD_LEAVE_CARD); }
};

// A card handle that a minidriver session held in a transaction: the session ends by resetting
// the card, so that no authenticated state outlives it.
struct TqSCardSessionTraits {
    using type = SCARDHANDLE;
    static type invalid() noexcept { return 0; }
    static void close(type card) noexcept {
        ::SCardEndTransaction(card, SCARD_RESET_CARD);
        ::SCardDisconnect(card, SCARD_RESET_CARD);
    }
};

// Memory of the process heap (HeapAlloc), such as the buffers a minidriver host lends.
struct TqProcessHeapTraits {
    using type = void*;
    static type invalid() noexcept { return nullptr; }
    static void close(type memory) noexcept { ::HeapFree(::GetProcessHeap(), 0, memory); }
};

// Text handed out to a client (malloc'd, TqHandOutText) that the library itself receives back
// from another worker: released with free, exactly as a client releases it.
struct TqClientTextTraits {
    using type = char*;
    static type invalid() noexcept { return nullptr; }
    static void close(type text) noexcept { std::free(text); }
};

using TqUniqueRegKey = TqUniqueResource<TqRegKeyTraits>;
using TqUniqueHandle = TqUniqueResource<TqKernelHandleTraits>;
using TqUniqueFile = TqUniqueResource<TqFileHandleTraits>;
using TqUniqueFindHandle = TqUniqueResource<TqFindHandleTraits>;
using TqUniqueModule = TqUniqueResource<TqModuleTraits>;
using TqUniqueLocalMemory = TqUniqueResource<TqLocalMemoryTraits>;
using TqUniqueServiceHandle = TqUniqueResource<TqServiceHandleTraits>;
using TqUniqueCryptProv = TqUniqueResource<TqCryptProvTraits>;
using TqUniqueCryptKey = TqUniqueResource<TqCryptKeyTraits>;
using TqUniqueSCardContext = TqUniqueResource<TqSCardContextTraits>;
using TqUniqueSCardHandle = TqUniqueResource<TqSCardHandleTraits>;
using TqUniqueSCardSession = TqUniqueResource<TqSCardSessionTraits>;
using TqUniqueHeapMemory = TqUniqueResource<TqProcessHeapTraits>;
using TqUniqueClientText = TqUniqueResource<TqClientTextTraits>;
