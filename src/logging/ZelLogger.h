// The library's one process-wide log writer.
#pragma once

#include "base/TqUniqueResource.h"

#include <cstdint>
#include <mutex>
#include <string>

enum ZelLogLevel : unsigned {
    kLogTrace = 1,
    kLogDebug = 2,
    kLogInfo = 4,
    kLogWarn = 8,
    kLogError = 16,
    kLogFatal = 32,
    kLogEcho = 64, // also writes the line to standard output
};

class ZelLogger {
public:
    static constexpr std::uint32_t kDefaultMask = kLogInfo | kLogWarn | kLogError | kLogFatal;

    // Points the logger at a file, opened for appending and shared with other processes.
    // Throws std::runtime_error("Invalid file name") for a null name.
    void SetFileName(const char* name);

    // Writes one line; never throws.
    void Log(unsigned level, const std::string& tag, const std::string& function,
             const std::string& message) noexcept;

    // "15-11-2026 19:43:21:007": local time, day first.
    static std::string getDateTime();
    // "0x0000012C": the calling thread's id.
    static std::string getCurrentThreadID();

    std::string fileName() const;

private:
    // One lock for the file name, the handle and each write: callers on several threads share
    // the one logger, and a line never lands in a file that was no longer named.
    mutable std::mutex mutex_;
    std::uint32_t mask_ = kDefaultMask;
    std::string fileName_;
    TqUniqueFile file_;
};

// The single instance every operation and worker writes through.
ZelLogger& TqLogger() noexcept;
