// The linear matcher on any pattern and text: it never crashes, and wherever std::regex can be
// asked safely (short text, a pattern both accept) both give the same match.
#include "base/TqPattern.h"

#include <cstddef>
#include <cstdint>
#include <regex>
#include <stdexcept>
#include <string>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string input(reinterpret_cast<const char*>(data), size);
    const std::size_t separator = input.find('\0');
    const std::string pattern = input.substr(0, separator);
    const std::string text = separator == std::string::npos ? "" : input.substr(separator + 1);
    if (pattern.size() > 64) {
        return 0;
    }
    std::unique_ptr<TqPattern> linear;
    try {
        linear = std::make_unique<TqPattern>(pattern);
    } catch (const std::runtime_error&) {
        return 0;
    }
    TqPattern::Groups groups;
    const bool whole = linear->fullMatch(text, groups);
    const bool found = linear->search(text, 0, groups);
    if (whole && !found) {
        __builtin_trap(); // a whole match is also a match somewhere
    }
    linear->split(text);
    // std::regex backtracks: on a pattern like "(.+?)*" its time doubles with every character,
    // so it is asked about short text only.
    if (text.size() > 12) {
        return 0;
    }
    std::regex expression;
    try {
        expression.assign(pattern);
    } catch (const std::regex_error& error) {
        if (error.code() == std::regex_constants::error_complexity ||
            error.code() == std::regex_constants::error_space) {
            return 0; // std::regex's own size limit, not a matter of the language
        }
        __builtin_trap(); // accepted by one and refused by the other
    }
    std::smatch match;
    if (std::regex_match(text, match, expression) != whole ||
        std::regex_search(text, match, expression) != found) {
        __builtin_trap();
    }
    if (found && (static_cast<std::size_t>(match[0].first - text.begin()) != groups.begin[0] ||
                  static_cast<std::size_t>(match[0].second - text.begin()) != groups.end[0])) {
        __builtin_trap();
    }
    return 0;
}
