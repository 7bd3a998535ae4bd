#include "report/ReportCommand.h"

#include "report/Report.h"
#include "report/ReportTable.h"
#include "commandline/Usage.h"
#include "common/ExitCodes.h"
#include "common/GuardedFiles.h"
#include "common/PlatformDll.h"
#include "base/TqResultCodes.h"

#include <cstdio>

namespace {

struct ReportOptions {
    bool table = false;
    bool outputGiven = false;
    std::string outputFile;
    bool force = false;  // --output may replace an existing ordinary file
    std::string problem; // non-empty: the arguments were not understood
};

ReportOptions readOptions(const Arguments& arguments) {
    ReportOptions options;
    bool formatGiven = false;
    for (std::size_t at = 0; at < arguments.size() && options.problem.empty(); ++at) {
        const std::string& word = arguments[at];
        const bool format = SameWord(word, "--json") || SameWord(word, "--table");
        if (format && !formatGiven) {
            options.table = SameWord(word, "--table");
            formatGiven = true;
        } else if (SameWord(word, "--output") && at + 1 < arguments.size() &&
                   !options.outputGiven) {
            options.outputFile = arguments[++at];
            options.outputGiven = true;
        } else if (SameWord(word, "--output") && !options.outputGiven) {
            options.problem = "report: --output needs a file name";
        } else if (SameWord(word, "--force") && !options.force) {
            options.force = true;
        } else if (format || SameWord(word, "--output") || SameWord(word, "--force")) {
            options.problem = format ? "report: --json and --table given together, or twice"
                                     : "report: " + word + " given twice";
        } else {
            options.problem = "report: unknown option '" + word + "'";
        }
    }
    if (options.problem.empty() && options.outputGiven && options.outputFile.empty()) {
        options.problem = "report: --output needs a file name";
    } else if (options.problem.empty() && options.force && !options.outputGiven) {
        options.problem = "report: --force goes with --output FILE";
    }
    return options;
}

int cannotWrite(const std::string& outputFile, const std::string& why) {
    std::fprintf(stderr, "zelplat: cannot write %s: %s\n", outputFile.c_str(), why.c_str());
    return zelexit::kCannotWrite;
}

// The file holds what standard output would have shown: its lines end in CR LF.
std::string withCarriageReturns(const std::string& text) {
    std::string converted;
    converted.reserve(text.size() + text.size() / 32);
    for (const char c : text) {
        if (c == '\n') {
            converted += '\r';
        }
        converted += c;
    }
    return converted;
}

} // namespace

int RunReportCommand(const Arguments& arguments, const char* logFile) {
    const ReportOptions options = readOptions(arguments);
    if (!options.problem.empty()) {
        return CommandUsageError("report", options.problem);
    }
    const PlatformDll dll;
    if (!dll.loaded()) {
        return zelexit::kLibraryNotLoaded;
    }
    // The file is made and checked before the report, which takes a while, is built.
    OutputFile output;
    if (options.outputGiven) {
        output = CreateOutputFile(options.outputFile, options.force);
        if (!output.problem.empty()) {
            return cannotWrite(options.outputFile, output.problem);
        }
    }
    const ReportJson report = BuildReport(dll, logFile);
    const std::string text = options.table ? FormatReportTable(report) : ReportText(report);
    if (!options.outputGiven) {
        std::fputs(text.c_str(), stdout);
        return 0;
    }
    if (!WriteAll(output.file.get(), withCarriageReturns(text))) {
        return cannotWrite(options.outputFile, "Windows error " + std::to_string(::GetLastError()));
    }
    return 0;
}
