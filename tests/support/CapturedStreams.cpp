#include "support/CapturedStreams.h"

#include <gtest/gtest.h>

#include <cstdio>

namespace zeltest {

namespace {

// The failures the running test has reported so far (none outside a test).
int failuresSoFar() {
    const ::testing::TestInfo* test = ::testing::UnitTest::GetInstance()->current_test_info();
    if (test == nullptr) {
        return 0;
    }
    const ::testing::TestResult* result = test->result();
    int failures = 0;
    for (int index = 0; index < result->total_part_count(); ++index) {
        failures += result->GetTestPartResult(index).failed() ? 1 : 0;
    }
    return failures;
}

} // namespace

CapturedStream::CapturedStream(Stream stream) : stream_(stream), failuresBefore_(failuresSoFar()) {
    if (stream_ == Stream::kOutput) {
        ::testing::internal::CaptureStdout();
    } else {
        ::testing::internal::CaptureStderr();
    }
}

CapturedStream::~CapturedStream() {
    end();
}

std::string CapturedStream::text() {
    end();
    return text_;
}

void CapturedStream::end() {
    if (!capturing_) {
        return;
    }
    capturing_ = false;
    text_ = stream_ == Stream::kOutput ? ::testing::internal::GetCapturedStdout()
                                       : ::testing::internal::GetCapturedStderr();
    // GoogleTest prints a failure to standard output the moment it is reported: one reported
    // while the capture ran is in the captured text. Hand the text on so it is seen.
    if (failuresSoFar() != failuresBefore_) {
        std::FILE* target = stream_ == Stream::kOutput ? stdout : stderr;
        std::fwrite(text_.data(), 1, text_.size(), target);
        std::fflush(target);
    }
}

} // namespace zeltest
