#include "TqMiddlewareRecord.h"

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
