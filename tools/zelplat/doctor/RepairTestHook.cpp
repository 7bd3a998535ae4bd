#include "doctor/RepairTestHook.h"

#include "card/TqATRMiddleware.h"

#include <windows.h>
#include <sddl.h>

#include <cstdlib>
#include <string>

#ifndef ZELPLAT_TEST_HOOKS

// zelplat.exe: no hook at all. The members stay, so that the class is the same in every file of
// both programs.
FixFailureHookForTests::FixFailureHookForTests(FixFamily) {}
FixFailureHookForTests::~FixFailureHookForTests() = default;

#else

FixFailureHookForTests::FixFailureHookForTests(FixFamily family) {
    const char* hook = std::getenv("ZELPLAT_TEST_HOOK");
    if (hook == nullptr || family != FixFamily::kAtr) {
        return;
    }
    const std::string word = hook;
    const bool during = word == "deny-32-bit-contact-entry-during-atr-fix";
    if (!during && word != "deny-32-bit-contact-entry-from-atr-fix") {
        return;
    }
    if (::RegOpenKeyExA(HKEY_LOCAL_MACHINE, kTqJcopContactKey, 0,
                        READ_CONTROL | WRITE_DAC | KEY_WOW64_32KEY, key_.put()) != ERROR_SUCCESS) {
        return;
    }
    DWORD size = 0;
    ::RegGetKeySecurity(key_.get(), DACL_SECURITY_INFORMATION, nullptr, &size);
    original_.resize(size);
    if (size == 0 || ::RegGetKeySecurity(key_.get(), DACL_SECURITY_INFORMATION, original_.data(),
                                         &size) != ERROR_SUCCESS) {
        return;
    }
    TqUniqueLocalMemory denied;
    PSECURITY_DESCRIPTOR made = nullptr;
    if (!::ConvertStringSecurityDescriptorToSecurityDescriptorA("D:(D;;KA;;;WD)", SDDL_REVISION_1,
                                                                &made, nullptr)) {
        return;
    }
    denied.reset(made);
    const bool set =
        ::RegSetKeySecurity(key_.get(), DACL_SECURITY_INFORMATION, made) == ERROR_SUCCESS;
    restore_ = during && set;
}

FixFailureHookForTests::~FixFailureHookForTests() {
    if (restore_) {
        ::RegSetKeySecurity(key_.get(), DACL_SECURITY_INFORMATION, original_.data());
    }
}

#endif
