// The Oberthur (OT) middleware: known releases by product code, the "OTMiddleware" record, and
// reading such a record back.
#pragma once

#include <cstdint>
#include <map>
#include <string>

// The product text of a selection. Returns 1 for 1, 2 and out-of-range selections, 0 for the
// other valid ones, -14 for 1025 to 3000 (see the table in the source).
int TqOTMiddlewareSelectionText(std::uint32_t selection, std::string& text);

// Looks for known OT releases by their product-code keys under the Uninstall key. A selection of
// 1 to 1024 is a bit set (2: the SR1 release, 1: the four SR5 releases in turn); 3001 to 3004
// test that one release. Returns the id of the release found (2001, 3001 to 3004), 0, or a
// negative code; a key that exists but refuses access counts as found.
int TqOTMiddlewareDetection(std::uint32_t selection, const char* logFile);

// Reads the "key": "value" pairs of a record, one pair a line; a key seen twice keeps its first
// value. 0 with pairs, 11 without, 2 for an empty text, 25 for a text not enclosed in braces.
int TqParseOTJSONMiddlewareString(const std::string& json,
                                  std::map<std::string, std::string>& pairs, const char* logFile);
