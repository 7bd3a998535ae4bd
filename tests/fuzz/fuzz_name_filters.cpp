// The three display-name filters and the display-version splitter on any text: they never
// crash, and on text short enough for std::regex they accept exactly what the expressions
// they stand for accept.
#include "middleware/TqNameFilters.h"

#include <cstddef>
#include <cstdint>
#include <regex>
#include <string>

namespace {

bool regexFilter(const std::regex& pattern, std::size_t platformGroup, const std::string& name,
                 std::string& platform) {
    std::smatch match;
    if (!std::regex_match(name, match, pattern)) {
        return false;
    }
    const std::string word = match[platformGroup != 0 ? platformGroup : match.size() - 1].str();
    if (word != "32" && word != "64") {
        return false;
    }
    platform = word;
    return true;
}

void compare(bool (*filter)(const std::string&, std::string&), const std::regex& pattern,
             std::size_t platformGroup, const std::string& name) {
    std::string platform = "unset";
    const bool accepted = filter(name, platform);
    if (name.size() > 256) {
        return; // std::regex recurses per character: only short names are compared
    }
    std::string expected = "unset";
    if (regexFilter(pattern, platformGroup, name, expected) != accepted || expected != platform) {
        __builtin_trap();
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    static const std::regex classic(
        R"(^(Classic Client)\s([0-9]{1,}\.[0-9]{1,})\sPatch\s([0-9]{1,})\s[A-Za-z\s]{0,}(64|32)\s[b|B]it[s]{0,1}$)");
    static const std::regex awp(
        R"(^(AWP)\s([0-9]{1,}\.[0-9]{1,}\.[0-9]{1,})\s\((64|32)\-[b|B]it\)$)");
    static const std::regex idemia(R"(^(IDEMIA)\s(.*)\((64|32)\-[b|B]it\)$)");
    const std::string text(reinterpret_cast<const char*>(data), size);
    compare(TqClassicClientNameFilter, classic, 4, text);
    compare(TqAWPNameFilter, awp, 3, text);
    compare(TqIdemiaNameFilter, idemia, 0, text);
    std::string build = "b";
    std::string revision = "r";
    try {
        TqSplitDisplayVersion(text, build, revision);
    } catch (const std::exception&) {
    }
    return 0;
}
