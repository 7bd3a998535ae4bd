#include "TqMiddlewareRecord.h"

#include "base/TqPattern.h"

std::string TqComposeRecord(std::string_view key, const std::vector<TqRecordField>& fields) {
    std::string record = "{\n\t\"";
    record.append(key).append("\": {\n");
    for (std::size_t i = 0; i < fields.size(); ++i) {
        record.append("\t\t\"")
            .append(fields[i].name)
            .append("\"")
            .append(fields[i].separator)
            .append("\"")
            .append(fields[i].value)
            .append(i + 1 < fields.size() ? "\",\n" : "\"\n");
    }
    record.append("\t}\n}");
    return record;
}

std::string TqDetectedRecord(std::string_view key, const TqMiddlewareValues& values) {
    return TqComposeRecord(key, {
                                    {"Detected", "true"},
                                    {"UUID", values.UUID},
                                    {"Name", values.Name},
                                    {"Publisher", values.Publisher},
                                    {"Platform", values.Platform},
                                    {"DisplayVersion", values.DisplayVersion},
                                    {"VersionMajor", std::to_string(values.VersionMajor)},
                                    {"VersionMinor", std::to_string(values.VersionMinor)},
                                    {"Revision", values.Revision},
                                    {"BuildNo", values.BuildNo},
                                });
}

std::string TqNotDetectedRecord(std::string_view key) {
    return TqComposeRecord(key, {{"Detected", "false"}});
}

std::string TqExceptionRecord(std::string_view key, std::string_view message) {
    return TqComposeRecord(key, {{"Detected", "false"}, {"Exception", std::string(message)}});
}

void TqRecordPairs(std::string_view record, std::map<std::string, std::string>& pairs) {
    // The shortest quoted name, then the shortest quoted value: a line has its pair where the
    // first quote begins one.
    static const TqPattern pair(R"x("(.*?)"\s{0,}\:\s{0,}"(.*?)")x");
    std::size_t start = 0;
    for (std::size_t end = record.find('\n'); end != std::string_view::npos;
         start = end + 1, end = record.find('\n', start)) {
        const std::string_view line = record.substr(start, end - start);
        TqPattern::Groups match;
        if (pair.search(line, 0, match)) {
            pairs.emplace(match.text(line, 1), match.text(line, 2));
        }
    }
}
