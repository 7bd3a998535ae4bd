// The stack protector's canary and its failure routine (-fstack-protector-strong checks
// __stack_chk_guard on return and calls __stack_chk_fail on a mismatch).
//
// GCC's libssp would provide both, but its start-up code draws the canary from a CryptoAPI
// context: loading the library into the client would then load a cryptographic provider and its
// DLLs every time. The canary here is seeded the way Windows' own /GS cookie is, from the time,
// the process and thread ids, the performance counter and a stack address (randomised by ASLR),
// without loading anything. A mismatch ends the process at once through the fail-fast interrupt,
// as /GS does: a smashed stack must not run another line.
#include <windows.h>

#include <cstdint>

extern "C" {

// Replaced before main() or DllMain by seedStackGuard(); this value only while the runtime
// starts, and no function of ours runs then. Non-zero, as Windows' default cookie.
std::uintptr_t __stack_chk_guard = 0x00002B992DDFA232; // NOLINT(bugprone-reserved-identifier)

[[noreturn]] void __stack_chk_fail() { // NOLINT(bugprone-reserved-identifier)
    __asm__ volatile("int $0x29" : : "c"(FAST_FAIL_STACK_COOKIE_CHECK_FAILURE));
    ::TerminateProcess(::GetCurrentProcess(), static_cast<UINT>(STATUS_STACK_BUFFER_OVERRUN));
    __builtin_unreachable();
}

} // extern "C"

namespace {

// A static constructor: the runtime calls it before any of ours can be on the stack, and it
// checks no canary itself, since it changes it.
__attribute__((constructor, no_stack_protector)) void seedStackGuard() {
    FILETIME now{};
    ::GetSystemTimeAsFileTime(&now);
    std::uint64_t seed = (static_cast<std::uint64_t>(now.dwHighDateTime) << 32) | now.dwLowDateTime;
    seed ^= ::GetCurrentThreadId();
    seed ^= static_cast<std::uint64_t>(::GetCurrentProcessId()) << 16;
    LARGE_INTEGER counter{};
    ::QueryPerformanceCounter(&counter);
    seed ^= (static_cast<std::uint64_t>(counter.LowPart) << 32) ^
            static_cast<std::uint64_t>(counter.QuadPart);
    seed ^= reinterpret_cast<std::uintptr_t>(&seed);
    // As Windows' cookie: the top 16 bits zero, so that a string copy cannot forge it whole.
    seed &= 0x0000FFFFFFFFFFFFULL;
    __stack_chk_guard = seed != 0 && seed != 0x00002B992DDFA232 ? seed : seed + 1;
}

} // namespace
