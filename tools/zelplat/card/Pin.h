// The card PIN as zelplat holds it: typed at the console without echo or read as one line from
// standard input, kept in one fixed buffer that is wiped however its user leaves, and never
// copied into a string or container whose memory would outlive it unwiped.
#pragma once

#include <windows.h>

#include <cstddef>
#include <utility>

class PinBuffer {
public:
    // The terminating NUL included: a PIN has at most kCapacity - 1 characters.
    static constexpr std::size_t kCapacity = 256;

    PinBuffer() noexcept = default;
    ~PinBuffer() { wipe(); }
    PinBuffer(const PinBuffer&) = delete;
    PinBuffer& operator=(const PinBuffer&) = delete;

    const char* c_str() const noexcept { return text_; }
    std::size_t size() const noexcept { return length_; }

    // Zeroes every byte, in a way the compiler cannot leave out as a dead store.
    void wipe() noexcept;

    // Every byte of the buffer, so that a test can see that nothing of the PIN is left.
    const unsigned char* bytes() const noexcept {
        return reinterpret_cast<const unsigned char*>(text_);
    }

private:
    friend class PinWriter;
    char text_[kCapacity] = {};
    std::size_t length_ = 0;
};

enum class PinRead {
    kRead,       // the buffer holds the PIN
    kEmpty,      // an empty line, or nothing before the end of the input
    kTooLong,    // more than PinBuffer::kCapacity - 1 characters
    kNotText,    // typed characters that the system's code page cannot carry
    kUnreadable, // the input could not be read (no standard input, a failed read)
};

// One line from input, read byte by byte up to LF (or the end of the input) straight into the
// buffer; a CR before the LF is dropped. Whatever the answer, the buffer holds the PIN only
// with kRead and is wiped otherwise.
PinRead ReadPinLine(HANDLE input, PinBuffer& pin) noexcept;

// One line typed at the console without echo (ReadConsoleW, then converted into the buffer).
// The console's mode is restored on every path, and also when Ctrl+C or Ctrl+Break ends the
// process while the typing is hidden.
PinRead ReadPinFromConsole(HANDLE console, PinBuffer& pin) noexcept;

// The words zelplat explains a refused PIN with, e.g. "the PIN is empty".
const char* PinReadProblem(PinRead read) noexcept;

// Runs use(pin.c_str()) and wipes the buffer afterwards, also when use throws.
template <typename Use> decltype(auto) UseThenWipe(PinBuffer& pin, Use&& use) {
    struct Wipe {
        PinBuffer& pin;
        ~Wipe() { pin.wipe(); }
    } const wipe{pin};
    return std::forward<Use>(use)(pin.c_str());
}
