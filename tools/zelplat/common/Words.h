// zelplat takes every command, sub-command, option and word in any letter case.
#pragma once

#include <cctype>
#include <cstring>
#include <string>
#include <vector>

using Arguments = std::vector<std::string>;

// Whether typed is word, in any letter case (ASCII: every word zelplat knows is).
inline bool SameWord(const std::string& typed, const char* word) {
    const std::size_t length = std::strlen(word);
    if (typed.size() != length) {
        return false;
    }
    for (std::size_t at = 0; at < length; ++at) {
        if (std::toupper(static_cast<unsigned char>(typed[at])) !=
            std::toupper(static_cast<unsigned char>(word[at]))) {
            return false;
        }
    }
    return true;
}

// The words that ask for help wherever they stand: the general usage before a command, that
// command's own after it.
inline bool IsHelpWord(const std::string& typed) {
    return SameWord(typed, "--help") || SameWord(typed, "-h") || typed == "-?" || typed == "/?";
}
