#include "library/IdentityAgentTable.h"

#include <cstdio>

namespace {

// The text of "key": "text" in the document; every value of it is a string without quotes.
std::string documentValue(const std::string& document, const char* key) {
    const std::string opening = std::string("\"") + key + "\": \"";
    const std::size_t start = document.find(opening);
    if (start == std::string::npos) {
        return "";
    }
    const std::size_t from = start + opening.size();
    const std::size_t end = document.find('"', from);
    return end == std::string::npos ? "" : document.substr(from, end - from);
}

// "true"/"false"/"unknown" as support staff say it.
std::string yesNo(const std::string& flag, const char* yes = "yes") {
    if (flag == "true") {
        return yes;
    }
    return flag == "false" ? "no" : flag;
}

} // namespace

std::string TqFormatIdentityAgentTable(const std::string& document) {
    const std::string agent = documentValue(document, "name");
    const bool found = agent != "unknown";
    const std::string restarted = documentValue(document, "hasRebooted");
    // maxVersion holds the major number, minVersion the minor one.
    const std::string rows[][2] = {
        {"Agent", found ? agent : "none installed and running"},
        {"Version",
         found ? documentValue(document, "maxVersion") + "." + documentValue(document, "minVersion")
               : "-"},
        {"Spring check", documentValue(document, "status")},
        {"Locked", yesNo(documentValue(document, "locked"), "yes (machine-wide or policy value)")},
        {"ZelCheck set", yesNo(documentValue(document, "zelSet"))},
        {"Restarted since", restarted == "pending"
                                ? "no (the switch waits for the agent to restart)"
                                : yesNo(restarted)},
    };
    std::string table;
    for (const auto& row : rows) {
        char line[256];
        std::snprintf(line, sizeof line, "%-17s%s\n", (row[0] + ":").c_str(), row[1].c_str());
        table += line;
    }
    return table;
}
