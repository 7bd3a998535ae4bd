// Is a middleware product installed, and in which version? The search over the installed-program
// entries of the Uninstall key, reported as one JSON record.
#pragma once

#include "middleware/TqNameFilters.h"

#include <string>

// One product: what its Uninstall entry looks like. All pointers are borrowed.
struct TqMiddlewareSearchDetails {
    const char* jsonKey;           // the record's key, e.g. "GemaltoMiddleware"
    const char* displayName;       // the DisplayName value begins with this text
    const char* publisher;         // the Publisher value, compared ignoring letter case
    TqNameFilter nameFilter;       // may be null: every entry goes on
    TqVersionParser versionParser; // may be null: Revision and BuildNo stay as they are
};

// The UUID of an entry: the last name of its key path, or the whole path when it has no
// backslash.
std::string TqEntryUUID(const std::string& keyPath);

// Hands out the product's record ("Detected" true with ten fields, false alone, or false with
// the exception's message). Returns 1 detected, 0 not detected, or a negative code (-1 bad
// arguments, -4 the registry could not be searched, -23 any other failure).
int TqMiddlewareDetectionSearchJSON(const TqMiddlewareSearchDetails* details, char** jsonOut,
                                    int* jsonLength, const char* logFile);

// The "OTMiddleware" record of the Oberthur AWP middleware; same results.
int TqOTMiddlewareDetectionJSON(char** jsonOut, int* jsonLength, const char* logFile);
