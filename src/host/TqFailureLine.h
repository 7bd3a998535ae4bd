// How the host utilities and the Identity Agent steps report a failure the guard caught: one
// line on standard error, "<function> : <text>". They throw a failed Windows call as a
// TqFailure that already names the result their caller gets.
#pragma once

#include "base/TqErrorText.h"
#include "base/TqFailureGuard.h"
#include "base/TqResultCodes.h"

#include <iostream>
#include <string>

// The failed Windows call behind what the guard caught, or null for any other exception. Only
// such a failure names a result code; its Windows code is 0 when the system named none.
inline const TqFailure* TqFailedCall(const TqCaught& caught) noexcept {
    return caught.failure != nullptr && caught.failure->code() != 0 ? caught.failure : nullptr;
}

// The code such a step answers with: a failed call's own, else the code set before a standard
// exception, else fallback (23, negated where the step's codes are negative).
inline int TqCodeOfFailure(const TqCaught& caught, int resultSoFar, int fallback) noexcept {
    if (const TqFailure* call = TqFailedCall(caught)) {
        return call->code();
    }
    return caught.standard() && resultSoFar != 0 ? resultSoFar : fallback;
}

// "<function> : <prefix><text><detail>", or "<function> : Unknown exception occurred." for an
// exception of no standard type.
inline void TqWriteFailureLine(const char* function, const TqCaught& caught,
                               const std::string& detail = std::string(), const char* prefix = "") {
    if (caught.standard()) {
        std::cerr << function << " : " << prefix << caught.text << detail << std::endl;
    } else {
        std::cerr << function << " : Unknown exception occurred." << std::endl;
    }
}

// What follows the text of a failed registry call: " Error Code <system text>". Nothing
// follows any other failure.
inline std::string TqRegistryCallDetail(const TqCaught& caught) {
    const TqFailure* call = TqFailedCall(caught);
    return call != nullptr ? " Error Code " + TqGetLastErrorAsString(call->windowsCode())
                           : std::string();
}
