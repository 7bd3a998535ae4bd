// A hook for the tests of the doctor's all-or-nothing repairs, and for nothing else: a failure
// part-way through the library's writes, from a cause the up-front check cannot see, cannot be
// made from outside the process at the right moment. Only the suite's own build of zelplat
// (zelplat_test_hooks.exe, compiled with ZELPLAT_TEST_HOOKS) has it, and there it acts only when
// the environment variable ZELPLAT_TEST_HOOK names it; in zelplat.exe it does nothing.
//
//   deny-32-bit-contact-entry-during-atr-fix   the 32-bit view's contact entry refuses every
//                                              access while the library writes the entries
//                                              (after the check), and is as it was after
//   deny-32-bit-contact-entry-from-atr-fix     the same, left denied when zelplat ends (the
//                                              test puts the key's security back)
#pragma once

#include "doctor/RepairRegistry.h"

#include "base/TqUniqueResource.h"

#include <vector>

class FixFailureHookForTests {
public:
    explicit FixFailureHookForTests(FixFamily family);
    ~FixFailureHookForTests();
    FixFailureHookForTests(const FixFailureHookForTests&) = delete;
    FixFailureHookForTests& operator=(const FixFailureHookForTests&) = delete;

private:
    TqUniqueRegKey key_;
    std::vector<BYTE> original_;
    [[maybe_unused]] bool restore_ = false; // used by the suite's build only
};
