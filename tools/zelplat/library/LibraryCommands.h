// The commands that ask one export each: enrollment, file-version, middleware, oberthur, atr, ia.
#pragma once

#include <string>
#include <vector>

using Arguments = std::vector<std::string>;

struct LibraryCommand;

// The command these words name, with its arguments counted; null when none does.
const LibraryCommand* FindLibraryCommand(const Arguments& words);

// Asks the library, prints the answer on standard output and explains a failure on standard
// error. Returns the exit code: the export's result.
int RunLibraryCommand(const LibraryCommand& command, const Arguments& words, const char* logFile);
