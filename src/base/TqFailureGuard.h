// The one place where an exception becomes a result code. Every site that must not let an
// exception out runs its work through TqGuard and passes its own text and code rules; no other
// code of the library catches everything. Free of <windows.h>.
#pragma once

#include "base/TqFailure.h"

#include <exception>

// What the guard caught: the exception's text, null for an exception of no standard type, and
// the TqFailure itself when it was one.
struct TqCaught {
    const char* text = nullptr;
    const TqFailure* failure = nullptr;

    bool standard() const noexcept { return text != nullptr; }
    // The Windows code the thrower named, 0 when none.
    std::uint32_t windowsCode() const noexcept {
        return failure != nullptr ? failure->windowsCode() : 0;
    }
};

// Which exceptions a site answers for. A site that answers for standard exceptions only lets
// any other one go on to its caller's guard.
enum class TqCatching { kEveryException, kStandardOnly };

namespace tq_guard_detail {

// Writing the diagnostic may itself fail (no memory for the text): the code still goes out.
template <typename Result, typename Write, typename Code>
Result answer(const TqCaught& caught, Result soFar, Write& write, Code& code) noexcept {
    try {
        write(caught);
    } catch (...) {
    }
    return code(caught, soFar);
}

} // namespace tq_guard_detail

// Runs body(result), result starting at `initial`, and returns result. On an exception,
// write(caught) writes the site's text and code(caught, resultSoFar), which must not throw,
// gives the site's result.
template <typename Result, TqCatching catching = TqCatching::kEveryException, typename Body,
          typename Write, typename Code>
Result TqGuard(Body&& body, Write&& write, Code&& code,
               Result initial = Result{}) noexcept(catching == TqCatching::kEveryException) {
    Result result = initial;
    try {
        body(result);
        return result;
    } catch (const TqFailure& failure) {
        return tq_guard_detail::answer(TqCaught{failure.what(), &failure}, result, write, code);
    } catch (const std::exception& error) {
        return tq_guard_detail::answer(TqCaught{error.what(), nullptr}, result, write, code);
    } catch (...) {
        if constexpr (catching == TqCatching::kStandardOnly) {
            throw;
        }
        return tq_guard_detail::answer(TqCaught{}, result, write, code);
    }
}

// The most common code rule: the code set before the throw, else `fallback`.
template <typename Result> constexpr auto TqKeepOr(Result fallback) noexcept {
    return [fallback](const TqCaught&, Result soFar) noexcept {
        return soFar != Result{} ? soFar : fallback;
    };
}
