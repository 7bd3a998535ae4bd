// Failures inside a shared expectation helper, named with the test line that called it.
//
// A helper takes the call site as its last parameter, defaulted, so callers leave it out:
//     void ExpectThing(const Thing& thing, zeltest::CallSite caller = zeltest::CallSite::current())
//     {
//         const zeltest::CallerTrace trace(caller);
//         EXPECT_...;
//     }
// Every failure reported while the trace lives carries the caller's file and line as well.
// Helpers call helpers: only the outermost trace counts, since its caller is the test's line.
#pragma once

#include <gtest/gtest.h>

#include <optional>
#include <source_location>

namespace zeltest {

using CallSite = std::source_location;

class CallerTrace {
public:
    explicit CallerTrace(const CallSite& caller) {
        if (active_++ == 0) {
            trace_.emplace(caller.file_name(), static_cast<int>(caller.line()), "called from here");
        }
    }
    ~CallerTrace() { --active_; }
    CallerTrace(const CallerTrace&) = delete;
    CallerTrace& operator=(const CallerTrace&) = delete;

private:
    static inline thread_local int active_ = 0;
    std::optional<::testing::ScopedTrace> trace_;
};

} // namespace zeltest
