// The commands that ask one export each: enrollment, file-version, middleware, oberthur, atr, ia.
#pragma once

#include <string>
#include <vector>

using Arguments = std::vector<std::string>;

struct LibraryCommand;

// Whether typed is word, in any letter case.
bool SameWord(const std::string& typed, const char* word);

// The command these words name (in any letter case), with its arguments counted; null when none
// does.
const LibraryCommand* FindLibraryCommand(const Arguments& words);

// Asks the library, prints the answer on standard output and explains a failure on standard
// error. Returns the exit code: the export's result.
int RunLibraryCommand(const LibraryCommand& command, const Arguments& words, const char* logFile);
