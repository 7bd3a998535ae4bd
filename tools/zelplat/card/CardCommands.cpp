#include "card/CardCommands.h"

#include "card/CardList.h"
#include "common/GuardedFiles.h"
#include "common/PlatformDll.h"
#include "commandline/Usage.h"
#include "api/TqZelDLLPlatform.h"
#include "base/TqResultCodes.h"
#include "logging/ZelLogger.h"

#include <cstdio>
#include <io.h>
#include <iostream>

namespace {

struct CardOptions {
    std::string reader;
    std::string pin;
    bool pinGiven = false;
};

bool readOptions(const Arguments& arguments, CardOptions& options) {
    if (arguments.size() != 2 && arguments.size() != 4) {
        return false;
    }
    options.reader = arguments[1];
    if (arguments.size() == 4) {
        if (arguments[2] != "--pin") {
            return false;
        }
        options.pin = arguments[3];
        options.pinGiven = true;
    }
    return true;
}

// One line from standard input; at a console the typing is not shown.
std::string readPin() {
    const HANDLE input = ::GetStdHandle(STD_INPUT_HANDLE);
    DWORD mode = 0;
    const bool console = _isatty(0) != 0 && ::GetConsoleMode(input, &mode);
    if (console) {
        std::fputs("PIN: ", stderr);
        ::SetConsoleMode(input, mode & ~static_cast<DWORD>(ENABLE_ECHO_INPUT));
    }
    std::string pin;
    std::getline(std::cin, pin);
    if (console) {
        ::SetConsoleMode(input, mode);
        std::fputs("\n", stderr);
    }
    if (!pin.empty() && pin.back() == '\r') {
        pin.pop_back();
    }
    return pin;
}

// The library explains a failed card step only in its log. Without --log the tool lends it a
// log file of its own and shows the ERROR lines of it when the step failed.
class FailureReasons {
public:
    explicit FailureReasons(const char* logFile) : given_(logFile) {
        if (given_ != nullptr) {
            return;
        }
        // The library opens its log by name, so the file has one; zelplat makes it first, under a
        // new name, and keeps it open, sharing it with the logger's appending. zelplat reads
        // it through this handle alone.
        std::wstring path;
        file_ = CreateTemporaryFile(
            GENERIC_READ, FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE, 0, path);
        if (file_ && !NarrowPath(path, lent_)) {
            file_.reset(); // no name the library could open
        }
    }
    ~FailureReasons() {
        if (!file_) {
            return;
        }
        // The logger keeps its file open and does not share deletion: point it away first.
        // Then delete on close through a second handle on the same file, not by its name.
        TqLogger().SetFileName("NUL");
        const TqUniqueFile deleting(::ReOpenFile(
            file_.get(), DELETE, FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE,
            FILE_FLAG_DELETE_ON_CLOSE));
    }
    FailureReasons(const FailureReasons&) = delete;
    FailureReasons& operator=(const FailureReasons&) = delete;

    const char* logFile() const { return given_ != nullptr ? given_ : lent_.c_str(); }

    void show() const {
        if (!file_) {
            return;
        }
        const std::string text = ReadAll(file_.get());
        std::size_t start = 0;
        for (std::size_t end = text.find('\n'); end != std::string::npos;
             start = end + 1, end = text.find('\n', start)) {
            std::string line = text.substr(start, end - start);
            if (!line.empty() && line.back() == '\r') {
                line.pop_back();
            }
            const std::size_t level = line.find("[ERROR] ");
            if (level != std::string::npos) {
                std::fprintf(stderr, "zelplat: %s\n", line.substr(level).c_str());
            }
        }
    }

private:
    const char* given_;
    std::string lent_;
    TqUniqueFile file_;
};

// What the check did, by the check's result.
const char* checkAnswer(int result) {
    switch (result) {
    case 1:
        return "The card's content is valid; nothing was done.";
    case 2:
        return "The card's content was invalid; its cache was cleared and it is valid now.";
    case 0:
        return "The card's content is invalid; its cache was cleared three times and it is "
               "still invalid.";
    case 3:
        return "The Oberthur middleware is not installed; the card was not checked.";
    default:
        return nullptr;
    }
}

// The check's results 0 to 3 are answers; a negative one is a failure.
int reportCheck(int result, const FailureReasons& reasons) {
    const char* answer = checkAnswer(result);
    if (answer != nullptr) {
        std::printf("%s\n", answer);
        return result;
    }
    reasons.show();
    std::fprintf(stderr, "zelplat: %s\n", TqGetCommonResultText(result).c_str());
    return result;
}

int reportClear(int result, const FailureReasons& reasons) {
    if (result == 0) {
        std::fputs("The card's cache was cleared: its freshness counters were bumped three "
                   "times.\n",
                   stdout);
        return 0;
    }
    reasons.show();
    std::fprintf(stderr, "zelplat: %s\n", TqGetCommonResultText(result).c_str());
    return result;
}

using CardStep = int (*)(TqZelDLLPlatform& platform, const CardOptions& options,
                         const char* logFile);
using CardReport = int (*)(int result, const FailureReasons& reasons);

int runCardStep(const Arguments& arguments, const char* logFile, CardStep step, CardReport report) {
    CardOptions options;
    if (!readOptions(arguments, options)) {
        return CommandUsageError("card", "card: a reader name (and --pin PIN) expected");
    }
    if (!options.pinGiven) {
        options.pin = readPin();
    }
    const FailureReasons reasons(logFile);
    TqZelDLLPlatform platform;
    int result = 0;
    {
        const LibraryConsole libraryLines;
        result = step(platform, options, reasons.logFile());
    }
    return report(result, reasons);
}

int checkStep(TqZelDLLPlatform& platform, const CardOptions& options, const char* logFile) {
    return platform.OberthurSeries8CardCheckAndCacheClear(options.reader.c_str(),
                                                          options.pin.c_str(), logFile);
}

int clearStep(TqZelDLLPlatform& platform, const CardOptions& options, const char* logFile) {
    return platform.OberthurCacheClear(options.reader.c_str(), options.pin.c_str(), logFile);
}

} // namespace

int RunCardCommand(const Arguments& arguments, const char* logFile) {
    if (arguments.size() == 1 && arguments[0] == "list") {
        return RunCardList();
    }
    if (!arguments.empty() && arguments[0] == "check") {
        return runCardStep(arguments, logFile, checkStep, reportCheck);
    }
    if (!arguments.empty() && arguments[0] == "clear-cache") {
        return runCardStep(arguments, logFile, clearStep, reportClear);
    }
    return CommandUsageError("card", arguments.empty() ? "card: list, check or clear-cache expected"
                                                       : "card: unknown words");
}
