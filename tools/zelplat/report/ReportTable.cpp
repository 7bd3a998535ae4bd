#include "report/ReportTable.h"

#include <algorithm>

namespace {

using Rows = std::vector<std::vector<std::string>>;

std::string cellText(const ReportJson& value) {
    if (value.is_string()) {
        // One value, one line: the line ends inside a library's text are shown, not made.
        std::string text;
        for (const char c : value.get<std::string>()) {
            text += c == '\n'   ? std::string("\\n")
                    : c == '\r' ? std::string("\\r")
                                : std::string(1, c);
        }
        return text;
    }
    if (value.is_null()) {
        return "-";
    }
    return value.dump(-1, ' ', false, nlohmann::json::error_handler_t::replace);
}

// Every value under a field, its name the path to it ("document.OTMiddleware.Detected",
// "modules[0].path"); an empty object or array is a value of its own.
void addValues(Rows& rows, const std::string& section, const std::string& field,
               const ReportJson& value) {
    if (value.is_structured() && !value.empty()) {
        std::size_t index = 0;
        for (auto item = value.begin(); item != value.end(); ++item, ++index) {
            const std::string name = value.is_array()
                                         ? field + "[" + std::to_string(index) + "]"
                                         : field + (field.empty() ? "" : ".") + item.key();
            addValues(rows, section, name, item.value());
        }
        return;
    }
    rows.push_back({section, field, cellText(value)});
}

} // namespace

std::string AlignedColumns(const std::vector<std::vector<std::string>>& rows) {
    std::vector<std::size_t> widths;
    for (const auto& row : rows) {
        widths.resize(std::max(widths.size(), row.size()));
        for (std::size_t column = 0; column < row.size(); ++column) {
            widths[column] = std::max(widths[column], row[column].size());
        }
    }
    std::string text;
    for (const auto& row : rows) {
        std::string line;
        for (std::size_t column = 0; column < row.size(); ++column) {
            line += row[column];
            if (column + 1 < row.size()) {
                line += std::string(widths[column] - row[column].size() + 2, ' ');
            }
        }
        line.erase(line.find_last_not_of(' ') + 1);
        text += line + "\n";
    }
    return text;
}

std::string FormatReportTable(const ReportJson& report) {
    Rows rows = {{"SECTION", "FIELD", "VALUE"}};
    for (auto section = report.begin(); section != report.end(); ++section) {
        addValues(rows, section.key(), "", section.value());
    }
    return AlignedColumns(rows);
}
