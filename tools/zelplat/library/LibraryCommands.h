// The commands that ask one export each: enrollment, file-version, middleware, oberthur, atr, ia.
#pragma once

#include "common/Words.h"

#include <string>

struct LibraryCommand;

// Whether words[0] is the first word of one of these commands.
bool IsLibraryCommandWord(const std::string& word);

// The command these words name (in any letter case), with its arguments counted; null when none
// does, and then problem names the word that is wrong or the piece that is missing.
const LibraryCommand* FindLibraryCommand(const Arguments& words, std::string& problem);

// Asks the library, prints the answer on standard output and explains a failure on standard
// error. Returns the exit code: 0 for an answer, the table's code for a failure (the export's
// result is in the text).
int RunLibraryCommand(const LibraryCommand& command, const Arguments& words, const char* logFile);
