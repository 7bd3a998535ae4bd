// The one exception type of the library: the site's text, the result code the site answers
// with (0: none set by the thrower) and the Windows code behind it (0: none known).
// Free of <windows.h>.
#pragma once

#include <cstdint>
#include <stdexcept>
#include <string>

class TqFailure : public std::runtime_error {
public:
    explicit TqFailure(const std::string& text, int code = 0, std::uint32_t windowsCode = 0)
        : std::runtime_error(text), code_(code), windowsCode_(windowsCode) {}

    int code() const noexcept { return code_; }
    std::uint32_t windowsCode() const noexcept { return windowsCode_; }

private:
    int code_;
    std::uint32_t windowsCode_;
};
