// How a worker turns its own failures into a result code and a log line.
#pragma once

#include "logging/ZelLogger.h"
#include "platform/TqResultCodes.h"

#include <exception>
#include <string>

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

// Runs body(result). An exception becomes an ERROR line under the worker's name
// ("Exception occurred: <text>" or "Unexpected Error occurred") and, when the worker had not
// set a code yet, the code 23. Never lets an exception out.
template <typename Body> int TqRunWorker(const char* function, Body&& body) noexcept {
    int result = tq::kSuccess;
    try {
        body(result);
    } catch (...) {
        const char* text = TqCurrentExceptionText();
        TqLogger().Log(kLogError, kTqWorkerTag, function,
                       text != nullptr ? std::string("Exception occurred: ") + text
                                       : std::string("Unexpected Error occurred"));
        if (result == tq::kSuccess) {
            result = tq::kExceptionOccurred;
        }
    }
    return result;
}
