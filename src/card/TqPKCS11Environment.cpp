#include "TqPKCS11Environment.h"

#include "base/TqFailureGuard.h"
#include "host/TqModuleLoad.h"

#include <memory>
#include <new>
#include <utility>

namespace {

// The loaded module outlives every call that uses it; it goes only with TqUnloadPKCS11Module
// (or with the process: freeing a library while the process ends is not safe).
TqPKCS11Module* gLoadedModule = nullptr;

} // namespace

TqPKCS11Environment& TqPKCS11Env() noexcept {
    static TqPKCS11Environment environment;
    return environment;
}

CK_RV TqLoadPKCS11Module(const char* path) noexcept {
    TqUnloadPKCS11Module();
    if (path == nullptr) {
        return CKR_ARGUMENTS_BAD;
    }
    std::unique_ptr<TqPKCS11Module> module(new (std::nothrow) TqPKCS11Module);
    if (!module) {
        return kCkrBadP11Cont;
    }
    // A path that cannot even be copied leaves no module record either.
    const CK_RV named =
        TqGuard<CK_RV>([&](CK_RV&) { module->path = path; }, [](const TqCaught&) {},
                       [](const TqCaught&, CK_RV) noexcept { return kCkrBadP11Cont; });
    if (named != CKR_OK) {
        return named;
    }
    module->library.reset(TqLoadNamedModule(path));
    if (!module->library) {
        return kCkrBadP11Cont;
    }
    const auto getFunctionList = reinterpret_cast<CK_C_GetFunctionList>(
        reinterpret_cast<void*>(::GetProcAddress(module->library.get(), "C_GetFunctionList")));
    if (getFunctionList == nullptr) {
        return kCkrBadFunctionList;
    }
    const CK_RV listed = getFunctionList(&module->functionList);
    if (listed != CKR_OK) {
        return listed;
    }
    CK_C_Initialize initialize = nullptr;
    const CK_RV found =
        TqFindPKCS11Function(module.get(), &CK_FUNCTION_LIST::C_Initialize, initialize);
    if (found != CKR_OK) {
        return found;
    }
    const CK_RV initialized = initialize(nullptr);
    if (initialized != CKR_OK && initialized != CKR_CRYPTOKI_ALREADY_INITIALIZED) {
        return initialized;
    }
    gLoadedModule = module.release();
    TqPKCS11Env().module = gLoadedModule;
    TqPKCS11Env().enabled = true;
    return CKR_OK;
}

void TqUnloadPKCS11Module() noexcept {
    TqPKCS11Env().enabled = false;
    TqPKCS11Env().module = nullptr;
    const std::unique_ptr<TqPKCS11Module> module(std::exchange(gLoadedModule, nullptr));
    if (!module) {
        return;
    }
    CK_C_Finalize finalize = nullptr;
    if (TqFindPKCS11Function(module.get(), &CK_FUNCTION_LIST::C_Finalize, finalize) == CKR_OK) {
        finalize(nullptr); // a module the switch left finalized answers 0x190: nothing to undo
    }
}
