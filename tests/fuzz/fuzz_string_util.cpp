// The string and version helpers on any text: splitting by a literal dot, both trims and the
// version-number parser never crash, and what they give back stays inside the text they got.
#include "base/TqStringUtil.h"

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string text(reinterpret_cast<const char*>(data), size);
    std::vector<std::string> pieces;
    if (TqSplitString(text, "\\.", pieces) != 0 || pieces.empty()) {
        __builtin_trap();
    }
    std::size_t kept = pieces.size() - 1; // the dots between the pieces
    for (const std::string& piece : pieces) {
        kept += piece.size();
    }
    if (kept > text.size()) {
        __builtin_trap();
    }
    std::string trimmed = text;
    TqTrimWhiteSpace(trimmed);
    if (trimmed.size() > text.size() || text.find(trimmed) == std::string::npos) {
        __builtin_trap();
    }
    trimmed = text;
    TqTrimReturnChars(trimmed);
    if (trimmed.size() > text.size() || text.find(trimmed) == std::string::npos) {
        __builtin_trap();
    }
    std::string version = text;
    std::vector<std::int32_t> numbers;
    const int parsed = TqParseVersionNoString(version, numbers);
    if ((parsed != 0 && parsed != 23) || !version.empty() || numbers.size() > text.size()) {
        __builtin_trap();
    }
    return 0;
}
