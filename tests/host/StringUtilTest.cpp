// The split, trim and version-number helpers, with the diagnostic lines they write.
#include "base/TqStringUtil.h"
#include "support/CapturedStreams.h"

#include <gtest/gtest.h>

#include <regex>

namespace {

using zeltest::CapturedStderr;
using zeltest::CapturedStdout;

using Pieces = std::vector<std::string>;
using Numbers = std::vector<std::int32_t>;

// The runtime's own text for a pattern that does not compile.
std::string regexErrorText(const char* pattern) {
    try {
        std::regex compiled(pattern);
    } catch (const std::regex_error& error) {
        return error.what();
    }
    ADD_FAILURE() << "pattern compiled: " << pattern;
    return std::string();
}

TEST(SplitString, AdjacentDelimitersGiveAnEmptyPiece) {
    Pieces pieces{"stale"};
    EXPECT_EQ(0, TqSplitString("a,b,,c", ",", pieces));
    EXPECT_EQ((Pieces{"a", "b", "", "c"}), pieces);
}

TEST(SplitString, DottedVersionSplitsOnAnEscapedDot) {
    Pieces pieces;
    EXPECT_EQ(0, TqSplitString("7.3.1.23", "\\.", pieces));
    EXPECT_EQ((Pieces{"7", "3", "1", "23"}), pieces);
}

TEST(SplitString, TextWithoutDelimiterIsOnePiece) {
    Pieces pieces{"x", "y"};
    EXPECT_EQ(0, TqSplitString("Classic Client", "\\.", pieces));
    EXPECT_EQ((Pieces{"Classic Client"}), pieces);
}

TEST(SplitString, EmptyTextIsOneEmptyPiece) {
    Pieces pieces{"x"};
    EXPECT_EQ(0, TqSplitString("", ",", pieces));
    EXPECT_EQ((Pieces{""}), pieces);
}

TEST(SplitString, LeadingDelimiterGivesAnEmptyFirstPieceAndATrailingOneNoLastPiece) {
    Pieces pieces;
    EXPECT_EQ(0, TqSplitString(",a,", ",", pieces));
    // The token iteration yields the text before each match and a non-empty remainder only.
    EXPECT_EQ((Pieces{"", "a"}), pieces);
}

TEST(SplitString, PatternIsARegularExpression) {
    Pieces pieces;
    EXPECT_EQ(0, TqSplitString("1 -  2--3", "\\s*-+\\s*", pieces));
    EXPECT_EQ((Pieces{"1", "2", "3"}), pieces);
}

TEST(SplitString, InvalidPatternReturns23AndReportsOnStandardOutput) {
    Pieces pieces{"stale"};
    CapturedStdout output;
    CapturedStderr errors;
    const int result = TqSplitString("a(b", "(", pieces);
    const std::string err = errors.text();
    const std::string out = output.text();
    EXPECT_EQ(23, result);
    EXPECT_TRUE(pieces.empty());
    EXPECT_EQ("TqSplitString : Exception Occurred - " + regexErrorText("(") + "\n", out);
    EXPECT_EQ("", err);
}

TEST(TrimWhiteSpace, BlanksAndRegistryTerminatorsGo) {
    std::string s("  DisplayName\0\0", 15);
    ASSERT_EQ(15u, s.size());
    TqTrimWhiteSpace(s);
    EXPECT_EQ("DisplayName", s);
}

TEST(TrimWhiteSpace, TabIsNotABlank) {
    std::string s = "\tA";
    TqTrimWhiteSpace(s);
    EXPECT_EQ("\tA", s);
}

TEST(TrimWhiteSpace, LineEndsStayAndInnerBlanksStay) {
    std::string s = " \r\nClassic  Client\n ";
    TqTrimWhiteSpace(s);
    EXPECT_EQ("\r\nClassic  Client\n", s);
}

TEST(TrimWhiteSpace, MixedBlanksAndNulsAtTheEndGo) {
    std::string s("Gemalto \0 \0", 11);
    TqTrimWhiteSpace(s);
    EXPECT_EQ("Gemalto", s);
}

TEST(TrimWhiteSpace, LeadingNulIsKept) {
    std::string s("\0abc ", 5);
    TqTrimWhiteSpace(s);
    EXPECT_EQ(std::string("\0abc", 4), s);
}

TEST(TrimWhiteSpace, OnlyBlanksAndNulsBecomeEmpty) {
    std::string s(" \0 \0", 4);
    TqTrimWhiteSpace(s);
    EXPECT_EQ("", s);
    std::string blanks = "   ";
    TqTrimWhiteSpace(blanks);
    EXPECT_EQ("", blanks);
}

TEST(TrimWhiteSpace, EmptyStaysEmptyWithoutDiagnostics) {
    std::string s;
    CapturedStderr errors;
    TqTrimWhiteSpace(s);
    EXPECT_EQ("", errors.text());
    EXPECT_EQ("", s);
}

TEST(TrimReturnChars, OnlyLineFeedsAtTheVeryEndsGo) {
    std::string s = "\r\nabc\r\n";
    TqTrimReturnChars(s);
    EXPECT_EQ("\r\nabc\r", s);
}

TEST(TrimReturnChars, SeveralLineFeedsGoFromBothEndsInnerOnesStay) {
    std::string s = "\n\n1.2\n3\n\n\n";
    TqTrimReturnChars(s);
    EXPECT_EQ("1.2\n3", s);
}

TEST(TrimReturnChars, OnlyLineFeedsBecomeEmpty) {
    std::string s = "\n\n\n";
    TqTrimReturnChars(s);
    EXPECT_EQ("", s);
    std::string empty;
    TqTrimReturnChars(empty);
    EXPECT_EQ("", empty);
}

TEST(ParseVersionNoString, DottedVersionGivesEachNumberAndEmptiesTheText) {
    std::string text = "11.2.345";
    Numbers numbers;
    EXPECT_EQ(0, TqParseVersionNoString(text, numbers));
    EXPECT_EQ((Numbers{11, 2, 345}), numbers);
    EXPECT_EQ("", text);
}

TEST(ParseVersionNoString, LeadingZerosAndWordsBetweenRuns) {
    std::string text = "v5 (build 0042)";
    Numbers numbers;
    EXPECT_EQ(0, TqParseVersionNoString(text, numbers));
    EXPECT_EQ((Numbers{5, 42}), numbers);
    EXPECT_EQ("", text);
}

TEST(ParseVersionNoString, NumbersAreAppendedToWhatTheCallerPassed) {
    std::string text = "7.3";
    Numbers numbers{99};
    EXPECT_EQ(0, TqParseVersionNoString(text, numbers));
    EXPECT_EQ((Numbers{99, 7, 3}), numbers);
}

TEST(ParseVersionNoString, EmptyOrDigitFreeTextGivesNothing) {
    std::string empty;
    Numbers numbers;
    EXPECT_EQ(0, TqParseVersionNoString(empty, numbers));
    EXPECT_TRUE(numbers.empty());
    std::string words = "no digits here";
    EXPECT_EQ(0, TqParseVersionNoString(words, numbers));
    EXPECT_TRUE(numbers.empty());
    EXPECT_EQ("", words);
}

TEST(ParseVersionNoString, LargestInt32Fits) {
    std::string text = "2147483647.0";
    Numbers numbers;
    EXPECT_EQ(0, TqParseVersionNoString(text, numbers));
    EXPECT_EQ((Numbers{2147483647, 0}), numbers);
}

TEST(ParseVersionNoString, RunTooLongForInt32Returns23KeepsEarlierNumbersAndEmptiesText) {
    std::string text = "1.2147483648.7";
    Numbers numbers;
    CapturedStdout output;
    CapturedStderr errors;
    const int result = TqParseVersionNoString(text, numbers);
    const std::string err = errors.text();
    const std::string out = output.text();
    EXPECT_EQ(23, result);
    EXPECT_EQ((Numbers{1}), numbers);
    EXPECT_EQ("", text);
    EXPECT_EQ("TqParseVersionNoString : Exception Occurred - stoi argument out of range\n", err);
    EXPECT_EQ("", out);
}

TEST(ParseVersionNoString, TwentyDigitRunReturns23) {
    std::string text = "99999999999999999999";
    Numbers numbers;
    CapturedStderr errors;
    EXPECT_EQ(23, TqParseVersionNoString(text, numbers));
    EXPECT_EQ("TqParseVersionNoString : Exception Occurred - stoi argument out of range\n",
              errors.text());
    EXPECT_TRUE(numbers.empty());
}

TEST(ParseVersionNoString, TextWithEmbeddedNulFromTheRegistryStillParses) {
    std::string text("6.1\0", 4);
    Numbers numbers;
    EXPECT_EQ(0, TqParseVersionNoString(text, numbers));
    EXPECT_EQ((Numbers{6, 1}), numbers);
}

} // namespace
