#include "report/ReportCommand.h"

#include "report/Report.h"
#include "report/ReportTable.h"
#include "commandline/Usage.h"
#include "base/TqResultCodes.h"

#include <cstdio>
#include <fstream>

namespace {

struct ReportOptions {
    bool table = false;
    std::string outputFile;
    std::string problem; // non-empty: the arguments were not understood
};

ReportOptions readOptions(const Arguments& arguments) {
    ReportOptions options;
    bool formatGiven = false;
    for (std::size_t at = 0; at < arguments.size() && options.problem.empty(); ++at) {
        const std::string& word = arguments[at];
        if ((word == "--json" || word == "--table") && !formatGiven) {
            options.table = word == "--table";
            formatGiven = true;
        } else if (word == "--output" && at + 1 < arguments.size() && options.outputFile.empty()) {
            options.outputFile = arguments[++at];
        } else {
            options.problem = "report: unknown or repeated option '" + word + "'";
        }
    }
    return options;
}

int writeOutput(const std::string& text, const std::string& outputFile) {
    if (outputFile.empty()) {
        std::fputs(text.c_str(), stdout);
        return 0;
    }
    std::ofstream file(outputFile);
    file << text;
    file.close();
    if (!file) {
        std::fprintf(stderr, "zelplat: cannot write %s\n", outputFile.c_str());
        return tq::kFileAccessFailed;
    }
    return 0;
}

} // namespace

int RunReportCommand(const Arguments& arguments, const char* logFile) {
    const ReportOptions options = readOptions(arguments);
    if (!options.problem.empty()) {
        return CommandUsageError("report", options.problem);
    }
    const PlatformDll dll;
    if (!dll.loaded()) {
        return tq::kLoadFailed;
    }
    const ReportJson report = BuildReport(dll, logFile);
    return writeOutput(options.table ? FormatReportTable(report) : ReportText(report),
                       options.outputFile);
}
