// A regular-expression matcher for text from the workstation: registry values, process names
// and files can be megabytes long, so it never backtracks and never recurses while matching.
// Patterns use the ECMAScript syntax and give the same matches as std::regex with its default
// grammar, for the constructs listed below; time is linear in the text (times the pattern's
// size) and the stack is bounded. Free of <windows.h>.
//
// Supported: literal characters; the escapes \d \D \s \S \w \W \t \n \r \f \v and an escaped
// punctuation character; "." (anything but a line feed or carriage return); bracket classes
// with ranges, negation and those escapes; capturing "( )" and non-capturing "(?: )" groups;
// "|"; the quantifiers * + ? {n} {n,} {n,m}, each also lazy with a trailing "?", on anything
// that cannot match the empty text; ^ and $ at the ends of the text. Anything else
// (back-references, look-arounds, word boundaries) is refused when the pattern is compiled.
#pragma once

#include <bitset>
#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

class TqPattern {
public:
    static constexpr std::size_t npos = static_cast<std::size_t>(-1);

    // Where each group matched: [begin, end) offsets into the text, npos for a group that took
    // no part. Group 0 is the whole match.
    struct Groups {
        std::vector<std::size_t> begin;
        std::vector<std::size_t> end;
        std::size_t size() const noexcept { return begin.size(); }
        bool matched(std::size_t group) const noexcept { return begin[group] != npos; }
        std::string_view text(std::string_view subject, std::size_t group) const {
            return matched(group) ? subject.substr(begin[group], end[group] - begin[group])
                                  : std::string_view();
        }
    };

    // Throws std::runtime_error for a malformed pattern (with std::regex's wording where it has
    // one) or a construct outside the supported set.
    explicit TqPattern(std::string_view pattern);

    // The number of groups, the whole match included.
    std::size_t groupCount() const noexcept { return groupCount_; }

    // Whether the whole text matches (std::regex_match).
    bool fullMatch(std::string_view text, Groups& groups) const;

    // The leftmost match at or after `from` (std::regex_search). notEmpty refuses an empty
    // match, anchoredAtFrom refuses one that does not begin at `from`.
    bool search(std::string_view text, std::size_t from, Groups& groups, bool notEmpty = false,
                bool anchoredAtFrom = false) const;

    // The pieces between matches, as std::sregex_token_iterator with sub-match -1 yields them.
    std::vector<std::string> split(std::string_view text) const;

    enum class Op : unsigned char {
        kByte,
        kAny,
        kClass,
        kSplit,
        kJump,
        kSave,
        kBegin,
        kEnd,
        kMatch
    };
    struct Instruction {
        Op op;
        unsigned char byte = 0;
        std::size_t x = 0; // kSplit: preferred branch; kJump: target; kSave: slot
        std::size_t y = 0; // kSplit: other branch; kClass: class index
    };

private:
    bool run(std::string_view text, std::size_t from, bool wholeText, bool notEmpty,
             bool anchoredAtFrom, Groups& groups) const;

    std::vector<Instruction> program_;
    std::vector<std::bitset<256>> classes_;
    std::size_t groupCount_ = 1;
    std::size_t slotCount_ = 2; // two per group
};
