// Reading the name-value pairs back from a record, on any text: never a crash, and on short
// text the same pairs as the expression it stands for finds with std::regex.
#include "middleware/TqMiddlewareRecord.h"

#include <cstddef>
#include <cstdint>
#include <map>
#include <regex>
#include <string>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string record(reinterpret_cast<const char*>(data), size);
    std::map<std::string, std::string> pairs;
    TqRecordPairs(record, pairs);
    if (record.size() > 512) {
        return 0;
    }
    static const std::regex pair(R"x("(.*?)"\s{0,}\:\s{0,}"(.*?)")x");
    std::map<std::string, std::string> expected;
    std::size_t start = 0;
    for (std::size_t end = record.find('\n'); end != std::string::npos;
         start = end + 1, end = record.find('\n', start)) {
        const std::string line = record.substr(start, end - start);
        std::smatch match;
        if (std::regex_search(line, match, pair)) {
            expected.emplace(match[1].str(), match[2].str());
        }
    }
    if (expected != pairs) {
        __builtin_trap();
    }
    return 0;
}
