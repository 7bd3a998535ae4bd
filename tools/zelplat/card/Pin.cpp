#include "card/Pin.h"

#include <atomic>

void PinBuffer::wipe() noexcept {
    ::SecureZeroMemory(text_, sizeof text_);
    length_ = 0;
}

// The one way characters get into a PinBuffer: appended in place, never past its last byte
// but one, so that the text stays terminated.
class PinWriter {
public:
    explicit PinWriter(PinBuffer& pin) noexcept : pin_(pin) { pin_.wipe(); }

    bool append(char character) noexcept {
        if (pin_.length_ + 1 >= PinBuffer::kCapacity) {
            return false;
        }
        pin_.text_[pin_.length_++] = character;
        return true;
    }

    char* text() noexcept { return pin_.text_; }
    void setLength(std::size_t length) noexcept { pin_.length_ = length; }

    // The answer for the buffer: anything but kRead leaves nothing of the PIN in it.
    PinRead finish(PinRead read) noexcept {
        if (read == PinRead::kRead && pin_.length_ == 0) {
            read = PinRead::kEmpty;
        }
        if (read != PinRead::kRead) {
            pin_.wipe();
        }
        return read;
    }

private:
    PinBuffer& pin_;
};

namespace {

// ReadFile's end of the input: a pipe whose writer has gone, or a read of nothing.
bool endOfInput(BOOL read, DWORD count) noexcept {
    return read ? count == 0 : ::GetLastError() == ERROR_BROKEN_PIPE;
}

PinRead readLine(HANDLE input, PinWriter& writer, char& byte) noexcept {
    if (input == nullptr || input == INVALID_HANDLE_VALUE) {
        return PinRead::kUnreadable;
    }
    // A CR is kept back until the next byte shows whether it ends the line.
    bool heldCr = false;
    for (;;) {
        DWORD count = 0;
        const BOOL read = ::ReadFile(input, &byte, 1, &count, nullptr);
        if (endOfInput(read, count)) {
            return PinRead::kRead;
        }
        if (!read) {
            return PinRead::kUnreadable;
        }
        if (byte == '\n') {
            return PinRead::kRead;
        }
        if (byte == '\0') {
            // The library would take the PIN to end here.
            return PinRead::kNotText;
        }
        if (heldCr && !writer.append('\r')) {
            return PinRead::kTooLong;
        }
        heldCr = byte == '\r';
        if (!heldCr && !writer.append(byte)) {
            return PinRead::kTooLong;
        }
    }
}

// The console whose echo is off and the mode to give it back, for the Ctrl+C handler, which
// runs on a thread of its own.
std::atomic<HANDLE> g_hiddenConsole{nullptr};
std::atomic<DWORD> g_hiddenConsoleMode{0};

BOOL WINAPI restoreEchoOnBreak(DWORD) noexcept {
    const HANDLE console = g_hiddenConsole.load();
    if (console != nullptr) {
        ::SetConsoleMode(console, g_hiddenConsoleMode.load());
    }
    // The next handler, the default one, still ends the process.
    return FALSE;
}

// Echo off for the life of the object; the mode it found is restored on every way out.
class HiddenTyping {
public:
    HiddenTyping(HANDLE console, DWORD mode) noexcept : console_(console), mode_(mode) {
        g_hiddenConsoleMode.store(mode);
        g_hiddenConsole.store(console);
        handlerSet_ = ::SetConsoleCtrlHandler(restoreEchoOnBreak, TRUE) != 0;
        ::SetConsoleMode(console, (mode & ~static_cast<DWORD>(ENABLE_ECHO_INPUT)) |
                                      ENABLE_LINE_INPUT | ENABLE_PROCESSED_INPUT);
    }
    ~HiddenTyping() {
        ::SetConsoleMode(console_, mode_);
        g_hiddenConsole.store(nullptr);
        if (handlerSet_) {
            ::SetConsoleCtrlHandler(restoreEchoOnBreak, FALSE);
        }
    }
    HiddenTyping(const HiddenTyping&) = delete;
    HiddenTyping& operator=(const HiddenTyping&) = delete;

private:
    HANDLE console_;
    DWORD mode_;
    bool handlerSet_ = false;
};

// The typed characters, up to the end of the line, wiped by the owner after use.
struct TypedLine {
    wchar_t characters[PinBuffer::kCapacity + 2] = {};
    DWORD length = 0;
    ~TypedLine() { ::SecureZeroMemory(characters, sizeof characters); }
};

// Reads one typed line; a line too long for the buffer is read to its end and dropped.
PinRead readTypedLine(HANDLE console, TypedLine& line) noexcept {
    const DWORD room = static_cast<DWORD>(sizeof line.characters / sizeof line.characters[0]);
    bool tooLong = false;
    for (;;) {
        DWORD count = 0;
        if (!::ReadConsoleW(console, line.characters, room, &count, nullptr)) {
            return PinRead::kUnreadable;
        }
        line.length = count;
        if (count == 0) {
            return tooLong ? PinRead::kTooLong : PinRead::kRead;
        }
        if (line.characters[count - 1] == L'\n') {
            line.length = count - 1;
            if (line.length > 0 && line.characters[line.length - 1] == L'\r') {
                --line.length;
            }
            return tooLong ? PinRead::kTooLong : PinRead::kRead;
        }
        tooLong = true;
        ::SecureZeroMemory(line.characters, sizeof line.characters);
    }
}

PinRead convertTyped(const TypedLine& line, PinWriter& writer) noexcept {
    if (line.length == 0) {
        return PinRead::kEmpty;
    }
    for (DWORD i = 0; i < line.length; ++i) {
        if (line.characters[i] == L'\0') {
            return PinRead::kNotText;
        }
    }
    // The code page a narrow command line had, which is how the PIN reached the card before.
    BOOL defaulted = FALSE;
    const int bytes = ::WideCharToMultiByte(
        CP_ACP, WC_NO_BEST_FIT_CHARS, line.characters, static_cast<int>(line.length), writer.text(),
        static_cast<int>(PinBuffer::kCapacity - 1), nullptr, &defaulted);
    if (bytes <= 0) {
        return ::GetLastError() == ERROR_INSUFFICIENT_BUFFER ? PinRead::kTooLong
                                                             : PinRead::kNotText;
    }
    writer.setLength(static_cast<std::size_t>(bytes));
    return defaulted ? PinRead::kNotText : PinRead::kRead;
}

} // namespace

PinRead ReadPinLine(HANDLE input, PinBuffer& pin) noexcept {
    PinWriter writer(pin);
    char byte = 0;
    const PinRead read = readLine(input, writer, byte);
    ::SecureZeroMemory(&byte, sizeof byte);
    return writer.finish(read);
}

PinRead ReadPinFromConsole(HANDLE console, PinBuffer& pin) noexcept {
    PinWriter writer(pin);
    DWORD mode = 0;
    if (!::GetConsoleMode(console, &mode)) {
        return writer.finish(PinRead::kUnreadable);
    }
    TypedLine line;
    PinRead read = PinRead::kUnreadable;
    {
        const HiddenTyping hidden(console, mode);
        read = readTypedLine(console, line);
    }
    if (read == PinRead::kRead) {
        read = convertTyped(line, writer);
    }
    return writer.finish(read);
}

const char* PinReadProblem(PinRead read) noexcept {
    switch (read) {
    case PinRead::kRead:
        return "";
    case PinRead::kEmpty:
        return "the PIN is empty";
    case PinRead::kTooLong:
        return "the PIN is longer than 255 characters";
    case PinRead::kNotText:
        return "the PIN holds a character that cannot be passed on as text";
    case PinRead::kUnreadable:
        return "the PIN could not be read from standard input";
    }
    return "the PIN could not be read";
}
