// zelplat's PIN buffer on its own: a line read from a pipe as a script would pipe it, the step
// that uses it, and nothing of the PIN left in the buffer after the step, however it ended.
#include "card/Pin.h"

#include "base/TqUniqueResource.h"

#include <gtest/gtest.h>

#include <cstring>
#include <new>
#include <stdexcept>
#include <string>

namespace {

// The read end of an anonymous pipe that already holds the text and whose writer is closed.
TqUniqueHandle pipeHolding(const std::string& text) {
    TqUniqueHandle reader;
    TqUniqueHandle writer;
    if (!::CreatePipe(reader.put(), writer.put(), nullptr, 0)) {
        ADD_FAILURE() << "CreatePipe failed: " << ::GetLastError();
        return reader;
    }
    DWORD written = 0;
    EXPECT_TRUE(
        ::WriteFile(writer.get(), text.data(), static_cast<DWORD>(text.size()), &written, nullptr));
    EXPECT_EQ(text.size(), written);
    return reader;
}

// The buffer's bytes that are not zero, as "offset=value" items; empty when all are zero.
std::string nonZeroBytes(const unsigned char* bytes) {
    std::string found;
    for (std::size_t i = 0; i < PinBuffer::kCapacity; ++i) {
        if (bytes[i] != 0) {
            found += std::to_string(i) + "=" + std::to_string(bytes[i]) + " ";
        }
    }
    return found;
}

PinRead readFromPipe(const std::string& text, PinBuffer& pin) {
    const TqUniqueHandle input = pipeHolding(text);
    return ReadPinLine(input.get(), pin);
}

TEST(ZelplatPin, ALineIsReadAndUsedAndThenNothingOfItIsLeft) {
    PinBuffer pin;
    ASSERT_EQ(PinRead::kRead, readFromPipe("123456\nnext line\n", pin));
    EXPECT_EQ(6u, pin.size());
    std::string seen;
    const int answer = UseThenWipe(pin, [&](const char* text) {
        seen = text;
        return 7;
    });
    EXPECT_EQ(7, answer);
    EXPECT_EQ("123456", seen);
    EXPECT_EQ("", nonZeroBytes(pin.bytes()));
    EXPECT_EQ(0u, pin.size());
}

TEST(ZelplatPin, AStepThatThrowsStillLeavesNothingOfThePin) {
    PinBuffer pin;
    ASSERT_EQ(PinRead::kRead, readFromPipe("9753124680\n", pin));
    EXPECT_THROW(UseThenWipe(pin,
                             [](const char* text) -> int {
                                 EXPECT_STREQ("9753124680", text);
                                 throw std::runtime_error("the card went away");
                             }),
                 std::runtime_error);
    EXPECT_EQ("", nonZeroBytes(pin.bytes()));
}

TEST(ZelplatPin, TheBufferIsWipedWhenItsOwnerGoes) {
    alignas(PinBuffer) unsigned char storage[sizeof(PinBuffer)];
    auto* pin = new (storage) PinBuffer;
    ASSERT_EQ(PinRead::kRead, readFromPipe("24681357\n", *pin));
    EXPECT_STREQ("24681357", pin->c_str());
    pin->~PinBuffer();
    std::string left;
    for (std::size_t i = 0; i < sizeof storage; ++i) {
        if (storage[i] != 0) {
            left += std::to_string(i) + "=" + std::to_string(storage[i]) + " ";
        }
    }
    EXPECT_EQ("", left);
}

TEST(ZelplatPin, CrLfAndAMissingLastLfEndTheLine) {
    PinBuffer pin;
    ASSERT_EQ(PinRead::kRead, readFromPipe("4321\r\n", pin));
    EXPECT_STREQ("4321", pin.c_str());
    EXPECT_EQ(4u, pin.size());
    ASSERT_EQ(PinRead::kRead, readFromPipe("8765", pin));
    EXPECT_STREQ("8765", pin.c_str());
    // A CR inside the line is part of the PIN; only the one before the LF goes.
    ASSERT_EQ(PinRead::kRead, readFromPipe("12\r34\r\n", pin));
    EXPECT_STREQ("12\r34", pin.c_str());
}

TEST(ZelplatPin, AnEmptyLineIsRefused) {
    for (const char* text : {"\n", "\r\n", ""}) {
        PinBuffer pin;
        EXPECT_EQ(PinRead::kEmpty, readFromPipe(text, pin)) << text;
        EXPECT_EQ(0u, pin.size());
    }
    EXPECT_STREQ("the PIN is empty", PinReadProblem(PinRead::kEmpty));
}

TEST(ZelplatPin, ALineTooLongForTheBufferIsRefusedAndWiped) {
    const std::string longest(PinBuffer::kCapacity - 1, '7');
    PinBuffer pin;
    ASSERT_EQ(PinRead::kRead, readFromPipe(longest + "\r\n", pin));
    EXPECT_EQ(longest, pin.c_str());
    for (const std::string& line :
         {longest + "7\n", longest + "7", longest + "\r7\n", std::string(1000, '3') + "\n"}) {
        EXPECT_EQ(PinRead::kTooLong, readFromPipe(line, pin)) << line.size();
        EXPECT_EQ("", nonZeroBytes(pin.bytes())) << line.size();
        EXPECT_EQ(0u, pin.size());
    }
    EXPECT_STREQ("the PIN is longer than 255 characters", PinReadProblem(PinRead::kTooLong));
}

TEST(ZelplatPin, ANulInTheLineIsRefusedAndWiped) {
    PinBuffer pin;
    EXPECT_EQ(PinRead::kNotText, readFromPipe(std::string("12\0"
                                                          "34\n",
                                                          6),
                                              pin));
    EXPECT_EQ("", nonZeroBytes(pin.bytes()));
}

TEST(ZelplatPin, NoInputIsUnreadable) {
    PinBuffer pin;
    EXPECT_EQ(PinRead::kUnreadable, ReadPinLine(nullptr, pin));
    EXPECT_EQ(PinRead::kUnreadable, ReadPinLine(INVALID_HANDLE_VALUE, pin));
    EXPECT_STREQ("the PIN could not be read from standard input",
                 PinReadProblem(PinRead::kUnreadable));
}

// A pipe is not a console: the console reader refuses it before changing any mode.
TEST(ZelplatPin, TheConsoleReaderRefusesWhatIsNotAConsole) {
    PinBuffer pin;
    const TqUniqueHandle input = pipeHolding("1234\n");
    EXPECT_EQ(PinRead::kUnreadable, ReadPinFromConsole(input.get(), pin));
    EXPECT_EQ("", nonZeroBytes(pin.bytes()));
}

} // namespace
