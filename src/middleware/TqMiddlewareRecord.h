// The JSON records that report one middleware product. Hand-built text: tab indentation, every
// value quoted, nothing escaped (the client's parser expects exactly this layout).
// Free of <windows.h>.
#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <string_view>
#include <vector>

struct TqRecordField {
    std::string name;
    std::string value;
    // What stands between the quoted name and the quoted value. Every field has ": " but the
    // driver records' "UUID", which has ":" alone.
    std::string_view separator = ": ";
};

// "{\n\t\"<key>\": {\n" + one line per field ("\t\t\"name\": \"value\"", a comma on all but the
// last) + "\t}\n}" (no line end after the last brace).
std::string TqComposeRecord(std::string_view key, const std::vector<TqRecordField>& fields);

// The values that the installed-program search gathers for a detected product.
struct TqMiddlewareValues {
    std::string UUID;
    std::string Name;
    std::string Publisher;
    std::string Platform;
    std::string DisplayVersion;
    std::uint32_t VersionMajor = 0;
    std::uint32_t VersionMinor = 0;
    std::string Revision;
    std::string BuildNo;
};

std::string TqDetectedRecord(std::string_view key, const TqMiddlewareValues& values);
std::string TqNotDetectedRecord(std::string_view key);
std::string TqExceptionRecord(std::string_view key, std::string_view message);

// Reads back a record: the first "name" : "value" pair of every complete line (the text after
// the last line feed is not read), blanks allowed around the colon. The first pair with a name
// wins over later ones.
void TqRecordPairs(std::string_view record, std::map<std::string, std::string>& pairs);
