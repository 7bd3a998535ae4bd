#include "TqStringUtil.h"

#include "base/TqFailureGuard.h"
#include "base/TqPattern.h"
#include "base/TqResultCodes.h"

#include <charconv>
#include <iostream>
#include <algorithm>
#include <cctype>
#include <stdexcept>

namespace {

// The wording callers have always seen for an oversized number, whatever the runtime's own
// std::stoi would say.
std::int32_t toInt32(const std::string& digits) {
    std::int32_t value = 0;
    const auto [end, error] = std::from_chars(digits.data(), digits.data() + digits.size(), value);
    if (error == std::errc::result_out_of_range) {
        throw TqFailure("stoi argument out of range");
    }
    if (error != std::errc() || end != digits.data() + digits.size()) {
        throw TqFailure("stoi");
    }
    return value;
}

// The helpers' one diagnostic: "<function> : Exception Occurred - <text>".
auto writeExceptionLine(std::ostream& stream, const char* function) {
    return [&stream, function](const TqCaught& caught) {
        stream << function << " : Exception Occurred - "
               << (caught.standard() ? caught.text : "unknown exception") << std::endl;
    };
}

int exceptionOccurred(const TqCaught&, int) noexcept {
    return tq::kExceptionOccurred;
}

} // namespace

int TqSplitString(const std::string& text, const std::string& delimiterPattern,
                  std::vector<std::string>& pieces) {
    // Unlike the other helpers, the split has always reported on standard output.
    return TqGuard<int>(
        [&](int&) {
            pieces.clear();
            pieces = TqPattern(delimiterPattern).split(text);
        },
        writeExceptionLine(std::cout, "TqSplitString"), exceptionOccurred);
}

void TqTrimWhiteSpace(std::string& s) {
    TqGuard<int>(
        [&](int&) {
            if (s.empty()) {
                return;
            }
            static const std::string trailing(" \0", 2);
            const std::size_t first = s.find_first_not_of(' ');
            const std::size_t last = s.find_last_not_of(trailing);
            if (first == std::string::npos || last == std::string::npos || last < first) {
                s.clear();
                return;
            }
            s = s.substr(first, last - first + 1);
        },
        writeExceptionLine(std::cerr, "TqTrimWhiteSpace"), exceptionOccurred);
}

void TqTrimReturnChars(std::string& s) {
    TqGuard<int>(
        [&](int&) {
            std::size_t first = 0;
            while (first < s.size() && s[first] == '\n') {
                ++first;
            }
            std::size_t end = s.size();
            while (end > first && s[end - 1] == '\n') {
                --end;
            }
            s = s.substr(first, end - first);
        },
        writeExceptionLine(std::cerr, "TqTrimReturnChars"), exceptionOccurred);
}

int TqParseVersionNoString(std::string& text, std::vector<std::int32_t>& numbers) {
    return TqGuard<int>(
        [&](int&) {
            // Each run of decimal digits in turn, one pass over the text.
            const auto isDigit = [](char c) { return std::isdigit(static_cast<unsigned char>(c)); };
            std::size_t position = 0;
            while (true) {
                const auto run =
                    std::find_if(text.begin() + static_cast<long>(position), text.end(), isDigit);
                if (run == text.end()) {
                    break;
                }
                const auto runEnd = std::find_if_not(run, text.end(), isDigit);
                position = static_cast<std::size_t>(runEnd - text.begin());
                numbers.push_back(toInt32(std::string(run, runEnd)));
            }
            text.clear();
        },
        writeExceptionLine(std::cerr, "TqParseVersionNoString"),
        [&](const TqCaught& caught, int soFar) noexcept {
            // The text is used up whether or not every number in it fitted.
            text.clear();
            return exceptionOccurred(caught, soFar);
        });
}
