// The linear matcher on its own: what it accepts, how it refuses, and that long text costs
// neither stack nor more than linear time.
#include "base/TqPattern.h"

#include <gtest/gtest.h>

#include <regex>
#include <stdexcept>
#include <string>

namespace {

std::string refusal(const char* pattern) {
    try {
        TqPattern compiled(pattern);
    } catch (const std::runtime_error& error) {
        return error.what();
    }
    return "accepted";
}

std::string regexRefusal(const char* pattern) {
    try {
        std::regex compiled(pattern);
    } catch (const std::regex_error& error) {
        return error.what();
    }
    return "accepted";
}

TEST(Pattern, MalformedPatternsAreRefusedWithStdRegexWording) {
    for (const char* pattern : {"(", ")", "a)", "(a", "[", "[a", "[a-", "a{", "a{2", "a{2,1}",
                                "a{,3}", "\\", "*", "+a", "a|*", "(?", "{", "[z-a]", "(?:a"}) {
        EXPECT_EQ(regexRefusal(pattern), refusal(pattern)) << pattern;
    }
}

TEST(Pattern, ConstructsOutsideTheSupportedSetAreRefusedByName) {
    EXPECT_EQ("Unsupported regular expression construct: a look-around", refusal("(?=a)"));
    EXPECT_EQ("Unsupported regular expression construct: the escape \\1", refusal("(a)\\1"));
    EXPECT_EQ("Unsupported regular expression construct: the escape \\b", refusal("\\bword"));
    EXPECT_EQ("Unsupported regular expression construct: a quantifier on something that can "
              "match nothing",
              refusal("(a*)*"));
    EXPECT_EQ("Unsupported regular expression construct: a quantifier after a quantifier",
              refusal("a**"));
    EXPECT_EQ("Unsupported regular expression construct: an empty bracket class", refusal("[]"));
    EXPECT_EQ("Unsupported regular expression construct: a repetition count over 1000",
              refusal("a{1001}"));
}

TEST(Pattern, GroupsAreReportedByOffset) {
    const TqPattern pattern(R"(^(AWP)\s([0-9]{1,}\.[0-9]{1,}\.[0-9]{1,})\s\((64|32)\-[b|B]it\)$)");
    ASSERT_EQ(4u, pattern.groupCount());
    TqPattern::Groups groups;
    const std::string name = "AWP 5.2.1 (64-bit)";
    ASSERT_TRUE(pattern.fullMatch(name, groups));
    EXPECT_EQ("AWP", groups.text(name, 1));
    EXPECT_EQ("5.2.1", groups.text(name, 2));
    EXPECT_EQ("64", groups.text(name, 3));
    EXPECT_FALSE(pattern.fullMatch("AWP 5.2 (64-bit)", groups));
}

TEST(Pattern, AGroupThatTookNoPartIsUnmatched) {
    const TqPattern pattern("(a)|(b)");
    TqPattern::Groups groups;
    ASSERT_TRUE(pattern.fullMatch("b", groups));
    EXPECT_FALSE(groups.matched(1));
    EXPECT_TRUE(groups.matched(2));
}

TEST(Pattern, DotStopsAtLineEnds) {
    const TqPattern pattern("a.c");
    TqPattern::Groups groups;
    EXPECT_TRUE(pattern.fullMatch("abc", groups));
    EXPECT_FALSE(pattern.fullMatch("a\nc", groups));
    EXPECT_FALSE(pattern.fullMatch("a\rc", groups));
}

TEST(Pattern, SplitYieldsThePiecesBetweenMatches) {
    EXPECT_EQ((std::vector<std::string>{"7", "3", "1", "23"}), TqPattern("\\.").split("7.3.1.23"));
    EXPECT_EQ((std::vector<std::string>{"a", "b", "", "c"}), TqPattern(",").split("a,b,,c"));
    EXPECT_EQ((std::vector<std::string>{"", "a"}), TqPattern(",").split(",a,"));
    EXPECT_EQ((std::vector<std::string>{""}), TqPattern(",").split(""));
    EXPECT_EQ((std::vector<std::string>{"1", "2", "3"}),
              TqPattern("\\s*-+\\s*").split("1 -  2--3"));
}

// Megabytes shaped like a supported product: std::regex recurses once per character here
// and overflows any thread's stack; the linear matcher answers with a flat stack.
TEST(Pattern, MegabytesOfTextMatchWithAFlatStack) {
    const TqPattern idemia(R"(^(IDEMIA)\s(.*)\((64|32)\-[b|B]it\)$)");
    std::string name = "IDEMIA Minidriver for PIV/CIV " + std::string(2 << 20, 'x') + "(64-Bit)";
    TqPattern::Groups groups;
    ASSERT_TRUE(idemia.fullMatch(name, groups));
    EXPECT_EQ("64", groups.text(name, 3));
    name.back() = ']';
    EXPECT_FALSE(idemia.fullMatch(name, groups));

    const TqPattern digits("\\d+");
    const std::string version(2 << 20, '7');
    ASSERT_TRUE(digits.search(version, 0, groups));
    EXPECT_EQ(version.size(), groups.end[0]);
}

} // namespace
