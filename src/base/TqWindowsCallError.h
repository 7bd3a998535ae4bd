// A failed Windows call inside a worker: the worker's message and the Windows code behind it,
// which the worker's handler turns into its own result code and diagnostic.
// Free of <windows.h>.
#pragma once

#include <cstdint>
#include <stdexcept>
#include <string>

class TqWindowsCallError : public std::runtime_error {
public:
    TqWindowsCallError(const std::string& message, std::uint32_t code)
        : std::runtime_error(message), code_(code) {}
    std::uint32_t code() const noexcept { return code_; }

private:
    std::uint32_t code_;
};
