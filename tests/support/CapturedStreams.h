// What the code under test writes to standard output and standard error, captured for a test
// to compare. The capture starts with the object and ends with text(), or at the latest with
// the object, so a test that stops early (a failed ASSERT) never leaves a stream captured for
// the tests after it.
#pragma once

#include <string>

namespace zeltest {

class CapturedStream {
public:
    CapturedStream(const CapturedStream&) = delete;
    CapturedStream& operator=(const CapturedStream&) = delete;

    // Ends the capture if it still runs, and answers what was written while it ran.
    std::string text();
    // Ends the capture of output the test does not look at.
    void end();

protected:
    enum class Stream { kOutput, kError };
    explicit CapturedStream(Stream stream);
    ~CapturedStream();

private:
    Stream stream_;
    bool capturing_ = true;
    int failuresBefore_ = 0;
    std::string text_;
};

class CapturedStdout : public CapturedStream {
public:
    CapturedStdout() : CapturedStream(Stream::kOutput) {}
};

class CapturedStderr : public CapturedStream {
public:
    CapturedStderr() : CapturedStream(Stream::kError) {}
};

} // namespace zeltest
