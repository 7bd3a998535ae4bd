// The linear matcher against std::regex: for the library's own patterns over generated names
// and versions, and for generated patterns over generated text, both must give the same
// matches, groups and pieces. The texts stay short, where std::regex is safe.
#include "base/TqPattern.h"

#include <gtest/gtest.h>

#include <random>
#include <regex>
#include <string>
#include <vector>

namespace {

// The patterns the library matches workstation text with.
const char* const kLibraryPatterns[] = {
    R"(^(Classic Client)\s([0-9]{1,}\.[0-9]{1,})\sPatch\s([0-9]{1,})\s[A-Za-z\s]{0,}(64|32)\s[b|B]it[s]{0,1}$)",
    R"(^(AWP)\s([0-9]{1,}\.[0-9]{1,}\.[0-9]{1,})\s\((64|32)\-[b|B]it\)$)",
    R"(^(IDEMIA)\s(.*)\((64|32)\-[b|B]it\)$)",
    R"x("(.*?)"\s{0,}\:\s{0,}"(.*?)")x",
    R"(\.)",
    R"(\d+)",
};

// Pieces of the names and records the patterns are meant for, and of near misses.
const char* const kFragments[] = {
    "Classic Client",
    "AWP",
    "IDEMIA",
    " ",
    " ",
    "\t",
    "\n",
    "\r",
    "\v",
    "7",
    "3",
    "64",
    "32",
    "5",
    "12",
    ".",
    "..",
    "Patch",
    "Standard",
    "-",
    "b",
    "B",
    "|",
    "it",
    "its",
    "s",
    "(",
    ")",
    "Bit",
    "bit",
    "x",
    "\"",
    ":",
    ",",
    "\xe9",
    "\xa0",
    "Minidriver",
    "\"Name\"",
    "{",
    "}",
};

std::vector<std::string> regexPieces(const std::string& text, const std::regex& expression) {
    std::vector<std::string> pieces;
    for (std::sregex_token_iterator piece(text.begin(), text.end(), expression, -1), end;
         piece != end; ++piece) {
        pieces.push_back(piece->str());
    }
    return pieces;
}

// Compares every answer of both matchers for one text; returns false after the first
// difference, which it reports.
bool sameAnswers(const std::string& pattern, const std::string& text) {
    const std::regex expression(pattern);
    const TqPattern linear(pattern);
    std::smatch match;
    TqPattern::Groups groups;
    const auto sameGroups = [&](const char* how) {
        if (match.size() != groups.size()) {
            ADD_FAILURE() << how << " group count differs for /" << pattern << "/ on \"" << text
                          << "\"";
            return false;
        }
        for (std::size_t i = 0; i < match.size(); ++i) {
            const bool matched = match[i].matched;
            const bool same =
                matched == groups.matched(i) &&
                (!matched ||
                 (static_cast<std::size_t>(match[i].first - text.begin()) == groups.begin[i] &&
                  static_cast<std::size_t>(match[i].second - text.begin()) == groups.end[i]));
            if (!same) {
                ADD_FAILURE() << how << " group " << i << " differs for /" << pattern << "/ on \""
                              << text << "\"";
                return false;
            }
        }
        return true;
    };
    const bool whole = std::regex_match(text, match, expression);
    if (whole != linear.fullMatch(text, groups)) {
        ADD_FAILURE() << "full match differs for /" << pattern << "/ on \"" << text << "\"";
        return false;
    }
    if (whole && !sameGroups("full match")) {
        return false;
    }
    const bool found = std::regex_search(text, match, expression);
    if (found != linear.search(text, 0, groups)) {
        ADD_FAILURE() << "search differs for /" << pattern << "/ on \"" << text << "\"";
        return false;
    }
    if (found && !sameGroups("search")) {
        return false;
    }
    if (regexPieces(text, expression) != linear.split(text)) {
        ADD_FAILURE() << "split differs for /" << pattern << "/ on \"" << text << "\"";
        return false;
    }
    return true;
}

std::string generatedName(std::mt19937& random) {
    std::string text;
    const std::size_t count = random() % 14;
    for (std::size_t i = 0; i < count; ++i) {
        text += kFragments[random() % std::size(kFragments)];
    }
    return text;
}

TEST(PatternDifferential, LibraryPatternsOnTheirTestVectors) {
    const char* const vectors[] = {
        "Classic Client 7.3 Patch 1 64 bits",
        "Classic Client 6.2 Patch 3 Standard 32 Bit",
        "classic client 7.3 Patch 1 64 bits",
        "Classic Client 7.3 Patch 1 64 |its",
        "AWP 5.2.1 (64-bit)",
        "AWP 5.2 (64-bit)",
        "AWP 5.2.1\t(32-Bit)",
        "IDEMIA Minidriver for PIV/CIV (32-Bit)",
        "IDEMIA Minidriver for PIV/CIV",
        "IDEMIA Minidriver (64-bit)(32-Bit)",
        "IDEMIA a\nb(64-bit)",
        "\t\"GemaltoMiddleware\": {",
        "\t\t\"Name\": \"AWP 5.2.1 (64-bit)\",",
        "\"a\" : \"b\" \"c\":\"d\"",
        "7.3.1.23",
        "1.2.3.4.5",
        "",
        "v5 (build 0042)",
    };
    for (const char* pattern : kLibraryPatterns) {
        for (const char* text : vectors) {
            ASSERT_TRUE(sameAnswers(pattern, text));
        }
    }
}

TEST(PatternDifferential, LibraryPatternsOnGeneratedNames) {
    std::mt19937 random(20261123);
    for (const char* pattern : kLibraryPatterns) {
        for (int i = 0; i < 2000; ++i) {
            ASSERT_TRUE(sameAnswers(pattern, generatedName(random)));
        }
    }
}

// A small grammar of patterns inside the supported set.
std::string generatedPattern(std::mt19937& random, int depth) {
    static const char* const atoms[] = {"a", "b", ".", "[ab]", "[^a]", "\\d", "\\s", "\\.", "1"};
    static const char* const quantifiers[] = {"",      "",    "",   "*",  "+",  "?",
                                              "{1,2}", "{2}", "*?", "+?", "??", "{0,2}?"};
    std::string pattern;
    const std::size_t length = 1 + random() % 3;
    for (std::size_t i = 0; i < length; ++i) {
        std::string atom;
        const unsigned choice = random() % 10;
        if (depth < 2 && choice == 0) {
            atom = "(" + generatedPattern(random, depth + 1) + ")";
        } else if (depth < 2 && choice == 1) {
            atom = "(?:" + generatedPattern(random, depth + 1) + ")";
        } else if (depth < 2 && choice == 2) {
            atom = "(" + generatedPattern(random, depth + 1) + "|" +
                   generatedPattern(random, depth + 1) + ")";
        } else {
            atom = atoms[random() % std::size(atoms)];
        }
        pattern += atom + quantifiers[random() % std::size(quantifiers)];
    }
    return pattern;
}

TEST(PatternDifferential, GeneratedPatternsOnGeneratedText) {
    std::mt19937 random(4242);
    const char alphabet[] = "ab1 .\n";
    int compared = 0;
    for (int i = 0; i < 1500; ++i) {
        const std::string pattern = generatedPattern(random, 0);
        try {
            TqPattern probe(pattern);
        } catch (const std::runtime_error&) {
            continue; // outside the supported set: the matcher refuses it
        }
        for (int j = 0; j < 20; ++j) {
            std::string text;
            const std::size_t length = random() % 9;
            for (std::size_t k = 0; k < length; ++k) {
                text += alphabet[random() % (sizeof alphabet - 1)];
            }
            ASSERT_TRUE(sameAnswers(pattern, text));
            ++compared;
        }
    }
    EXPECT_GT(compared, 10000);
}

} // namespace
