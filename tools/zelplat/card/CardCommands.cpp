#include "card/CardCommands.h"

#include "card/CardList.h"
#include "card/Pin.h"
#include "common/GuardedFiles.h"
#include "common/PlatformDll.h"
#include "commandline/Usage.h"
#include "common/ExitCodes.h"
#include "api/TqZelDLLPlatform.h"
#include "base/TqResultCodes.h"
#include "logging/ZelLogger.h"

#include <cstdio>
#include <cstring>

namespace {

const char kPinOnTheCommandLine[] =
    "card: --pin is not accepted: a PIN on the command line is visible to other programs; type "
    "it when asked, or pipe it with --pin-stdin";

struct CardOptions {
    std::string reader;
    bool pinFromStdin = false;
};

// "--pin", and "--pin=..." or any other spelling of it, but not "--pin-stdin".
bool isPinOnTheCommandLine(const std::string& argument) {
    return argument.size() >= 5 && _strnicmp(argument.c_str(), "--pin", 5) == 0 &&
           _stricmp(argument.c_str(), "--pin-stdin") != 0;
}

bool readOptions(const Arguments& arguments, CardOptions& options) {
    if (arguments.size() != 2 && arguments.size() != 3) {
        return false;
    }
    options.reader = arguments[1];
    if (arguments.size() == 3) {
        if (!SameWord(arguments[2], "--pin-stdin")) {
            return false;
        }
        options.pinFromStdin = true;
    }
    return true;
}

// At a console the PIN is typed without echo; otherwise, and always with --pin-stdin, it is
// the first line of standard input.
PinRead readPin(const CardOptions& options, PinBuffer& pin) {
    const HANDLE input = ::GetStdHandle(STD_INPUT_HANDLE);
    DWORD mode = 0;
    if (options.pinFromStdin || !::GetConsoleMode(input, &mode)) {
        return ReadPinLine(input, pin);
    }
    std::fputs("PIN: ", stderr);
    const PinRead read = ReadPinFromConsole(input, pin);
    std::fputs("\n", stderr);
    return read;
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

// The check's results 0 to 3 are answers, read as the card's health: valid (1, or 2 after the
// cache was cleared) is healthy, still invalid (0) a problem left after the fix, and without the
// middleware (3) the card was not assessed. A negative one is a failure.
int checkExitCode(int result) {
    switch (result) {
    case 1:
    case 2:
        return zelexit::kHealthy;
    case 0:
        return zelexit::kProblems;
    case 3:
        return zelexit::kCouldNotAssess;
    default:
        return zelexit::OfLibraryFailure(result);
    }
}

int reportCheck(int result, const FailureReasons& reasons) {
    const char* answer = checkAnswer(result);
    if (answer != nullptr) {
        std::printf("%s\n", answer);
        return checkExitCode(result);
    }
    reasons.show();
    std::fprintf(stderr, "zelplat: %s\n", TqGetCommonResultText(result).c_str());
    return checkExitCode(result);
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
    return zelexit::OfLibraryFailure(result);
}

using CardStep = int (*)(TqZelDLLPlatform& platform, const CardOptions& options, const char* pin,
                         const char* logFile);
using CardReport = int (*)(int result, const FailureReasons& reasons);

int runCardStep(const Arguments& arguments, const char* logFile, CardStep step, CardReport report) {
    for (const std::string& argument : arguments) {
        if (isPinOnTheCommandLine(argument)) {
            return CommandUsageError("card", kPinOnTheCommandLine);
        }
    }
    CardOptions options;
    if (!readOptions(arguments, options)) {
        return CommandUsageError("card", arguments.size() == 1
                                             ? "card " + arguments[0] + ": READER missing"
                                             : "card " + arguments[0] + " " + arguments[1] +
                                                   ": unexpected word '" + arguments.back() + "'");
    }
    PinBuffer pin;
    const PinRead read = readPin(options, pin);
    if (read != PinRead::kRead) {
        std::fprintf(stderr, "zelplat: card: %s\n", PinReadProblem(read));
        return zelexit::kUsageError;
    }
    const FailureReasons reasons(logFile);
    TqZelDLLPlatform platform;
    int result = 0;
    {
        const LibraryConsole libraryLines;
        result = UseThenWipe(pin, [&](const char* text) {
            return step(platform, options, text, reasons.logFile());
        });
    }
    return report(result, reasons);
}

int checkStep(TqZelDLLPlatform& platform, const CardOptions& options, const char* pin,
              const char* logFile) {
    return platform.OberthurSeries8CardCheckAndCacheClear(options.reader.c_str(), pin, logFile);
}

int clearStep(TqZelDLLPlatform& platform, const CardOptions& options, const char* pin,
              const char* logFile) {
    return platform.OberthurCacheClear(options.reader.c_str(), pin, logFile);
}

} // namespace

int RunCardCommand(const Arguments& arguments, const char* logFile) {
    if (arguments.empty()) {
        return CommandUsageError("card", "card: list, check or clear-cache missing");
    }
    if (SameWord(arguments[0], "list")) {
        if (arguments.size() > 1) {
            return CommandUsageError("card", "card list: unexpected word '" + arguments[1] + "'");
        }
        return RunCardList();
    }
    if (SameWord(arguments[0], "check")) {
        return runCardStep(arguments, logFile, checkStep, reportCheck);
    }
    if (SameWord(arguments[0], "clear-cache")) {
        return runCardStep(arguments, logFile, clearStep, reportClear);
    }
    return CommandUsageError("card", "card: unknown word '" + arguments[0] +
                                         "' (list, check or clear-cache expected)");
}
