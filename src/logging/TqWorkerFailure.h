// How a worker turns its own failures into a result code and a log line.
#pragma once

#include "base/TqFailureGuard.h"
#include "base/TqResultCodes.h"
#include "logging/ZelLogger.h"

#include <exception>
#include <string>
#include <utility>

// Tag of the workers' log lines.
inline constexpr const char* kTqWorkerTag = "TqZelPlatformMethods";

// How a worker reports an exception it caught: the ERROR line's text before the exception's
// own, the text for an exception of no standard type, and the code when none was set yet.
struct TqFailureStyle {
    const char* prefix;
    const char* unknownText;
    int fallbackCode;
    const char* tag = kTqWorkerTag; // the log line's component
};

// "Exception occurred: <text>" / "Unexpected Error occurred", code 23.
inline constexpr TqFailureStyle kTqCommonFailureStyle{
    "Exception occurred: ", "Unexpected Error occurred", tq::kExceptionOccurred};

// Runs body(result). An exception becomes an ERROR line under the worker's name and, when the
// worker had not set a code yet, the style's code. Never lets an exception out.
template <typename Body>
int TqRunWorker(const char* function, const TqFailureStyle& style, Body&& body) noexcept {
    return TqGuard<int>(
        std::forward<Body>(body),
        [&](const TqCaught& caught) {
            TqLogger().Log(kLogError, style.tag, function,
                           caught.standard() ? std::string(style.prefix) + caught.text
                                             : std::string(style.unknownText));
        },
        TqKeepOr(style.fallbackCode));
}

template <typename Body> int TqRunWorker(const char* function, Body&& body) noexcept {
    return TqRunWorker(function, kTqCommonFailureStyle, std::forward<Body>(body));
}
