// The Oberthur (OT) middleware: known releases by product code, the "OTMiddleware" record, and
// reading such a record back.
#pragma once

#include <cstdint>
#include <map>
#include <string>

// The product text of a selection. Returns 1 for 1, 2 and out-of-range selections, 0 for the
// other valid ones, -14 for 1025 to 3000 (see the table in the source).
int TqOTMiddlewareSelectionText(std::uint32_t selection, std::string& text);

// Reads the "key": "value" pairs of a record, one pair a line; a key seen twice keeps its first
// value. 0 with pairs, 11 without, 2 for an empty text, 25 for a text not enclosed in braces.
int TqParseOTJSONMiddlewareString(const std::string& json,
                                  std::map<std::string, std::string>& pairs, const char* logFile);
