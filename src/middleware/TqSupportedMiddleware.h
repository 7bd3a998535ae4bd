// The supported-middleware document: the state of every middleware the client supports.
#pragma once

#include <sstream>
#include <string>

// Hands out the document joining the records of the six supported rows. Returns 0 whether or
// not anything was detected, 1 for a null output, 4 when no record could be joined, 23 for any
// other failure (the document is then an exception record under "MiddlewareDetection").
int TqSupportedMiddlewareDetectionJSON(char** jsonOut, int* jsonLength, const char* logFile);

// Appends one record to the document being built: its outer braces go, the first record opens
// the document with "{", the others follow a ",". A record without braces is reported on
// standard error and skipped.
void TqCombineMWResults(std::ostringstream& document, const std::string& record);
