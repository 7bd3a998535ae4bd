// The tool's usage text and the help of each command.
#pragma once

#include <string>

// Prints the usage text on standard output.
void PrintUsage();

// Prints the help of a command ("report", "card", "ia", ...) on standard output; false when
// there is no such command.
bool PrintCommandHelp(const std::string& command);

// Explains a usage error and the usage on standard error; returns the exit code for it.
int UsageError(const std::string& problem);

// The usage text of one command alone on standard error, after the problem; the exit code.
int CommandUsageError(const std::string& command, const std::string& problem);
