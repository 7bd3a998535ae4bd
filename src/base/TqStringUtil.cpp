#include "TqStringUtil.h"

#include "base/TqResultCodes.h"

#include <charconv>
#include <exception>
#include <iostream>
#include <regex>
#include <stdexcept>

namespace {

// The wording callers have always seen for an oversized number, whatever the runtime's own
// std::stoi would say.
std::int32_t toInt32(const std::string& digits) {
    std::int32_t value = 0;
    const auto [end, error] = std::from_chars(digits.data(), digits.data() + digits.size(), value);
    if (error == std::errc::result_out_of_range) {
        throw std::out_of_range("stoi argument out of range");
    }
    if (error != std::errc() || end != digits.data() + digits.size()) {
        throw std::invalid_argument("stoi");
    }
    return value;
}

void reportException(std::ostream& stream, const char* function) {
    try {
        throw;
    } catch (const std::exception& error) {
        stream << function << " : Exception Occurred - " << error.what() << std::endl;
    } catch (...) {
        stream << function << " : Exception Occurred - unknown exception" << std::endl;
    }
}

} // namespace

int TqSplitString(const std::string& text, const std::string& delimiterPattern,
                  std::vector<std::string>& pieces) {
    try {
        pieces.clear();
        const std::regex delimiter(delimiterPattern);
        const std::sregex_token_iterator end;
        for (std::sregex_token_iterator piece(text.begin(), text.end(), delimiter, -1);
             piece != end; ++piece) {
            pieces.push_back(piece->str());
        }
        return tq::kSuccess;
    } catch (...) {
        // Unlike the other helpers, the split has always reported on standard output.
        reportException(std::cout, "TqSplitString");
        return tq::kExceptionOccurred;
    }
}

void TqTrimWhiteSpace(std::string& s) {
    try {
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
    } catch (...) {
        reportException(std::cerr, "TqTrimWhiteSpace");
    }
}

void TqTrimReturnChars(std::string& s) {
    try {
        std::size_t first = 0;
        while (first < s.size() && s[first] == '\n') {
            ++first;
        }
        std::size_t end = s.size();
        while (end > first && s[end - 1] == '\n') {
            --end;
        }
        s = s.substr(first, end - first);
    } catch (...) {
        reportException(std::cerr, "TqTrimReturnChars");
    }
}

int TqParseVersionNoString(std::string& text, std::vector<std::int32_t>& numbers) {
    try {
        static const std::regex digitRun("\\d+");
        std::smatch match;
        while (std::regex_search(text, match, digitRun)) {
            numbers.push_back(toInt32(match.str()));
            text = match.suffix().str();
        }
        text.clear();
        return tq::kSuccess;
    } catch (...) {
        text.clear();
        reportException(std::cerr, "TqParseVersionNoString");
        return tq::kExceptionOccurred;
    }
}
