#include "library/MiddlewareTable.h"

#include "base/TqPattern.h"

#include <cstdio>
#include <map>
#include <sstream>
#include <vector>

namespace {

struct Row {
    std::string key;
    std::map<std::string, std::string> fields;
};

// The document's own layout: a record opens with a tab and its quoted key, its fields follow
// one a line, each two tabs in. The document carries text from the workstation, so it is read
// with the linear matcher.
std::vector<Row> readRows(const std::string& document) {
    static const TqPattern recordLine(R"x(^\t"([^"]+)": \{$)x");
    static const TqPattern fieldLine(R"x(^\t\t"([^"]+)":\s*"(.*)",?$)x");
    std::vector<Row> rows;
    std::istringstream lines(document);
    for (std::string line; std::getline(lines, line);) {
        TqPattern::Groups match;
        if (recordLine.fullMatch(line, match)) {
            rows.push_back({std::string(match.text(line, 1)), {}});
        } else if (!rows.empty() && fieldLine.fullMatch(line, match)) {
            rows.back().fields.emplace(match.text(line, 1), match.text(line, 2));
        }
    }
    return rows;
}

std::string field(const Row& row, const char* name) {
    const auto found = row.fields.find(name);
    return found == row.fields.end() ? std::string() : found->second;
}

std::string line(const std::string& key, const std::string& state, const std::string& name,
                 const std::string& version, const std::string& platform) {
    char text[1024];
    std::snprintf(text, sizeof text, "%-34s %-13s %-42s %-12s %s", key.c_str(), state.c_str(),
                  name.c_str(), version.c_str(), platform.c_str());
    std::string result = text;
    result.erase(result.find_last_not_of(' ') + 1);
    return result + "\n";
}

} // namespace

std::string TqFormatMiddlewareTable(const std::string& document) {
    std::string table = line("MIDDLEWARE", "STATE", "NAME", "VERSION", "PLATFORM");
    for (const Row& row : readRows(document)) {
        if (field(row, "Detected") == "true") {
            const std::string platform = field(row, "Platform");
            table += line(row.key, "detected", field(row, "Name"), field(row, "DisplayVersion"),
                          platform.empty() ? "" : platform + "-bit");
        } else if (row.fields.count("Exception") != 0) {
            table += line(row.key, "error", field(row, "Exception"), "", "");
        } else {
            table += line(row.key, "not detected", "", "", "");
        }
    }
    return table;
}
