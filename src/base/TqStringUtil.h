// Split, trim and version-number helpers shared by the registry readers and the middleware
// detection. Free of <windows.h>: builds natively as well.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

// Replaces pieces by the parts of text between matches of delimiterPattern (ECMAScript), as a
// token iteration with sub-match -1 yields them. Returns 0, or 23 when the pattern is invalid
// (the line goes to standard output).
int TqSplitString(const std::string& text, const std::string& delimiterPattern,
                  std::vector<std::string>& pieces);

// Removes leading blanks and trailing blanks and NUL bytes (the terminators that registry
// string data carry). Tabs and line ends stay.
void TqTrimWhiteSpace(std::string& s);

// Removes line feeds from both ends; carriage returns stay.
void TqTrimReturnChars(std::string& s);

// Appends every run of decimal digits in text to numbers and leaves text empty. Returns 0, or
// 23 when a run does not fit a signed 32-bit integer (the numbers before it are kept).
int TqParseVersionNoString(std::string& text, std::vector<std::int32_t>& numbers);
