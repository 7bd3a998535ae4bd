// The process-wide PKCS#11 environment: the card vendor's module that the applet switch
// restarts, once a host has loaded it.
#pragma once

#include "card/TqPKCS11Types.h"
#include "base/TqUniqueResource.h"

#include <string>

// The vendor's codes for a module that cannot be reached.
inline constexpr CK_RV kCkrBadP11Cont = CKR_VENDOR_DEFINED + 1001;      // no module record
inline constexpr CK_RV kCkrBadFunctionList = CKR_VENDOR_DEFINED + 1002; // no function list
inline constexpr CK_RV kCkrBadFunction = CKR_VENDOR_DEFINED + 1003;     // entry is null

struct TqPKCS11Module {
    std::string path;
    TqUniqueModule library;
    CK_FUNCTION_LIST_PTR functionList = nullptr;
};

struct TqPKCS11Environment {
    bool enabled = false;
    TqPKCS11Module* module = nullptr;
};

// Nothing in the library enables it: a host does, through TqLoadPKCS11Module.
TqPKCS11Environment& TqPKCS11Env() noexcept;

// Looks up one entry of the module's function list, saying which link is missing when it
// cannot be reached.
template <typename Function>
CK_RV TqFindPKCS11Function(const TqPKCS11Module* module, Function CK_FUNCTION_LIST::*entry,
                           Function& function) noexcept {
    function = nullptr;
    if (module == nullptr) {
        return kCkrBadP11Cont;
    }
    if (module->functionList == nullptr) {
        return kCkrBadFunctionList;
    }
    function = module->functionList->*entry;
    return function != nullptr ? CKR_OK : kCkrBadFunction;
}

// Loads the module at path, takes its function list and initialises it (the applet switch
// starts by finalizing, so the module must be running), then enables the environment.
// An environment already loaded is unloaded first. Returns CKR_OK, the module's own failure,
// or kCkrBadP11Cont (library not loadable), kCkrBadFunctionList (no C_GetFunctionList or no
// list), kCkrBadFunction (no C_Initialize).
CK_RV TqLoadPKCS11Module(const char* path) noexcept;

// Finalizes and unloads the module and disables the environment. Harmless when none is loaded.
void TqUnloadPKCS11Module() noexcept;
