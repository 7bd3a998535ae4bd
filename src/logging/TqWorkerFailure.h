// How a worker turns its own failures into a result code and a log line.
#pragma once

#include "logging/ZelLogger.h"
#include "base/TqResultCodes.h"

#include <exception>
#include <string>
#include <utility>

// Tag of the workers' log lines.
inline constexpr const char* kTqWorkerTag = "TqZelPlatformMethods";

// The text of the exception being handled, or nullptr for one that is not a std::exception.
// Only valid inside a catch handler.
inline const char* TqCurrentExceptionText() noexcept {
    try {
        throw;
    } catch (const std::exception& error) {
        return error.what();
    } catch (...) {
        return nullptr;
    }
}

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
    int result = tq::kSuccess;
    try {
        body(result);
    } catch (...) {
        const char* text = TqCurrentExceptionText();
        TqLogger().Log(kLogError, style.tag, function,
                       text != nullptr ? std::string(style.prefix) + text
                                       : std::string(style.unknownText));
        if (result == tq::kSuccess) {
            result = style.fallbackCode;
        }
    }
    return result;
}

template <typename Body> int TqRunWorker(const char* function, Body&& body) noexcept {
    return TqRunWorker(function, kTqCommonFailureStyle, std::forward<Body>(body));
}
