#include "ZelLogger.h"

#include "base/TqFailureGuard.h"

#include <cstdio>
#include <iostream>
#include <stdexcept>

namespace {

ZelLogger gLogger;

const char* levelName(unsigned level) {
    static const char* const kNames[] = {"TRACE", "DEBUG", "INFO", "WARN", "ERROR", "FATAL"};
    const char* name = "";
    for (unsigned bit = 0; bit < 6; ++bit) {
        if ((level & (1u << bit)) != 0) {
            name = kNames[bit];
        }
    }
    return name;
}

bool appendToFile(HANDLE file, const std::string& text) {
    DWORD written = 0;
    return ::WriteFile(file, text.data(), static_cast<DWORD>(text.size()), &written, nullptr) &&
           written == text.size();
}

} // namespace

ZelLogger& TqLogger() noexcept {
    return gLogger;
}

std::string ZelLogger::fileName() const {
    const std::lock_guard<std::mutex> lock(mutex_);
    return fileName_;
}

void ZelLogger::SetFileName(const char* name) {
    if (name == nullptr) {
        throw TqFailure("Invalid file name");
    }
    const std::lock_guard<std::mutex> lock(mutex_);
    if (fileName_ == name) {
        return;
    }
    fileName_ = name;
    file_.reset();
    // Append mode: every write lands at the end, also when other processes write the file.
    // Others may read and write it while it is open, not delete or rename it. When the name is a
    // named pipe, its server may only identify this process, never act as it.
    file_.reset(::CreateFileA(
        name, FILE_APPEND_DATA, FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr, OPEN_ALWAYS,
        FILE_ATTRIBUTE_NORMAL | SECURITY_SQOS_PRESENT | SECURITY_IDENTIFICATION, nullptr));
    if (!file_) {
        std::cerr << "ZelLogger::SetFileName : Failed to open log file '" << name << "'";
        std::cerr.flush();
        fileName_.clear();
    }
}

void ZelLogger::Log(unsigned level, const std::string& tag, const std::string& function,
                    const std::string& message) noexcept {
    // A log line is never worth an exception in the caller's process.
    TqGuard<int>(
        [&](int&) {
            if (level < 1 || level > 127 || level == kLogEcho) {
                return;
            }
            const unsigned fileLevel = level & ~static_cast<unsigned>(kLogEcho);
            const std::lock_guard<std::mutex> lock(mutex_);
            if (fileName_.empty() || (mask_ & level) != fileLevel) {
                return;
            }
            if (!file_) {
                std::cerr << "ZelLogger::Log : Log file '" << fileName_ << "' is not opened."
                          << std::endl;
            }
            std::string line = "[" + getDateTime() + "][PID " + getCurrentThreadID() + "][" +
                               levelName(fileLevel) + "] " + tag + (tag.empty() ? "" : "::") +
                               function + " : " + message;
            if ((level & kLogEcho) != 0) {
                std::cout << line << std::endl;
            }
            if (fileLevel != 0 && fileLevel < 63 && file_) {
                // The line end a text-mode stream writes on Windows; the whole line is one write.
                line += "\r\n";
                appendToFile(file_.get(), line);
            }
        },
        [](const TqCaught&) {}, [](const TqCaught&, int) noexcept { return 0; });
}

std::string ZelLogger::getDateTime() {
    SYSTEMTIME now;
    ::GetLocalTime(&now);
    char buffer[64];
    std::snprintf(buffer, sizeof buffer, "%u-%u-%u %02u:%02u:%02u:%03u", now.wDay, now.wMonth,
                  now.wYear, now.wHour, now.wMinute, now.wSecond, now.wMilliseconds);
    return buffer;
}

std::string ZelLogger::getCurrentThreadID() {
    char buffer[16];
    std::snprintf(buffer, sizeof buffer, "0x%08X", static_cast<unsigned>(::GetCurrentThreadId()));
    return buffer;
}
